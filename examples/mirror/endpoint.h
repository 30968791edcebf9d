#ifndef MIRROR_ENDPOINT_H
#define MIRROR_ENDPOINT_H

#include <nivur/dictionary.h>
#include <nivur/event_center.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>
#include <nivur/semaphore.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "control_channel.h"

namespace mirror {

/// The common base of both ends: one loop for sockets, timers and messages, a control channel, and
/// one way to end. Everything but the public operations is called on the loop's thread, or before
/// that has started, so that nothing here needs a lock.
class Endpoint : public ControlChannel::Handler, public NIVUR::NoCopyable {
  public:
    virtual ~Endpoint() = default;

    /// Waits until the transfer has ended and the connection is closed. Returns an error message,
    /// or "" after success. Call it once.
    std::string wait();

    /// Ends the transfer with an error, unless it has ended already. Any thread.
    void interrupt();

    /// Logs the state of all loops. Any thread.
    virtual void dump();

  protected:
    /// `name` is part of the loop's name; error messages call the peer `peerRole`.
    Endpoint(const std::string& name, std::string peerRole, NIVUR::EventCenter& events);

    /// Starts the loop, as the last step of starting an end. Returns false and ends the transfer if
    /// no thread can be started. An urgent loop has a high priority if this process may set it.
    bool startLoop(bool isUrgent);

    /// Stops the loop. A derived destructor calls it first.
    void stopLoop();

    ///@{
    /// Like the loop's operations; end() cancels these tasks, timers and watches.
    template <class Callable>
    void post(Callable callable) {
        _loop.postItem(makeTask(std::move(callable)), false, false);
    }
    template <class Callable>
    long addTimer(unsigned int ms, bool repeat, Callable callable) {
        return _loop.addTimer(makeTask(std::move(callable)), ms, repeat);
    }
    template <class Callable>
    long watch(const NIVUR::Socket& socket, NIVUR::RunLoop::Readiness readiness,
               Callable callable) {
        return _loop.addWatch(socket.descriptor(), readiness, makeTask(std::move(callable)));
    }
    ///@}

    /// Takes over the connection to the peer and handles its messages. Call it once.
    void connect(std::unique_ptr<ControlChannel> channel);
    bool isConnected() const { return _channel != nullptr && _channel->isOpen(); }

    /// The connection. REQUIRES: connect() was called.
    ControlChannel& channel() { return *_channel; }

    /// Sends a message to the peer, unless the transfer has ended.
    void send(const NIVUR::Dictionary& text);

    /// Handles a message from the peer; false if it is not expected now.
    virtual bool handle(const std::string& type, const NIVUR::Dictionary& text) = 0;

    /// Ends the transfer because of the peer; `reason` says what it did.
    virtual void onLost(const std::string& reason);

    /// Ends the transfer: sends an error to the peer, cancels timers and watches, and waits briefly
    /// for the peer to close the connection, unless the peer ended the transfer itself.
    void end(const std::string& error);
    bool hasEnded() const { return _ended; }

    /// Notes that the peer's message was its last: end() then sends nothing, and does not wait.
    void skipFarewell() { _peerHadLastWord = true; }

    /// Called once when the transfer ends. No datagrams may be sent from then on.
    virtual void onEnd() {}

    /// Notes that the transfer has made progress.
    void progress();

    /// Called once a second while connected, unless resting: ends a transfer that has made no
    /// progress for 10 s.
    virtual void checkProgress();

    /// While resting, this end expects nothing from the peer and does not wake up to check.
    void setResting(bool resting);

    NIVUR::RunLoop _loop;
    NIVUR::EventCenter& _events;

  private:
    template <class Callable>
    NIVUR::Runnable* makeTask(Callable callable) {
        return NIVUR::makeRunnable(std::move(callable), this);
    }

    void onText(const NIVUR::Dictionary& text) final;
    void onFault(const std::string& reason) final;
    void onClosed() final;
    void leave();

    const std::string _peerRole;
    std::unique_ptr<ControlChannel> _channel;
    uint64_t _progressMs = 0;
    long _progressTimer = 0;  // 0 while resting
    bool _ended = false;
    bool _peerHadLastWord = false;
    std::string _error;
    NIVUR::Semaphore _done;
};

}  // namespace mirror

#endif
