#ifndef MIRROR_CONTROL_CHANNEL_H
#define MIRROR_CONTROL_CHANNEL_H

#include <nivur/client_socket.h>
#include <nivur/dictionary.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "secrets.h"

namespace mirror {

/// A connection that carries JSON messages, one per line, and detects a dead peer. After the key
/// agreement, lines are encrypted and cannot be reordered. It never blocks. All its operations are
/// called on its loop's thread, or while the loop does not run.
class ControlChannel : public NIVUR::NoCopyable {
  public:
    /// Receives the channel's messages and errors. In any call it may close the channel or set
    /// another handler, but must not delete the channel.
    class Handler {
      public:
        virtual void onText(const NIVUR::Dictionary& text) = 0;

        /// The peer violated the protocol; `reason` is such as "sent a text that is too long". No
        /// message follows, but the connection stays open.
        virtual void onFault(const std::string& reason) = 0;

        /// The peer has closed the connection, or it failed. The channel is closed; no call
        /// follows.
        virtual void onClosed() = 0;

      protected:
        ~Handler() = default;
    };

    /// Starts reading. The loop and the handler must outlive the channel.
    ControlChannel(std::unique_ptr<NIVUR::ClientSocket> socket, NIVUR::RunLoop& loop,
                   Handler& handler);
    ~ControlChannel();

    /// From now on calls another handler.
    void setHandler(Handler& handler) { _handler = &handler; }

    /// Sends this end's public key in a `hello`.
    void greet();

    /// Completes the key agreement with the peer's `hello`. REQUIRES: greet() was called. From then
    /// on all messages are encrypted, except that each end may send an unencrypted `refuse` until
    /// the peer has proved that it holds the keys. False if `hello` has no valid public key.
    bool agree(const NIVUR::Dictionary& hello, const Key& shared, bool isSender);

    /// The session's keys; nullopt before agree().
    const std::optional<SessionKeys>& keys() const { return _keys; }

    /// Whether a message has arrived that was encrypted with the session's keys.
    bool isProved() const { return _keys && _opened > 0; }

    /// Sends a message, unless the channel is closed. Queues what the socket cannot take now.
    void send(const NIVUR::Dictionary& text);

    /// While resting, no `alive` is sent or expected, so that an idle end does not wake up. The
    /// receiver rests from its `accept`, the sender once it may send chunks. TCP keep-alive still
    /// detects that the peer's host is gone.
    void setResting(bool resting);

    /// Closes the connection. The handler is not called any more.
    void close();
    bool isOpen() const { return _socket->descriptor() != -1; }

    /// The peer's address, even after the channel was closed.
    const std::string& peer() const { return _peer; }

  private:
    void receive();
    bool takeLine();
    std::optional<NIVUR::Dictionary> read(const std::string& line);
    std::string seal(const std::string& line);
    std::optional<std::string> open(const std::string& line) const;
    void flush();
    void keepAlive();
    void fail(const std::string& reason);

    const std::unique_ptr<NIVUR::ClientSocket> _socket;
    const std::string _peer;
    NIVUR::RunLoop& _loop;
    Handler* _handler;
    std::optional<KeyAgreement> _agreement;  // from greet() to agree()
    std::optional<SessionKeys> _keys;
    uint64_t _sealed = 0;  // the numbers of encrypted messages sent and received
    uint64_t _opened = 0;
    std::string _received;
    std::string _unsent;
    long _writable = 0;  // the watch while something is unsent
    uint64_t _heardMs = 0;
    long _aliveTimer = 0;  // 0 while resting
    bool _failed = false;
};

}  // namespace mirror

#endif
