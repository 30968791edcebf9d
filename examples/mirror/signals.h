#ifndef MIRROR_SIGNALS_H
#define MIRROR_SIGNALS_H

#include <nivur/no_copyable.h>
#include <nivur/thread.h>

#include <csignal>
#include <functional>

namespace mirror {

/// Blocks SIGINT, SIGTERM and SIGHUP, and SIGUSR1 if asked to, in this thread and those that it
/// starts from now on, and returns their set. Writing to a closed pipe or beyond the limit of a
/// file's size fails from now on, where it would have ended the process.
sigset_t blockSignals(bool withUsr1);

/// Ends the process in 5 seconds if it has not ended by then: a thread that waits for a terminal or
/// a disk does not notice that it is to end. Any thread.
void endSoon();

/// Handles blocked signals on a thread of its own, where anything may be done.
class Signals : public NIVUR::NoCopyable {
  public:
    using Handler = std::function<void(int)>;

    /// Begins to call `handler` with the number of each signal.
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
