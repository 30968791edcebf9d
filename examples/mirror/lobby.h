#ifndef MIRROR_LOBBY_H
#define MIRROR_LOBBY_H

#include <nivur/client_socket.h>
#include <nivur/dictionary.h>
#include <nivur/no_copyable.h>
#include <nivur/run_loop.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "control_channel.h"
#include "secrets.h"

namespace mirror {

/// The clients of a receiver that have not proved yet that they hold the key. It serves many at the
/// same time, so that silent or hostile clients do not keep a sender waiting. Their number and
/// their time are limited. Used on the receiver's loop.
class Lobby : public NIVUR::NoCopyable {
  public:
    class Owner {
      public:
        /// A client has proved the key and sent this offer. The owner takes over the channel, or
        /// returns false and leaves it alone.
        virtual bool onOffer(std::unique_ptr<ControlChannel>& channel,
                             const NIVUR::Dictionary& offer) = 0;

      protected:
        ~Owner() = default;
    };

    /// The loop and the owner must outlive the lobby.
    Lobby(NIVUR::RunLoop& loop, const Key& key, Owner& owner);
    ~Lobby();

    /// Adds a client.
    void add(std::unique_ptr<NIVUR::ClientSocket> socket);

    /// Turns away the oldest client, if there is one.
    void makeRoom();

    /// From now on answers each client's next message with `reason` and turns the client away.
    void refuseAll(const std::string& reason);

    /// Closes all connections. The owner is not called any more.
    void close();

    /// How many clients were turned away.
    uint64_t turnedAway() const { return _turnedAway; }

  private:
    class Client;

    bool judge(std::unique_ptr<ControlChannel>& channel, const NIVUR::Dictionary& text);
    void turnAway(ControlChannel& channel, const std::string& reason);
    void removeClosed();
    void check();

    NIVUR::RunLoop& _loop;
    const Key _key;
    Owner& _owner;
    std::list<Client> _clients;  // the oldest first
    std::string _refusal;        // for all clients, if not ""
    long _check = 0;             // the timer while there are clients
    uint64_t _turnedAway = 0;
};

}  // namespace mirror

#endif
