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

/// What both ends of a transfer have in common: one loop for sockets, timers and texts, a control
/// channel, and one way to end. Everything but the public operations happens on the loop's thread,
/// or before that has started, so that nothing here needs a lock.
class Endpoint : public ControlChannel::Handler, public NIVUR::NoCopyable {
  public:
    virtual ~Endpoint() = default;

    /// Waits until the transfer has ended and the connection is closed; an error message, or ""
    /// when the file has arrived. Call it once.
    std::string wait();

    /// Ends the transfer with an error, unless it has ended. Any thread.
    void interrupt();

    /// Logs the state of all loops. Any thread.
    virtual void dump();

  protected:
    /// An end with that name, whose peer is called `peerRole`.
    Endpoint(const std::string& name, std::string peerRole, NIVUR::EventCenter& events);

    /// Starts the loop: the last thing that starting an end does. False, and the transfer has
    /// ended, when there is no thread for it. An urgent one goes before other threads if this
    /// process may do that.
    bool startLoop(bool isUrgent);

    /// Stops the loop: what the end's destruction begins with.
    void stopLoop();

    ///@{
    /// As the loop's operations, for what the end of the transfer shall cancel.
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

    /// Takes over the connection to the peer and handles what comes from now on. Call it once.
    void connect(std::unique_ptr<ControlChannel> channel);
    bool isConnected() const { return _channel != nullptr && _channel->isOpen(); }

    /// The connection. REQUIRES: connect() was called.
    ControlChannel& channel() { return *_channel; }

    /// Sends a text to the peer, unless the transfer has ended.
    void send(const NIVUR::Dictionary& text);

    /// Handles a text from the peer; false when it does not belong here.
    virtual bool handle(const std::string& type, const NIVUR::Dictionary& text) = 0;

    /// The peer is no use any more, since it did what `reason` says: ends the transfer.
    virtual void onLost(const std::string& reason);

    /// Ends the transfer: cancels its timers and watches, tells the peer of an error, and waits a
    /// while for it to close the connection, unless it was the one who had the last word.
    void end(const std::string& error);
    bool hasEnded() const { return _ended; }

    /// Called once when the transfer ends: only texts may be sent from then on.
    virtual void onEnd() {}

    /// Says that the transfer has come further.
    void progress();

    /// Called once a second while connected: ends what has come to a standstill.
    virtual void checkProgress();

    /// While it rests, this end expects nothing of the peer and does not wake to look for it.
    void setResting(bool resting);

    /// Gives the peer up when it has not come further for so long.
    void checkStandstill(unsigned int ms);

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
    long _progressTimer = 0;  // unless it rests
    bool _ended = false;
    bool _peerHadLastWord = false;
    std::string _error;
    NIVUR::Semaphore _done;
};

}  // namespace mirror

#endif
