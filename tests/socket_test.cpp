#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>

#include "support/socket_fixture.h"

namespace NIVUR {
namespace {

int option(const Socket& socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof(value);
    return getsockopt(socket.descriptor(), level, name, &value, &size) == 0 ? value : -1;
}

TEST_F(SocketTest, RefusesWhenNotCreatedBeforeItLooksAtArguments) {
    ClientSocket client;
    ServerSocket server;
    UDPSocket udp;
    const auto line = [](const std::string& check) {
        return "5 CHECK_" + check + " failed because socket is not created";
    };
    expectRefused({
        {client, [&] { return client.address().empty(); }, line("SOCKET")},
        {client, [&] { return client.port() == 0; }, line("SOCKET")},
        {server, [&] { return server.select() == -1; }, line("SOCKET")},
        {udp, [&] { return udp.setBufLength(4096) == 0; }, line("SOCKET")},
        {udp, [&] { return udp.setSockCOS(1) == 0; }, line("SOCKET")},
        {client, [&] { return !client.connect("", 0); }, line("CLIENT_SOCKET")},
        {client, [&] { return !client.send(nullptr, 1, nullptr); }, line("CLIENT_SOCKET")},
        {client, [&] { return !client.recv(nullptr, length); }, line("CLIENT_SOCKET")},
        {server, [&] { return !server.listen(0); }, line("SERVER_SOCKET")},
        {server, [&] { return server.accept() == nullptr; }, line("SERVER_SOCKET")},
        {udp, [&] { return !udp.sendto("", 0, nullptr, 1, nullptr); }, line("UDP_SOCKET")},
        {udp, [&] { return !udp.recvfrom(ip, port, nullptr, length); }, line("UDP_SOCKET")},
        {client, [&] { return client.setBroadcast(true) == -1; }, ""},
    });
}

TEST_F(SocketTest, RefusesToBeCreatedTwiceOrWithWhatCannotBeBound) {
    UDPSocket udp, taken;
    createAll(kAnyPort, taken);
    expectRefused({
        {taken, [&] { return !taken.create("::1", 5); },
         "4 socket is already created: ip=127.0.0.1, port=" + std::to_string(taken.port())},
        {udp, [&] { return !udp.create("", 5); }, ""},
        {udp, [&] { return !udp.create("127.1", 5); },  // the resolver accepts it
         "5 invalid socket address: ip=127.1, port=5"},
        {udp, [&] { return !udp.create(kLocal, taken.port()); }, "5 socket bind failed, err=98"},
    });
    EXPECT_EQ(taken.address(), kLocal);
    EXPECT_FALSE(UDPSocket().create(kLocal, taken.port()));
    EXPECT_EQ(Socket::getError(), EADDRINUSE);  // the destructor has nothing to close
}

TEST_F(SocketTest, MovesKeepDescriptorsWhereNoneIsLeft) {
    static_assert(std::is_nothrow_move_constructible_v<UDPSocket> &&
                  std::is_nothrow_move_assignable_v<ServerSocket> &&
                  std::is_nothrow_move_constructible_v<ClientSocket> &&
                  std::is_nothrow_move_assignable_v<ClientSocket>);
    ServerSocket listener;
    ClientSocket client, target;
    std::vector<UDPSocket> sockets(1);
    createAll(kAnyPort, listener, client, target, sockets[0]);
    ASSERT_TRUE(listener.listen(1));
    ASSERT_EQ(client.connect(listener.localAddress()), done());
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
    EXPECT_EQ(client.descriptor(), -1);
    EXPECT_EQ(target.descriptor(), -1);
    expectPeer(target, "", 0);
    expectPeer(last, kLocal, listener.port());
    LogCapture capture;
    EXPECT_EQ(last.shutdown(), 0);
    EXPECT_FALSE(last.recv(data, length = 1));
    EXPECT_EQ(capture.take(), Lines{});  // the log switch was moved, too
}

TEST_F(SocketTest, SetsOptionsOfBothFamilies) {
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        const size_t family = anyPort.isIPv6() ? 1 : 0;
        const int levels[] = {IPPROTO_IP, IPPROTO_IPV6};
        UDPSocket udp;
        ClientSocket client;
        createAll(anyPort, udp, client);
        LogCapture capture;
        EXPECT_EQ(udp.setTrafficClass(46), 0);
        EXPECT_EQ(udp.setHopLimit(7), 0);
        EXPECT_EQ(udp.setMulticastHopLimit(0), 0);
        EXPECT_EQ(udp.setBufLength(20000), 0);
        const int rows[][3] = {{IP_TOS, IPV6_TCLASS, 46 << 2},
                               {IP_TTL, IPV6_UNICAST_HOPS, 7},
                               {IP_MULTICAST_TTL, IPV6_MULTICAST_HOPS, 0}};
        for (const auto& row : rows)
            EXPECT_EQ(option(udp, levels[family], row[family]), row[2]) << row[0];
        EXPECT_EQ(udp.setHopLimit(0), -1);
        EXPECT_EQ(udp.setHopLimit(256), -1);
        for (const bool on : {true, false}) {
            EXPECT_EQ(udp.setBroadcast(on), 0);
            EXPECT_EQ(client.setReuse(on), 0);
            EXPECT_EQ(client.setNoDelay(on), 0);
            EXPECT_EQ(option(udp, SOL_SOCKET, SO_BROADCAST), on);
            EXPECT_EQ(option(client, SOL_SOCKET, SO_REUSEADDR), on);
            EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), on);
        }
        EXPECT_EQ(udp.sendBufferSize(), 40000);
        EXPECT_EQ(udp.receiveBufferSize(), 40000);
        EXPECT_EQ(client.setSockCOS(6), 0);
        EXPECT_EQ(capture.take(), Lines{"5 setSockCOS cos=6"});
    }
    EXPECT_EQ(UDPSocket().sendBufferSize(), -1);
    EXPECT_EQ(ClientSocket().setNoDelay(true), -1);
}

TEST_F(SocketTest, AnswersAsSelectDoesForHundredsAndAboveItsLimit) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = 2000;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    Connection quiet, urgent, talking, ended, broken;
    std::vector<Connection> many(100);
    const auto high = [](const Connection& connection) {
        const int descriptor = fcntl(connection.client.descriptor(), F_DUPFD_CLOEXEC, 1200);
        return ClientSocket(descriptor, kLocal, 9);
    };
    ClientSocket sockets[] = {high(quiet), high(urgent), high(talking), high(ended), high(broken)};
    ClientSocket none;
    ASSERT_GE(sockets[0].descriptor(), 1200);
    ASSERT_TRUE(talking.accepted->send("x", 1, nullptr));
    ASSERT_EQ(::send(urgent.accepted->descriptor(), "x", 1, MSG_OOB), 1);
    ended.accepted.reset();
    broken.reset();
    std::set<Socket*> all{&none}, readable;
    const uint64_t begin = SystemUtil::getCPUTime();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(sockets[i].select(i < 2 ? 30 : UINT_MAX), i < 2 ? 1 : 0) << i;
        all.insert(&sockets[i]);
        if (i >= 2) readable.insert(&sockets[i]);
    }
    EXPECT_EQ(sockets[2].select(), 0);
    for (Connection& connection : many) {
        const bool talks = all.size() % 3 == 0;
        EXPECT_TRUE((talks ? connection.client : *connection.accepted).send("x", 1, nullptr));
        all.insert({&connection.client, connection.accepted.get()});
        readable.insert(talks ? connection.accepted.get() : &connection.client);
    }
    EXPECT_EQ(Socket::waitMultipleSocket(all, UINT_MAX), readable);
    EXPECT_TRUE(Socket::waitMultipleSocket({&none, &sockets[0]}, 30).empty());
    EXPECT_TRUE(Socket::waitMultipleSocket({}, 1010).empty());
    EXPECT_GE(SystemUtil::getCPUTime() - begin, 1100U - 1);  // both times are cut to milliseconds

    ::close(sockets[0].descriptor());
    expectRefused({{sockets[0], [&] { return sockets[0].select(UINT_MAX) == -1; },
                    "2 select breaks, socket=FD, errno=9"}});
    EXPECT_TRUE(Socket::waitMultipleSocket(all, UINT_MAX).empty());
}

using SocketDeathTest = SocketTest;

TEST_F(SocketDeathTest, BreachesAbortWithTheirExpressionAndPlace) {
    Connection connection;
    const ClientSocket& client = connection.client;
    std::vector<UDPSocket> many(1024);
    std::set<Socket*> all;
    for (UDPSocket& socket : many)
        all.insert(&socket);
    UDPSocket& udp = many.front();
    createAll(kAnyPort, udp);
    length = 0;
    const std::pair<std::function<void()>, const char*> breaches[] = {
        {[&] { Socket::waitMultipleSocket(all, 0); },
         "socket.cpp:.*waitMultipleSocket\\(.*`sockets.size\\(\\) < FD_SETSIZE' "},
        {[&] { client.send(nullptr, 1, &sent); }, "client_socket.cpp:.*::send\\(.*`data' "},
        {[&] { client.recv(nullptr, length); }, "client_socket.cpp:.*::recv\\(.*`data' "},
        {[&] { connection.listener.listen(0); }, "server_socket.cpp:.*::listen\\(.*`count > 0' "},
        {[&] { udp.sendto(ip, 9, nullptr, 1, &sent); }, "udp_socket.cpp:.*::sendto\\(.*`data' "},
        {[&] { udp.recvfrom(ip, port, nullptr, sent); }, "udp_socket.cpp:.*::recvfrom\\(.*`data' "},
        {[&] { udp.recvfrom(ip, port, data, length); }, "udp_socket.cpp:.*m\\(.*`length > 0' "},
    };
    for (const auto& [breach, report] : breaches)
        EXPECT_DEATH(breach(), std::string("^[^/]*src/") + report);
    all.erase(all.begin());
    EXPECT_TRUE(Socket::waitMultipleSocket(all, 0).empty());
}

}  // namespace
}  // namespace NIVUR
