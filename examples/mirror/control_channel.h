#ifndef MIRROR_CONTROL_CHANNEL_H
#define MIRROR_CONTROL_CHANNEL_H

#include <nivur/client_socket.h>
#include <nivur/dictionary.h>
#include <nivur/mutex.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>
#include <nivur/semaphore.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace mirror {

/// A connection that carries JSON texts, a line each, and keeps itself alive. Its own loop reads;
/// what arrives is posted to the loop of its owner, so that a slow disk or a long task there is
/// never mistaken for a lost peer.
class ControlChannel : public NIVUR::NoCopyable {
  public:
    /// Who is told, on the owner's loop.
    class Handler {
      public:
        virtual void onText(const NIVUR::Dictionary& text) = 0;

        /// What the peer did that ended the connection, such as "closed the connection". It is the
        /// last call.
        virtual void onLost(const std::string& deed) = 0;

      protected:
        ~Handler() = default;
    };

    /// Begins to read. The loops and the handler must outlive the channel.
    ControlChannel(std::unique_ptr<NIVUR::ClientSocket> socket, NIVUR::RunLoop& loop,
                   NIVUR::RunLoop& owner, Handler& handler);

    /// Closes the connection, and nothing that arrived reaches the handler any more. Not on the
    /// channel's loop.
    ~ControlChannel();

    /// Sends a text, without waiting. Any thread.
    void send(const NIVUR::Dictionary& text);

    /// Waits until the peer has closed the connection, though not for long, so that it reads what
    /// was sent last.
    void waitForClose();

    /// The peer's address.
    std::string peer() const { return _socket->remoteAddress(); }

  private:
    void poll();
    void keepAlive();
    bool receive();
    bool takeLine();
    void flush() NIVUR_REQUIRES(_mutex);
    void lose(const std::string& deed);
    template <class Callable>
    void tellOwner(Callable callable);

    const std::unique_ptr<NIVUR::ClientSocket> _socket;
    NIVUR::RunLoop& _loop;
    NIVUR::RunLoop& _owner;
    Handler& _handler;
    NIVUR::Semaphore _closed;
    std::atomic<int> _undelivered{0};

    NIVUR::Mutex _mutex;
    std::string _unsent NIVUR_GUARDED_BY(_mutex);

    // On the channel's loop alone.
    std::string _received;
    uint64_t _heardMs;
    bool _lost = false;
};

}  // namespace mirror

#endif
