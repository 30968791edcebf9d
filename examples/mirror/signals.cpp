#include "signals.h"

#include <nivur/runnable.h>
#include <poll.h>
#include <unistd.h>

#include <utility>

namespace mirror {

namespace {

constexpr unsigned int kEndSeconds = 5;

/// Async-signal-safe, and never blocks.
void endNow(int /*signal*/) {
    constexpr char kText[] = "mirror: interrupted, and a file or a terminal does not answer\n";
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    const bool isWritten =
        ::poll(&output, 1, 0) == 1 && ::write(STDERR_FILENO, kText, sizeof(kText) - 1) > 0;
    ::_exit(isWritten ? 1 : 2);
}

}  // namespace

void endSoon() {
    ::signal(SIGALRM, endNow);
    ::alarm(kEndSeconds);
}

sigset_t blockSignals(bool withUsr1) {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    struct sigaction onHangUp {};
    ::sigaction(SIGHUP, nullptr, &onHangUp);
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGINT);
    ::sigaddset(&set, SIGTERM);
    if (onHangUp.sa_handler != SIG_IGN) {  // nohup ignores it
        ::sigaddset(&set, SIGHUP);
    }
    if (withUsr1) {
        ::sigaddset(&set, SIGUSR1);
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return set;
}

Signals::Signals(const sigset_t& set, Handler handler) : _set(set), _handler(std::move(handler)) {
    _thread.start(NIVUR::makeRunnable([this] { handleAll(); }), "mirror-signals");
}

Signals::~Signals() {
    _thread.stop();
    if (_thread.isStarted()) {
        ::kill(::getpid(), SIGTERM);  // ends the wait
    }
    _thread.waitForStop();
}

void Signals::handleAll() {
    int number = 0;
    while (::sigwait(&_set, &number) == 0 && !_thread.isStopping()) {
        _handler(number);
    }
}

}  // namespace mirror
