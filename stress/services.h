#ifndef NIVUR_STRESS_SERVICES_H
#define NIVUR_STRESS_SERVICES_H

#include <nivur/nivur.h>
#include <sys/socket.h>

#include <array>

#include "basics.h"

// What the services beside the loops are for, done once.

namespace NIVUR {

inline bool connectionsCarry(const std::string& bytes) {
    ServerSocket server;
    ClientSocket client, accepted;
    std::array<char, 100> room{};
    const linger reset{1, 0};  // leaves no port behind that waits for stragglers
    if (!server.create(SocketAddress("127.0.0.1", 0)) || !server.listen(1)) return false;
    if (!client.create(SocketAddress("127.0.0.1", 0))) return false;
    setsockopt(client.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    if (!client.connect(server.localAddress()) || !server.accept(accepted)) return false;
    return client.send(bytes.data(), bytes.size()) && accepted.select(1000) == 0 &&
           std::string(room.data(), accepted.receive(room.data(), room.size()).count) == bytes;
}

inline bool datagramsCarry(const std::string& bytes) {
    UDPSocket sender, receiver;
    SocketAddress from;
    std::array<char, 100> room{};
    for (UDPSocket* const each : {&sender, &receiver})
        if (!each->create(SocketAddress("::1", 0))) return false;
    return sender.sendto(receiver.localAddress(), bytes.data(), bytes.size()) &&
           receiver.select(1000) == 0 &&
           receiver.recvfrom(from, room.data(), room.size()).count == bytes.size() &&
           from == sender.localAddress();
}

inline bool textsCarry(const std::string& bytes) {
    Dictionary member, record;
    member.setString("bytes", bytes);
    member.setDecimalArray("decimals", {0.5L, 1e300L});
    record.setObjectArray("members", std::vector<Dictionary>(bytes.size(), member));
    const Dictionary read = Serialization::deserialize(Serialization::serialize(record));
    const std::vector<Dictionary> members = read.getObjectArray("members");
    return members.size() == bytes.size() && members.back().getString("bytes") == bytes;
}

inline bool addressesAreListed() {
    std::vector<InterfaceAddress> list;
    return getInterfaceAddresses(list) && !list.empty() && !SystemUtil::getLocalIPList().empty();
}

inline bool threadsEnd() {
    Thread thread;
    int runs = 0;
    for (int times = 0; times < 2; ++times) {
        if (!thread.start(makeRunnable([&] { ++runs; }), "own")) return false;
        thread.waitForStop();
    }
    return runs == 2 && !thread.isStarted();
}

inline void useServices(Random& random) {
    const std::string bytes(1 + random.below(100), 'b');
    check(connectionsCarry(bytes) && datagramsCarry(bytes), "what is sent arrives");
    check(textsCarry(bytes), "what is written can be read");
    check(addressesAreListed(), "the host has addresses");
    check(threadsEnd(), "a thread runs what it is given, again and again");
}

}  // namespace NIVUR

#endif
