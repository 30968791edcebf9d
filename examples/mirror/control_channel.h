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

/// A connection that carries JSON texts, a line each, and keeps itself alive. Once it is protected,
/// lines are encrypted and their order cannot be changed. It never blocks. Everything happens on
/// its loop's thread, or while the loop does not run.
class ControlChannel : public NIVUR::NoCopyable {
  public:
    /// Receives what happens. It may close the channel or replace itself in any call, but must not
    /// delete the channel.
    class Handler {
      public:
        virtual void onText(const NIVUR::Dictionary& text) = 0;

        /// The peer did what it must not, such as "sent a text that is too long". No text follows,
        /// but the connection stays open.
        virtual void onFault(const std::string& reason) = 0;

        /// The peer has closed the connection, and so has the channel. It is the last call.
        virtual void onClosed() = 0;

      protected:
        ~Handler() = default;
    };

    /// Begins to read. The loop and the handler must outlive the channel.
    ControlChannel(std::unique_ptr<NIVUR::ClientSocket> socket, NIVUR::RunLoop& loop,
                   Handler& handler);
    ~ControlChannel();

    /// Delivers everything that follows to another handler.
    void setHandler(Handler& handler) { _handler = &handler; }

    /// Sends this end's part of the key agreement.
    void greet();

    /// Takes the peer's part; greet() must have been called. All texts are encrypted from then on,
    /// with one exception: until the peer has proved that it holds the keys, its `refuse` may come
    /// unencrypted. False when the text holds no valid part.
    bool agree(const NIVUR::Dictionary& hello, const Key& shared, bool isSender);

    /// The keys of the session, once they are agreed.
    const std::optional<SessionKeys>& keys() const { return _keys; }

    /// Whether a text has come that only the holder of the keys can have written.
    bool isProved() const { return _keys && _opened > 0; }

    /// Sends a text, unless the channel is closed: what the connection does not take now, later.
    void send(const NIVUR::Dictionary& text);

    /// While it rests, no sign of life is sent or expected, so that an idle end does not wake. Both
    /// ends rest at the same time. That the peer's machine is still there, the system checks.
    void setResting(bool resting);

    /// Closes the connection: the handler is not called any more.
    void close();
    bool isOpen() const { return _socket->descriptor() != -1; }

    /// The peer's address, also once the channel is closed.
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
    uint64_t _sealed = 0;  // texts that were sent encrypted, and that came so
    uint64_t _opened = 0;
    std::string _received;
    std::string _unsent;
    long _writable = 0;  // the watch while something is unsent
    uint64_t _heardMs = 0;
    long _aliveTimer = 0;  // unless it rests
    bool _failed = false;
};

}  // namespace mirror

#endif
