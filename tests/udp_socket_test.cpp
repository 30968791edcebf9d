#include <net/if.h>
#include <netinet/in.h>

#include <sstream>

#include "support/socket_fixture.h"

namespace NIVUR {
namespace {

using UDPSocketTest = SocketTest;

TEST_F(UDPSocketTest, TellsTheOutcomesOfDatagramsApart) {
    LogCapture capture;
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        UDPSocket udp, peer, none;
        createAll(anyPort, udp, peer);
        ASSERT_EQ(peer.setBlocking(false), 0);
        const SocketAddress address = peer.localAddress();
        const SocketAddress other(local == "::1" ? "127.0.0.1" : "::1", 9);
        EXPECT_EQ(address, SocketAddress(local, peer.port()));
        EXPECT_FALSE(udp.peerAddress().isValid());
        const auto fresh = [](const SocketAddress& at) { return UDPSocket().create(at); };
        const std::pair<std::function<IoResult()>, IoResult> rows[] = {
            {[&] { return none.send(data, 1); }, failed(EBADF)},
            {[&] { return none.recvfrom(sender, data, 1); }, failed(EBADF)},
            {[&] { return none.sendDatagrams(address, data, 2, 1); }, failed(EBADF)},
            {[&] { return udp.create(anyPort); }, failed(EEXIST)},
            {[&] { return fresh({}); }, failed(EINVAL)},
            {[&] { return fresh(address); }, failed(EADDRINUSE)},
            {[&] { return udp.send(data, 1); }, failed(EDESTADDRREQ)},
            {[&] { return udp.sendto({}, data, 1); }, failed(EINVAL)},
            {[&] { return udp.sendDatagrams({}, data, 2, 1); }, failed(EINVAL)},
            {[&] { return udp.sendto(address, data, 65536); }, failed(EMSGSIZE)},
            {[&] { return peer.recvfrom(sender, data, 1); }, kWouldBlock},
            {[&] { return udp.sendto(address, data, 0); }, done()},
            {[&] { return udp.sendto(address, "hello", 5); }, done(5)},
            {[&] { return peer.recvfrom(sender, data, 9); }, done()},
            {[&] { return peer.recvfrom(sender, data, 9); }, done(5)},
            {[&] { return udp.sendto(sender, "hello", 5); }, done(5)},  // to itself
            {[&] { return udp.receive(data, 5); }, done(5)},
            {[&] { return udp.connect(address); }, done()},
            {[&] { return udp.connect({}); }, failed(EINVAL)},
            {[&] { return udp.send("hello", 5); }, done(5)},
            {[&] { return peer.connect(udp.localAddress()); }, done()},
            {[&] { return peer.receive(data, 2); }, failed(EMSGSIZE)},
            {[&] { return peer.receive(data, 2); }, kWouldBlock},
            {[&] { return peer.close(), udp.send(data, 1); }, done(1)},
            {[&] { return udp.receive(data, 1); }, failed(ECONNREFUSED)},
        };
        for (const auto& [operation, result] : rows)
            EXPECT_EQ(operation(), result) << local << " row " << &operation - &rows[0].first;
        EXPECT_EQ(udp.peerAddress(), address);
        EXPECT_EQ(std::string(data, 5), "hello");
        EXPECT_EQ(udp.sendto(other, data, 1).status, IoResult::FAILED);
    }
    EXPECT_EQ(capture.take(), Lines{});
}

TEST_F(UDPSocketTest, RefusesDatagramsThatCannotGoOrAreEmpty) {
    UDPSocket udp, receiver;
    ASSERT_TRUE(udp.create(kLocal, 0));
    ASSERT_TRUE(receiver.create("0.0.0.0", 0));
    ASSERT_EQ(receiver.setBlocking(false), 0);
    const auto emptyRefused = [&] {
        EXPECT_TRUE(udp.sendto(kLocal, receiver.port(), data, 0, nullptr));
        EXPECT_EQ(receiver.select(1000), 0);
        return !receiver.recvfrom(ip, port, data, length);
    };
    const char* const everyone = "127.255.255.255";
    std::ostringstream line;
    line << "5 sendto() failed: socket=FD, data=" << static_cast<void*>(data)
         << ", len=5, local_ip=127.0.0.1, local_port=" << udp.port() << ", to_ip=" << everyone
         << ", to_port=9, err=13";
    const auto sendtoRefused = [&] {
        const bool refused = !udp.sendto(everyone, 9, data, 5, &sent);
        EXPECT_EQ(std::exchange(sent, 77), 0U);
        return refused;
    };
    expectRefused({
        {udp, [&] { return !udp.sendto("::1", 9, data, 5, &sent); },
         "5 invalid address: ip=::1, port=9"},
        {udp, sendtoRefused, line.str()},
        {receiver, [&] { return !receiver.recvfrom(ip, port, data, length); },
         "5 recvfrom() failed: socket=FD, err=11"},
        {receiver, emptyRefused, "2 socket closed gracefully: socket=FD"},
    });
    EXPECT_EQ(udp.setBroadcast(true), 0);
    EXPECT_TRUE(udp.sendto(everyone, receiver.port(), data, 5, nullptr));
    length = 2;
    EXPECT_EQ(receiver.select(1000), 0);
    EXPECT_TRUE(receiver.recvfrom(ip, port, data, length));
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(receiver.select(0), 1);  // the rest of the datagram is lost
}

TEST_F(UDPSocketTest, CopiesAreEndsOfTheirOwn) {
    const ptrdiff_t descriptors = openDescriptors();
    for (const std::string& local : families()) {
        UDPSocket udp, copy;
        ASSERT_TRUE(udp.create(local, 0));
        copy = udp;
        copy = *&copy;
        copy = std::move(*&copy);
        length = sizeof(data);
        EXPECT_TRUE(copy.sendto(local, udp.port(), "datagram", 8, &sent));
        EXPECT_EQ(sent, 8U);
        EXPECT_TRUE(udp.recvfrom(ip, port, data, length));
        EXPECT_EQ(std::tuple(ip, port), std::tuple(local, udp.port()));
        EXPECT_EQ(std::string(data, length), "datagram");
        expectFlags({&udp, &copy});
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(UDPSocketTest, ReceivesWhatGoesToItsGroup) {
    const unsigned int lo = if_nametoindex("lo");
    for (const std::string& local : families()) {
        const bool isIPv6 = local == "::1";
        const SocketAddress group(isIPv6 ? "ff02::4321%lo" : "224.0.0.77", 0);
        UDPSocket one, other, source;
        ASSERT_EQ(one.create(SocketAddress(isIPv6 ? "::" : "0.0.0.0", 0), true), done());
        ASSERT_EQ(other.create(one.localAddress(), true), done());
        ASSERT_EQ(source.create(SocketAddress(isIPv6 ? "::" : local, 0)), done());
        ASSERT_EQ(one.joinGroup(group, isIPv6 ? 0 : lo), 0);
        ASSERT_EQ(other.joinGroup(group, lo), 0);
        const ip_mreqn loopback{{}, {}, static_cast<int>(lo)};
        setsockopt(source.descriptor(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof(loopback));
        const SocketAddress to(group.ip(), one.port());
        const IoResult result = source.sendto(to, "x", 1);
        const bool lacksRoute = isIPv6 && result == failed(ENETUNREACH);
        EXPECT_EQ(result, lacksRoute ? failed(ENETUNREACH) : done(1));
        for (UDPSocket* const member : {&one, &other}) {
            if (lacksRoute) continue;
            ASSERT_TRUE(waitFor(*member, POLLIN));
            EXPECT_EQ(member->recvfrom(sender, data, 9), done(1));
        }
        EXPECT_EQ(one.leaveGroup(group, lo), 0);
        EXPECT_EQ(one.leaveGroup(group, lo), -1);
        EXPECT_EQ(Socket::getError(), EADDRNOTAVAIL);
        EXPECT_EQ(one.joinGroup(SocketAddress(local, 0)), -1);
        EXPECT_EQ(one.joinGroup({}), -1);
    }
}

TEST_F(UDPSocketTest, SendsAndReceivesManyDatagramsAtOnce) {
    std::string all(100 * 400 + 7, ' ');
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<char>(i * 7 + i / 400);
    for (const std::string& local : families()) {
        for (const bool coalescing : {false, true}) {
            UDPSocket udp, peer;
            createAll(SocketAddress(local, 0), udp, peer);
            ASSERT_EQ(peer.setBufLength(1000000), 0);
            ASSERT_EQ(peer.setBlocking(false), 0);
            if (peer.setCoalescing(coalescing) != 0) GTEST_SKIP() << "not with this kernel";
            const int on = 1;  // another control message beside the one that the library reads
            setsockopt(peer.descriptor(), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof(on));
            const SocketAddress to = peer.localAddress();
            EXPECT_EQ(udp.sendDatagrams(to, all.data(), all.size(), 400), done(all.size()));
            std::string received;
            size_t calls = 0, size = 0;
            while (received.size() < all.size()) {
                const IoResult result = peer.receiveDatagrams(sender, data, sizeof(data), size);
                ASSERT_TRUE(result) << received.size();
                ASSERT_EQ(sender, udp.localAddress()) << received.size();
                EXPECT_EQ(size, result.count > 400 || received.size() + 7 < all.size() ? 400U : 7U);
                received.append(data, result.count);
                ++calls;
            }
            EXPECT_EQ(received, all);
            EXPECT_GE(calls, coalescing ? 1U : 101U);
            EXPECT_LE(calls, coalescing ? 9U : 101U);
            EXPECT_EQ(peer.receiveDatagrams(sender, data, 1, size), kWouldBlock);
            EXPECT_EQ(udp.sendDatagrams(to, all.data(), 800, 400), done(800));
            EXPECT_EQ(peer.receiveDatagrams(sender, data, 399, size), failed(EMSGSIZE));
            EXPECT_EQ(udp.sendDatagrams(to, data, 65536, 65536), failed(EMSGSIZE));
            EXPECT_EQ(udp.sendDatagrams(to, data, 0, 1), done());
        }
    }
}

}  // namespace
}  // namespace NIVUR
