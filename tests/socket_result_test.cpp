#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <nivur/nivur.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/un.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <thread>
#include <unordered_set>

#include "support/io_results.h"
#include "support/log_capture.h"

namespace NIVUR {

namespace {

char data[65536];
SocketAddress sender;

std::vector<std::string> families() {
    const bool hasIPv6 = std::ifstream("/proc/net/if_inet6").peek() != EOF;
    return hasIPv6 ? std::vector<std::string>{"127.0.0.1", "::1"}
                   : std::vector<std::string>{"127.0.0.1"};
}

bool waitFor(const Socket& socket, short events, int timeout = 5000) {
    pollfd entry{socket.descriptor(), events, 0};
    return poll(&entry, 1, timeout) == 1;
}

IoResult connectWithin(ClientSocket& client, const SocketAddress& to, int timeout = 5000) {
    const IoResult begun = client.connect(to);
    return begun == kWouldBlock && waitFor(client, POLLOUT, timeout) ? client.finishConnect()
                                                                     : begun;
}

TEST(SocketAddress, IsWhatItsTextSaysOrNone) {
    const std::string lo = "lo", index = std::to_string(if_nametoindex("lo"));
    const std::pair<std::string, std::string> rows[] = {
        {"127.0.0.1", "127.0.0.1:80"},
        {"::ffff:1.2.3.4", "[::ffff:1.2.3.4]:80"},
        {"FE80:0::1", "[fe80::1]:80"},
        {"fe80::1%lo", "[fe80::1%lo]:80"},
        {"fe80::1%" + index, "[fe80::1%lo]:80"},
        {"::1%0", "[::1]:80"},
        {"ff02::1%4294967295", "[ff02::1%4294967295]:80"},
    };
    std::unordered_set<SocketAddress> different;
    for (const auto& [ip, text] : rows) {
        const SocketAddress address(ip, 80), again(address.ip(), address.port());
        EXPECT_EQ(address.toString(), text);
        EXPECT_EQ(address, SocketAddress::fromPlatform(address.data(), address.size()));
        EXPECT_TRUE(again == address && address.isIPv6() == (text[0] == '['));
        EXPECT_NE(address, SocketAddress(ip, 81));
        different.insert({address, again});
    }
    EXPECT_EQ(different.size(), std::size(rows) - 1);
    EXPECT_EQ(SocketAddress("fe80::1%lo", 0).scopeId(), if_nametoindex("lo"));
    const SocketAddress one("::1", 1);
    EXPECT_TRUE(one < SocketAddress("::2", 1) && !(one < one));
    const sockaddr_un path{AF_UNIX, "/"};
    EXPECT_FALSE(SocketAddress::fromPlatform(&path, sizeof(path)).isValid());
    EXPECT_FALSE(SocketAddress::fromPlatform(SocketAddress("::1", 1).data(), 27).isValid());
    for (const std::string& ip :
         {std::string(), std::string("localhost"), std::string("127.1"), std::string("127.0.0.1 "),
          std::string("127.0.0.1%lo"), std::string("::1%"), std::string("::1%none"),
          std::string("::x%lo"), std::string("::1%1x"), std::string("::1%4294967296"),
          std::string("127.0.0.1\0", 10), std::string(100, ':'), "::1%" + std::string(100, 'l')}) {
        const SocketAddress none(ip, 80);
        EXPECT_TRUE(!none.isValid() && none == SocketAddress() && none.port() == 0) << ip;
        EXPECT_EQ(none.ip() + none.toString(), "");
    }
}

TEST(SocketResults, TellTheOutcomesOfDatagramsApart) {
    LogCapture capture;
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        UDPSocket udp, peer, none;
        ASSERT_TRUE(udp.create(anyPort) && peer.create(anyPort) && peer.setBlocking(false) == 0);
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
        EXPECT_TRUE(udp.peerAddress() == address && std::string(data, 5) == "hello");
        EXPECT_EQ(udp.sendto(other, data, 1).status, IoResult::FAILED);
    }
    EXPECT_EQ(capture.take(), Lines{});
}

TEST(SocketResults, TellTheOutcomesOfConnectionsApart) {
    LogCapture capture;
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        ServerSocket listener;
        ClientSocket client, accepted, refused;
        ASSERT_TRUE(listener.create(anyPort) && listener.listen(5));
        ASSERT_TRUE(client.create(anyPort) && refused.create(anyPort));
        EXPECT_EQ(listener.setBlocking(false) + client.setBlocking(false), 0);
        EXPECT_EQ(listener.accept(accepted), kWouldBlock);
        EXPECT_EQ(client.connect(SocketAddress()), failed(EINVAL));
        EXPECT_EQ(client.finishConnect(), failed(ENOTCONN));
        EXPECT_EQ(connectWithin(client, listener.localAddress()), done());
        EXPECT_TRUE(client.finishConnect() == done() && waitFor(listener, POLLIN));

        EXPECT_EQ(listener.accept(accepted), done());
        EXPECT_EQ(accepted.connect(anyPort), failed(EISCONN));
        EXPECT_TRUE(client.remoteAddress() == local && client.remotePort() == listener.port());
        EXPECT_TRUE(accepted.remoteAddress() == local && accepted.remotePort() == client.port());
        EXPECT_EQ(accepted.peerAddress(), client.localAddress());

        EXPECT_EQ(client.receive(data, 1), kWouldBlock);
        EXPECT_TRUE(accepted.send("hello", 5) == done(5) && waitFor(client, POLLIN));
        EXPECT_EQ(client.receive(data, 0), done());
        EXPECT_EQ(client.receive(data, 9), done(5));
        IoResult sent;
        while ((sent = client.send(data, sizeof(data))))
            EXPECT_GT(sent.count, 0U);
        EXPECT_EQ(sent, kWouldBlock);

        // On another thread, before or after the call blocks.
        IoResult ended;
        std::thread blocked(
            [&] { ended = client.setBlocking(true) == 0 ? client.receive(data, 1) : sent; });
        client.shutdown();
        blocked.join();
        EXPECT_EQ(ended, kClosed);
        EXPECT_EQ(client.receive(data, 0), done());
        EXPECT_EQ(client.send(data, 1), kClosed);

        const SocketAddress gone = listener.localAddress();
        listener.close();
        EXPECT_EQ(listener.accept(accepted), failed(EBADF));
        ASSERT_EQ(refused.setBlocking(false), 0);
        EXPECT_EQ(connectWithin(refused, gone), failed(ECONNREFUSED));
        EXPECT_TRUE(refused.remoteAddress().empty());
    }
    EXPECT_EQ(capture.take(), Lines{});
}

TEST(ClientSocket, WaitsForAListenerThatHasNoRoom) {
    const SocketAddress anyPort("127.0.0.1", 0);
    ServerSocket listener;
    ASSERT_TRUE(listener.create(anyPort) && listener.listen(1));
    ClientSocket clients[9];
    for (ClientSocket& client : clients) {
        ASSERT_TRUE(client.create(anyPort) && client.setBlocking(false) == 0);
        if (!connectWithin(client, listener.localAddress(), 50)) break;
    }
    const auto waiting = std::find_if(std::begin(clients), std::end(clients), [](const auto& each) {
        return each.remotePort() == 0 && each.descriptor() != -1;
    });
    ASSERT_NE(waiting, std::end(clients));
    EXPECT_EQ(waiting->finishConnect(), kWouldBlock);
    EXPECT_EQ(waiting->connect(listener.localAddress()), kWouldBlock);
    EXPECT_TRUE(waiting->remoteAddress().empty() && !waiting->peerAddress().isValid());
}

TEST(Socket, MovesKeepDescriptorsWhereNoneIsLeft) {
    static_assert(std::is_nothrow_move_constructible_v<UDPSocket> &&
                  std::is_nothrow_move_assignable_v<ServerSocket> &&
                  std::is_nothrow_move_constructible_v<ClientSocket> &&
                  std::is_nothrow_move_assignable_v<ClientSocket>);
    const SocketAddress anyPort("127.0.0.1", 0);
    ServerSocket listener;
    ClientSocket client, target;
    std::vector<UDPSocket> sockets(1);
    ASSERT_TRUE(listener.create(anyPort) && listener.listen(1) && client.create(anyPort) &&
                target.create(anyPort) && client.connect(listener.localAddress()) &&
                sockets[0].create(anyPort));
    const std::pair<int, int> before{sockets[0].descriptor(), client.descriptor()};
    client.setLogEnabled(false);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    sockets.resize(100);
    target = std::move(client);
    ClientSocket last(std::move(target));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(before, std::make_pair(sockets[0].descriptor(), last.descriptor()));
    EXPECT_TRUE(client.descriptor() == -1 && target.descriptor() == -1 && target.remotePort() == 0);
    EXPECT_TRUE(target.remoteAddress().empty() && last.remotePort() == listener.port());
    LogCapture capture;
    unsigned int length = 1;
    EXPECT_TRUE(last.shutdown() == 0 && !last.recv(data, length));
    EXPECT_EQ(capture.take(), Lines{});  // the log switch was moved, too
}

TEST(Socket, BindsAServersPortAgainWhenAskedTo) {
    SocketAddress local("127.0.0.1", 0);
    for (const bool reuse : {true, false}) {
        ServerSocket listener;
        ClientSocket client, accepted;
        ASSERT_TRUE(listener.create(local, true) && listener.listen(1));
        local = listener.localAddress();
        ASSERT_TRUE(client.create(SocketAddress("127.0.0.1", 0)) && client.connect(local));
        ASSERT_TRUE(listener.accept(accepted));
        accepted.close();  // closed first, so its port stays in TIME_WAIT
        EXPECT_EQ(client.receive(data, 1), kClosed);
        client.close();
        listener.close();
        EXPECT_EQ(listener.create(local, reuse), reuse ? done() : failed(EADDRINUSE));
    }
}

int option(const Socket& socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    return getsockopt(socket.descriptor(), level, name, &value, &size) == 0 ? value : -1;
}

TEST(Socket, SetsOptionsOfBothFamilies) {
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        const size_t family = anyPort.isIPv6() ? 1 : 0;
        const int levels[] = {IPPROTO_IP, IPPROTO_IPV6};
        UDPSocket udp;
        ClientSocket client;
        ASSERT_TRUE(udp.create(anyPort) && client.create(anyPort));
        EXPECT_EQ(udp.setTrafficClass(46) + udp.setHopLimit(7) + udp.setMulticastHopLimit(0), 0);
        EXPECT_EQ(udp.setBufLength(20000), 0);
        const int rows[][3] = {{IP_TOS, IPV6_TCLASS, 46 << 2},
                               {IP_TTL, IPV6_UNICAST_HOPS, 7},
                               {IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS, 0}};
        for (const auto& row : rows)
            EXPECT_EQ(option(udp, levels[family], row[family]), row[2]);
        EXPECT_EQ(udp.setHopLimit(0) + udp.setHopLimit(256), -2);
        for (const bool on : {true, false}) {
            EXPECT_EQ(udp.setBroadcast(on) + client.setReuse(on) + client.setNoDelay(on), 0);
            EXPECT_EQ(option(udp, SOL_SOCKET, SO_BROADCAST), on);
            EXPECT_EQ(option(client, SOL_SOCKET, SO_REUSEADDR), on);
            EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), on);
        }
        EXPECT_TRUE(udp.sendBufferSize() == 40000 && udp.receiveBufferSize() == 40000);
    }
    EXPECT_TRUE(UDPSocket().sendBufferSize() == -1 && ClientSocket().setNoDelay(true) == -1);
}

TEST(UDPSocket, ReceivesWhatGoesToItsGroup) {
    const unsigned int lo = if_nametoindex("lo");
    for (const std::string& local : families()) {
        const bool isIPv6 = local == "::1";
        const SocketAddress group(isIPv6 ? "ff02::4321%lo" : "224.0.0.77", 0);
        UDPSocket one, other, source;
        ASSERT_TRUE(one.create(SocketAddress(isIPv6 ? "::" : "0.0.0.0", 0), true));
        ASSERT_TRUE(other.create(one.localAddress(), true));
        ASSERT_TRUE(source.create(SocketAddress(isIPv6 ? "::" : local, 0)));
        ASSERT_EQ(one.joinGroup(group, isIPv6 ? 0 : lo) + other.joinGroup(group, lo), 0);
        const ip_mreqn loopback{{}, {}, static_cast<int>(lo)};
        setsockopt(source.descriptor(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof(loopback));
        const SocketAddress to(group.ip(), one.port());
        const IoResult sent = source.sendto(to, "x", 1);
        EXPECT_TRUE(sent == done(1) ||
                    (isIPv6 && sent == failed(ENETUNREACH)));  // lo lacks a route
        for (UDPSocket* const member : {&one, &other}) {
            if (!sent) continue;
            ASSERT_TRUE(waitFor(*member, POLLIN));
            EXPECT_EQ(member->recvfrom(sender, data, 9), done(1));
        }
        EXPECT_EQ(one.leaveGroup(group, lo), 0);
        EXPECT_TRUE(one.leaveGroup(group, lo) == -1 && Socket::getError() == EADDRNOTAVAIL);
        EXPECT_TRUE(one.joinGroup(SocketAddress(local, 0)) == -1 && one.joinGroup({}) == -1);
    }
}

TEST(UDPSocket, SendsAndReceivesManyDatagramsAtOnce) {
    std::string all(100 * 400 + 7, ' ');
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<char>(i * 7 + i / 400);
    for (const std::string& local : families()) {
        for (const bool coalescing : {false, true}) {
            UDPSocket udp, peer;
            ASSERT_TRUE(udp.create(SocketAddress(local, 0)) &&
                        peer.create(SocketAddress(local, 0)));
            ASSERT_EQ(peer.setBufLength(1000000) + peer.setBlocking(false), 0);
            if (peer.setCoalescing(coalescing) != 0) GTEST_SKIP() << "not with this kernel";
            const int on = 1;  // another control message beside the one that the library reads
            setsockopt(peer.descriptor(), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof(on));
            const SocketAddress to = peer.localAddress();
            EXPECT_EQ(udp.sendDatagrams(to, all.data(), all.size(), 400), done(all.size()));
            std::string received;
            size_t calls = 0, size = 0;
            while (received.size() < all.size()) {
                const IoResult result = peer.receiveDatagrams(sender, data, sizeof(data), size);
                ASSERT_TRUE(result && sender == udp.localAddress()) << received.size();
                EXPECT_EQ(size, result.count > 400 || received.size() + 7 < all.size() ? 400U : 7U);
                received.append(data, result.count);
                ++calls;
            }
            EXPECT_TRUE(received == all && (coalescing ? calls < 10 : calls == 101)) << calls;
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
