#include <fcntl.h>
#include <gtest/gtest.h>
#include <nivur/nivur.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include "support/log_capture.h"

namespace NIVUR {
namespace {

const char* const kLocal = "127.0.0.1";

char data[100000];
unsigned int length, sent;
std::string ip;
uint16_t port;

ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

struct Connection {
    explicit Connection(const std::string& local = kLocal) {
        EXPECT_TRUE(listener.create(local, 0) && listener.listen(5) && client.create(local, 0));
        EXPECT_TRUE(client.connect(local, listener.port()) && listener.select(1000) == 0);
        accepted.reset(listener.accept());
    }
    void reset() {  // resets the connection
        const linger abort{1, 0};
        setsockopt(accepted->descriptor(), SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
        accepted.reset();
    }
    ServerSocket listener;
    ClientSocket client;
    std::unique_ptr<ClientSocket> accepted;
};

struct Refusal {
    Socket& socket;
    std::function<bool()> isRefused;
    std::string line;  // "" for none; FD is the socket's descriptor
};

// Returns the error number in the log line of a refusal, or -1.
int errorOf(const std::string& line) {
    const std::pair<const char*, int> numbers[] = {
        {"err", static_cast<int>(std::strtol(&line[line.rfind('=') + 1], nullptr, 10))},
        {"not created", EBADF},
        {"not connected", ENOTCONN},
        {"already connected", EISCONN},
        {"already created", EEXIST},
        {"invalid", EINVAL},
        {"closed", 0}};
    for (const auto& [words, number] : numbers)
        if (line.find(words) < line.size()) return number;
    return -1;
}

// Runs with the log on, whose sink changes errno, and with the log off. Outputs are 77, or empty,
// before and, if unchanged, after.
void expectRefused(const std::vector<Refusal>& refusals) {
    for (const Refusal& row : refusals) {
        SCOPED_TRACE(&row - refusals.data());
        std::string line = row.line;
        const size_t place = line.find("FD");
        if (place < line.size()) line.replace(place, 2, std::to_string(row.socket.descriptor()));
        const ptrdiff_t descriptors = openDescriptors();
        const auto expectRefusal = [&] {
            length = sent = port = 77;
            errno = ENOTTY;
            EXPECT_TRUE(row.isRefused());
            EXPECT_TRUE(errorOf(line) == -1 || Socket::getError() == errorOf(line));
            EXPECT_TRUE(length == 77 && sent == 77 && port == 77 && ip.empty());
        };
        LogCapture capture;
        expectRefusal();
        EXPECT_EQ(capture.take(), line.empty() ? Lines{} : Lines{line});
        row.socket.setLogEnabled(false);
        expectRefusal();
        EXPECT_EQ(capture.take(), Lines{});
        row.socket.setLogEnabled(true);
        EXPECT_EQ(openDescriptors(), descriptors);
    }
}

TEST(Socket, RefusesWhenNotCreatedBeforeItLooksAtArguments) {
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

TEST(Socket, RefusesToBeCreatedTwiceOrWithWhatCannotBeBound) {
    UDPSocket udp, taken;
    ASSERT_TRUE(taken.create(kLocal, 0));
    expectRefused({
        {taken, [&] { return !taken.create("::1", 5) && taken.address() == kLocal; },
         "4 socket is already created: ip=127.0.0.1, port=" + std::to_string(taken.port())},
        {udp, [&] { return !udp.create("", 5); }, ""},
        {udp, [&] { return !udp.create("127.1", 5); },  // the resolver accepts it
         "5 invalid socket address: ip=127.1, port=5"},
        {udp, [&] { return !udp.create(kLocal, taken.port()); }, "5 socket bind failed, err=98"},
    });
}

TEST(Socket, RefusesInEveryStateOfATcpConnectionAndLeavesItThere) {
    Connection connection, ended, broken, full;
    ClientSocket& client = connection.client;
    ClientSocket fresh;
    ServerSocket deaf, file;
    const ClientSocket portless(fcntl(client.descriptor(), F_DUPFD_CLOEXEC, 0), kLocal, 0);
    ClientSocket nameless(fcntl(client.descriptor(), F_DUPFD_CLOEXEC, 0), "", 9);
    ClientSocket partly(portless);
    ASSERT_TRUE(fresh.create(kLocal, 0) && deaf.create(kLocal, 0) && file.create(kLocal, 0));
    ASSERT_NE(dup2(open("/dev/null", O_RDONLY), file.descriptor()), -1);
    ended.accepted.reset();
    broken.reset();
    EXPECT_TRUE(broken.client.select(1000) == 0 && !broken.client.recv(data, length));
    ASSERT_EQ(client.setBlocking(false) + full.client.setBlocking(false), 0);
    const auto fullRefused = [&] {  // once the kernel has moved all that fits to the other side
        do {
            sent = 77;
        } while (full.client.send(data, sizeof(data), &sent));
        return true;
    };
    const std::string unconnected = "5 CHECK_CLIENT_CONNECT failed because socket is not connected";
    expectRefused({
        {fresh, [&] { return !fresh.send(nullptr, 5, nullptr); }, unconnected},
        {fresh, [&] { return !fresh.recv(nullptr, length); }, unconnected},
        {partly, [&] { return !partly.send(nullptr, 5, nullptr); }, unconnected},
        {nameless, [&] { return !nameless.connect(kLocal, 9); },
         "4 connect failed, socket already connected to ip=, port=9"},
        {fresh, [&] { return !fresh.connect("::1", 9); }, "5 invalid address: ip=::1, port=9"},
        {fresh, [&] { return !fresh.connect(kLocal, 9) && fresh.remoteAddress().empty(); },
         "5 connect() failed: socket=FD, remoteIP=127.0.0.1, remotePort=9, err=111"},
        {deaf, [&] { return deaf.accept() == nullptr; },
         "5 accept() failed: socket=FD, ip=127.0.0.1, port=" + std::to_string(deaf.port()) +
             ", err=22"},
        {file, [&] { return !file.listen(1); }, "5 listen failed: socket=FD, ip=, port=0, err=88"},
        {file, [&] { return file.setBufLength(4096) == -1; }, ""},
        {client, [&] { return !client.connect(kLocal, 9); },
         "4 connect failed, socket already connected to ip=127.0.0.1, port=" +
             std::to_string(connection.listener.port())},
        {client, [&] { return !client.recv(data, length); },
         "2 recv data failed: socket=FD, err=11"},
        {full.client, fullRefused, "1 send data failed: socket=FD, err=11"},
        {ended.client,
         [&] { return !ended.client.recv(data, length) && std::exchange(length, 77) == 0; },
         "2 socket closed when recv(): socket=FD"},
        {broken.client, [&] { return !broken.client.send(data, 5, &sent); },
         "1 send data failed: socket=FD, err=32"},
    });
    LogCapture capture;
    EXPECT_EQ(client.setSockCOS(6) + client.setBufLength(5000) + client.setReuse(true), 0);
    EXPECT_EQ(capture.take(), Lines{"5 setSockCOS cos=6"});
    EXPECT_TRUE(client.send(data, 0, &sent) && sent == 0 && client.shutdown() == 0);
    EXPECT_TRUE(client.recv(data, length = 0) && length == 0);
    length = 77;
    EXPECT_TRUE(!client.recv(data, length) && length == 0 && !client.isDeprecated());
    EXPECT_EQ(client.remoteAddress(), kLocal);
    client.close();
    EXPECT_TRUE(client.remoteAddress().empty() && client.remotePort() == 0);
    EXPECT_TRUE(client.create(kLocal, 0) && client.isDeprecated());
}

TEST(Socket, RefusesDatagramsThatCannotGoOrAreEmpty) {
    UDPSocket udp, receiver;
    ASSERT_TRUE(udp.create(kLocal, 0) && receiver.create("0.0.0.0", 0));
    ASSERT_EQ(receiver.setBlocking(false), 0);
    const auto emptyRefused = [&] {
        return udp.sendto(kLocal, receiver.port(), data, 0, nullptr) &&
               receiver.select(1000) == 0 && !receiver.recvfrom(ip, port, data, length);
    };
    const char* const everyone = "127.255.255.255";
    std::ostringstream line;
    line << "5 sendto() failed: socket=FD, data=" << static_cast<void*>(data)
         << ", len=5, local_ip=127.0.0.1, local_port=" << udp.port() << ", to_ip=" << everyone
         << ", to_port=9, err=13";
    const auto sendtoRefused = [&] {
        return !udp.sendto(everyone, 9, data, 5, &sent) && std::exchange(sent, 77) == 0;
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
    EXPECT_TRUE(receiver.select(1000) == 0 && receiver.recvfrom(ip, port, data, length));
    EXPECT_TRUE(length == 2 && receiver.select(0) == 1);  // the rest of the datagram is lost
    ip.clear();
}

TEST(Socket, BothFamiliesNameBothEndsAndCopiesAreEndsOfTheirOwn) {
    const ptrdiff_t descriptors = openDescriptors();
    for (const std::string local : {"127.0.0.1", "::1"}) {
        if (local == "::1" && std::ifstream("/proc/net/if_inet6").peek() == EOF)
            GTEST_SKIP() << "this host has no IPv6";
        Connection connection(local);
        ClientSocket& client = connection.client;
        const ClientSocket& accepted = *connection.accepted;
        EXPECT_TRUE(client.address() == local && accepted.remoteAddress() == local);
        EXPECT_EQ(accepted.remotePort(), client.port());
        EXPECT_EQ(client.remotePort(), connection.listener.port());

        ClientSocket copy(client), assigned;
        ASSERT_TRUE(assigned.create(local, 0));
        EXPECT_TRUE(assigned.connect(local, connection.listener.port()));
        assigned = copy;
        assigned = *&assigned;
        assigned = std::move(*&assigned);
        copy.close();
        client.close();
        connection.listener.close();
        length = sizeof(data);
        EXPECT_TRUE(assigned.send("hello", 5, &sent) && accepted.recv(data, length) && sent == 5);
        EXPECT_EQ(std::string(data, length), "hello");

        UDPSocket udp;
        ASSERT_TRUE(udp.create(local, 0));
        UDPSocket sender;
        sender = udp;
        sender = *&sender;
        sender = std::move(*&sender);
        length = sizeof(data);
        EXPECT_TRUE(sender.sendto(local, udp.port(), "datagram", 8, &sent) && sent == 8);
        EXPECT_TRUE(udp.recvfrom(ip, port, data, length) && ip == local && port == udp.port());
        EXPECT_EQ(std::string(data, length), "datagram");
        for (const int descriptor : {sender.descriptor(), udp.descriptor(), assigned.descriptor(),
                                     accepted.descriptor()}) {
            EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
        }
    }
    ip.clear();
    const ClientSocket gone(-1, kLocal, 9);
    ClientSocket copy;
    copy = gone;
    EXPECT_TRUE(copy.remoteAddress().empty() && copy.remotePort() == 0);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(SocketWait, AnswersAsSelectDoesForHundredsAndAboveItsLimit) {
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

TEST(SocketDeathTest, BreachesAbortWithTheirExpressionAndPlace) {
    Connection connection;
    const ClientSocket& client = connection.client;
    std::vector<UDPSocket> many(1024);
    std::set<Socket*> all;
    for (UDPSocket& socket : many)
        all.insert(&socket);
    UDPSocket& udp = many.front();
    ASSERT_TRUE(udp.create(kLocal, 0));
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
