#ifndef MIRROR_SIGNALS_H
#define MIRROR_SIGNALS_H

#include <nivur/no_copyable.h>
#include <nivur/thread.h>

#include <csignal>
#include <functional>

namespace mirror {

/// Blocks SIGINT, SIGTERM, SIGHUP (unless it is ignored) and, if `withUsr1`, SIGUSR1 in this thread
/// and those that it starts from now on. Returns their set. Ignores SIGPIPE and SIGXFSZ, so that
/// writing to a closed pipe or beyond the file size limit fails instead of ending the process.
sigset_t blockSignals(bool withUsr1);

/// Ends the process after 5 seconds, in case a thread that is blocked by a terminal or a disk
/// delays its end. Any thread.
void endSoon();

/// Handles blocked signals on a thread of its own, so that handlers may call any function.
class Signals : public NIVUR::NoCopyable {
  public:
    using Handler = std::function<void(int)>;

    /// Starts the thread, which calls `handler` with the number of each signal.
    Signals(const sigset_t& set, Handler handler);
    ~Signals();

  private:
    void handleAll();

    const sigset_t _set;
    const Handler _handler;
    NIVUR::Thread _thread;
};

}  // namespace mirror

#endif
