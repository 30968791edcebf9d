#include "lobby.h"

#include <nivur/log.h>
#include <nivur/system_util.h>
#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "texts.h"

using NIVUR::ClientSocket;
using NIVUR::Dictionary;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr size_t kMaxClients = 64;
constexpr unsigned int kCheckMs = 500;
constexpr uint64_t kOfferMs = 3000;
constexpr rlim_t kReserved = 18;  // descriptors for the process and a transfer

size_t maxClients() {
    rlimit limit{};
    const bool isScarce =
        ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < kMaxClients + kReserved;
    return isScarce ? static_cast<size_t>(std::max(limit.rlim_cur, kReserved + 1) - kReserved)
                    : kMaxClients;
}

}  // namespace

/// A client in the lobby. It is removed from the list some time after its channel was closed or
/// taken over, because the channel itself makes the calls in which that happens.
class Lobby::Client final : public ControlChannel::Handler {
  public:
    Client(Lobby& lobby, std::unique_ptr<ClientSocket> socket)
        : _lobby(lobby),
          _channel(std::make_unique<ControlChannel>(std::move(socket), lobby._loop, *this)) {}

    bool isHere() const { return _channel != nullptr && _channel->isOpen(); }
    bool isLate() const { return SystemUtil::getCPUTime() - _sinceMs > kOfferMs; }

    void turnAway(const std::string& reason) {
        if (isHere()) {
            _lobby.turnAway(*_channel, reason);
        }
    }

    void close() {
        if (isHere()) {
            _channel->close();
        }
    }

  private:
    void onText(const Dictionary& text) override {
        if (!_lobby.judge(_channel, text)) {
            turnAway("sent a text that does not belong here: " + printable(typeOf(text)));
        }
    }

    void onFault(const std::string& reason) override { turnAway(reason); }
    void onClosed() override { _lobby.turnAway(*_channel, "closed the connection"); }

    Lobby& _lobby;
    std::unique_ptr<ControlChannel> _channel;
    const uint64_t _sinceMs = SystemUtil::getCPUTime();
};

Lobby::Lobby(NIVUR::RunLoop& loop, const Key& key, Owner& owner)
    : _loop(loop), _key(key), _owner(owner) {}

Lobby::~Lobby() {
    close();
}

void Lobby::add(std::unique_ptr<ClientSocket> socket) {
    removeClosed();
    if (_clients.size() >= maxClients()) {
        makeRoom();
    }
    _clients.emplace_back(*this, std::move(socket));
    if (_check == 0) {
        _check = _loop.addTimer(NIVUR::makeRunnable([this] { check(); }, this), kCheckMs, true);
    }
}

void Lobby::makeRoom() {
    removeClosed();
    if (!_clients.empty()) {
        _clients.front().turnAway("has offered nothing, and others came");
        _clients.pop_front();
    }
}

void Lobby::refuseAll(const std::string& reason) {
    _refusal = reason;
}

void Lobby::close() {
    _loop.cancelTasksForObject(this);
    _check = 0;
    for (Client& client : _clients) {
        client.close();
    }
}

/// The first message is the client's `hello`, and the second an offer, whose encryption proves the
/// key. Returns false if the message is not expected.
bool Lobby::judge(std::unique_ptr<ControlChannel>& channel, const Dictionary& text) {
    const std::string type = typeOf(text);
    if (!_refusal.empty()) {
        channel->send(makeRefusal(_refusal));
        channel->close();
        ++_turnedAway;
        return true;
    }
    if (channel->keys()) {
        return type == "offer" && _owner.onOffer(channel, text);
    }
    if (type != "hello") {
        return false;
    }
    channel->greet();
    return channel->agree(text, _key, false);
}

void Lobby::turnAway(ControlChannel& channel, const std::string& reason) {
    NIVUR::Log::log("mirror", NIVUR::LOG_WARN, "turned %s away, since it %s",
                    channel.peer().c_str(), reason.c_str());
    channel.send(makeRefusal("the sender " + reason));
    channel.close();
    ++_turnedAway;
}

void Lobby::removeClosed() {
    _clients.remove_if([](const Client& client) { return !client.isHere(); });
}

void Lobby::check() {
    for (Client& client : _clients) {
        if (client.isLate()) {
            client.turnAway("has offered nothing");
        }
    }
    removeClosed();
    if (_clients.empty()) {
        _loop.stopTimer(std::exchange(_check, 0));
    }
}

}  // namespace mirror
