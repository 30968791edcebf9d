#ifndef NIVUR_STRESS_SERVICES_H
#define NIVUR_STRESS_SERVICES_H

#include <nivur/nivur.h>
#include <sys/socket.h>

#include <array>

#include "basics.h"

namespace NIVUR {

inline void useSockets(const std::string& bytes) {
    const SocketAddress any("127.0.0.1", 0);
    ServerSocket server;
    ClientSocket client, accepted;
    UDPSocket sender, receiver;
    SocketAddress from;
    std::array<char, 100> room{};
    check(server.create(any) && server.listen(1) && client.create(any) && sender.create(any) &&
              receiver.create(any) && client.connect(server.localAddress()) &&
              server.accept(accepted),
          "connections and datagrams are had");
    const linger reset{1, 0};  // leaves no port in TIME_WAIT
    setsockopt(client.descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    check(client.send(bytes.data(), bytes.size()) && accepted.select(1000) == 0 &&
              accepted.receive(room.data(), room.size()).count == bytes.size() &&
              sender.sendto(receiver.localAddress(), bytes.data(), bytes.size()) &&
              receiver.select(1000) == 0 &&
              receiver.recvfrom(from, room.data(), room.size()).count == bytes.size() &&
              from == sender.localAddress(),
          "what is sent arrives");
}

/// Uses each service other than the loops once.
inline void useServices(const std::string& bytes) {
    useSockets(bytes);
    Dictionary member, record;
    member.setString("bytes", bytes);
    record.setObjectArray("members", std::vector<Dictionary>(bytes.size(), member));
    record = Serialization::deserialize(Serialization::serialize(record));
    const std::vector<Dictionary> members = record.getObjectArray("members");
    check(members.size() == bytes.size() && members.back().getString("bytes") == bytes,
          "what is written can be read");
    std::vector<InterfaceAddress> list;
    check(getInterfaceAddresses(list) && !SystemUtil::getLocalIPList().empty(), "there are some");
    Thread thread;
    for (int times = 0; times < 2; ++times) {
        check(thread.start(makeRunnable([] {}), "own"), "a thread starts again and again");
        thread.waitForStop();
    }
}

}  // namespace NIVUR

#endif
