#include <fcntl.h>

#include <algorithm>
#include <thread>

#include "support/socket_fixture.h"

namespace NIVUR {
namespace {

using ClientSocketTest = SocketTest;

TEST_F(ClientSocketTest, TellsTheOutcomesOfConnectionsApart) {
    LogCapture capture;
    for (const std::string& local : families()) {
        const SocketAddress anyPort(local, 0);
        ServerSocket listener;
        ClientSocket client, accepted;
        createAll(anyPort, listener, client);
        ASSERT_TRUE(listener.listen(5));
        EXPECT_EQ(listener.setBlocking(false), 0);
        EXPECT_EQ(client.setBlocking(false), 0);
        EXPECT_EQ(listener.accept(accepted), kWouldBlock);
        EXPECT_EQ(client.connect(SocketAddress()), failed(EINVAL));
        EXPECT_EQ(client.finishConnect(), failed(ENOTCONN));
        EXPECT_EQ(connectWithin(client, listener.localAddress()), done());
        EXPECT_EQ(client.finishConnect(), done());
        EXPECT_TRUE(waitFor(listener, POLLIN));

        EXPECT_EQ(listener.accept(accepted), done());
        EXPECT_EQ(accepted.connect(anyPort), failed(EISCONN));
        expectPeer(client, local, listener.port());
        expectPeer(accepted, local, client.port());
        EXPECT_EQ(accepted.peerAddress(), client.localAddress());

        EXPECT_EQ(client.receive(data, 1), kWouldBlock);
        EXPECT_EQ(accepted.send("hello", 5), done(5));
        EXPECT_TRUE(waitFor(client, POLLIN));
        EXPECT_EQ(client.receive(data, 0), done());
        EXPECT_EQ(client.receive(data, 9), done(5));
        IoResult result;
        while ((result = client.send(data, sizeof(data))))
            EXPECT_GT(result.count, 0U);
        EXPECT_EQ(result, kWouldBlock);

        // On another thread, before or after the call blocks.
        std::thread blocked([&] {
            EXPECT_EQ(client.setBlocking(true), 0);
            EXPECT_EQ(client.receive(data, 1), kClosed);
        });
        client.shutdown();
        blocked.join();
        EXPECT_EQ(client.receive(data, 0), done());
        EXPECT_EQ(client.send(data, 1), kClosed);
    }
    EXPECT_EQ(capture.take(), Lines{});
}

TEST_F(ClientSocketTest, IsRefusedWhereNobodyListens) {
    LogCapture capture;
    for (const std::string& local : families()) {
        ServerSocket listener;
        ClientSocket client, accepted;
        createAll(SocketAddress(local, 0), listener, client);
        ASSERT_TRUE(listener.listen(5));
        const SocketAddress gone = listener.localAddress();
        listener.close();
        EXPECT_EQ(listener.accept(accepted), failed(EBADF));
        ASSERT_EQ(client.setBlocking(false), 0);
        EXPECT_EQ(connectWithin(client, gone), failed(ECONNREFUSED));
        expectPeer(client, "", 0);
    }
    EXPECT_EQ(capture.take(), Lines{});
}

TEST_F(ClientSocketTest, WaitsForAListenerThatHasNoRoom) {
    ServerSocket listener;
    createAll(kAnyPort, listener);
    ASSERT_TRUE(listener.listen(1));
    ClientSocket clients[9];
    for (ClientSocket& client : clients) {
        createAll(kAnyPort, client);
        ASSERT_EQ(client.setBlocking(false), 0);
        if (!connectWithin(client, listener.localAddress(), 50)) break;
    }
    const auto waiting = std::find_if(std::begin(clients), std::end(clients), [](const auto& each) {
        return each.remotePort() == 0 && each.descriptor() != -1;
    });
    ASSERT_NE(waiting, std::end(clients));
    EXPECT_EQ(waiting->finishConnect(), kWouldBlock);
    EXPECT_EQ(waiting->connect(listener.localAddress()), kWouldBlock);
    expectPeer(*waiting, "", 0);
    EXPECT_FALSE(waiting->peerAddress().isValid());
}

TEST_F(ClientSocketTest, RefusesInEveryStateOfAConnection) {
    Connection connection, ended, broken, full;
    const int descriptor = connection.client.descriptor();
    const ClientSocket portless(fcntl(descriptor, F_DUPFD_CLOEXEC, 0), kLocal, 0);
    ClientSocket nameless(fcntl(descriptor, F_DUPFD_CLOEXEC, 0), "", 9);
    ClientSocket partly(portless), fresh;
    createAll(kAnyPort, fresh);
    ended.accepted.reset();
    broken.reset();
    EXPECT_EQ(broken.client.select(1000), 0);
    EXPECT_FALSE(broken.client.recv(data, length));
    ASSERT_EQ(full.client.setBlocking(false), 0);
    const auto fullRefused = [&] {  // once the kernel has moved all that fits to the other side
        do {
            sent = 77;
        } while (full.client.send(data, sizeof(data), &sent));
        return true;
    };
    const auto endedRefused = [&] {
        const bool refused = !ended.client.recv(data, length);
        EXPECT_EQ(std::exchange(length, 77), 0U);
        return refused;
    };
    const std::string unconnected = "5 CHECK_CLIENT_CONNECT failed because socket is not connected";
    expectRefused({
        {fresh, [&] { return !fresh.send(nullptr, 5, nullptr); }, unconnected},
        {fresh, [&] { return !fresh.recv(nullptr, length); }, unconnected},
        {partly, [&] { return !partly.send(nullptr, 5, nullptr); }, unconnected},
        {nameless, [&] { return !nameless.connect(kLocal, 9); },
         "4 connect failed, socket already connected to ip=, port=9"},
        {fresh, [&] { return !fresh.connect("::1", 9); }, "5 invalid address: ip=::1, port=9"},
        {fresh, [&] { return !fresh.connect(kLocal, 9); },
         "5 connect() failed: socket=FD, remoteIP=127.0.0.1, remotePort=9, err=111"},
        {full.client, fullRefused, "1 send data failed: socket=FD, err=11"},
        {ended.client, endedRefused, "2 socket closed when recv(): socket=FD"},
        {broken.client, [&] { return !broken.client.send(data, 5, &sent); },
         "1 send data failed: socket=FD, err=32"},
    });
    expectPeer(fresh, "", 0);
}

TEST_F(ClientSocketTest, RefusalsLeaveItConnected) {
    Connection connection;
    ClientSocket& client = connection.client;
    ASSERT_EQ(client.setBlocking(false), 0);
    expectRefused({
        {client, [&] { return !client.connect(kLocal, 9); },
         "4 connect failed, socket already connected to ip=127.0.0.1, port=" +
             std::to_string(connection.listener.port())},
        {client, [&] { return !client.recv(data, length); },
         "2 recv data failed: socket=FD, err=11"},
    });
    EXPECT_EQ(client.setBufLength(5000), 0);
    EXPECT_EQ(client.setReuse(true), 0);
    EXPECT_TRUE(client.send(data, 0, &sent));
    EXPECT_EQ(sent, 0U);
    EXPECT_EQ(client.shutdown(), 0);
    EXPECT_TRUE(client.recv(data, length = 0));
    EXPECT_EQ(length, 0U);
    length = 77;
    EXPECT_FALSE(client.recv(data, length));
    EXPECT_EQ(length, 0U);
    EXPECT_FALSE(client.isDeprecated());
    expectPeer(client, kLocal, connection.listener.port());
    client.close();
    expectPeer(client, "", 0);
    EXPECT_TRUE(client.create(kLocal, 0));
    EXPECT_TRUE(client.isDeprecated());
}

TEST_F(ClientSocketTest, NamesBothEndsAndCopiesAreEndsOfTheirOwn) {
    const ptrdiff_t descriptors = openDescriptors();
    for (const std::string& local : families()) {
        Connection connection(local);
        ClientSocket& client = connection.client;
        const ClientSocket& accepted = *connection.accepted;
        EXPECT_EQ(client.address(), local);
        expectPeer(accepted, local, client.port());
        expectPeer(client, local, connection.listener.port());

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
        EXPECT_TRUE(assigned.send("hello", 5, &sent));
        EXPECT_EQ(sent, 5U);
        EXPECT_TRUE(accepted.recv(data, length));
        EXPECT_EQ(std::string(data, length), "hello");
        expectFlags({&assigned, &accepted});
    }
    const ClientSocket gone(-1, kLocal, 9);
    ClientSocket copy;
    copy = gone;
    expectPeer(copy, "", 0);
    EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
}  // namespace NIVUR
