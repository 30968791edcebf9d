#ifndef MIRROR_ENDPOINT_H
#define MIRROR_ENDPOINT_H

#include <nivur/client_socket.h>
#include <nivur/dictionary.h>
#include <nivur/event_center.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>
#include <nivur/semaphore.h>

#include <cstdint>
#include <memory>
#include <string>

#include "control_channel.h"

namespace mirror {

/// What both ends of a transfer have in common: a loop that does the work, a control channel with a
/// loop of its own, and one way to end. Everything but the public operations happens on the loop.
class Endpoint : public ControlChannel::Handler, public NIVUR::NoCopyable {
  public:
    virtual ~Endpoint() = default;

    /// Waits until the transfer has ended and closes the connection; an error message, or "" when
    /// the file has arrived. Call it once.
    std::string wait();

    /// Ends the transfer with an error, unless it has ended. Any thread.
    void interrupt();

    /// Logs the state of all loops. Any thread.
    virtual void dump();

  protected:
    /// An end with that name, whose peer is called `peerRole`.
    Endpoint(const std::string& name, std::string peerRole, NIVUR::EventCenter& events);

    /// Starts the loops: the last thing that starting an end does.
    void startLoops();

    /// Stops the loops, unless wait() has: the first thing that the end's destruction does.
    void stopLoops();

    /// Takes up a connection to the peer.
    void connect(std::unique_ptr<NIVUR::ClientSocket> socket);
    void disconnect() { _channel.reset(); }
    bool isConnected() const { return _channel != nullptr; }
    std::string peer() const { return _channel->peer(); }

    void send(const NIVUR::Dictionary& text) { _channel->send(text); }

    /// Handles a text from the peer; false when it does not belong here.
    virtual bool handle(const std::string& type, const NIVUR::Dictionary& text) = 0;

    /// Ends the transfer, after which nothing is done any more. The peer is told of an error, and
    /// closes the connection, unless it was the one who had the last word.
    void end(const std::string& error);
    bool hasEnded() const { return _ended; }

    /// Says that the transfer has come further.
    void progress();

    void onText(const NIVUR::Dictionary& text) final;
    void onLost(const std::string& deed) override;

    NIVUR::RunLoop _loop;
    NIVUR::EventCenter& _events;

  private:
    void checkProgress();

    const std::string _peerRole;
    NIVUR::RunLoop _controlLoop;
    std::unique_ptr<ControlChannel> _channel;
    uint64_t _progressMs = 0;
    bool _ended = false;
    bool _peerHadLastWord = false;
    std::string _error;
    NIVUR::Semaphore _done;
};

}  // namespace mirror

#endif
