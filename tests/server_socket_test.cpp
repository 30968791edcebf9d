#include <fcntl.h>
#include <unistd.h>

#include "support/socket_fixture.h"

namespace NIVUR {
namespace {

using ServerSocketTest = SocketTest;

TEST_F(ServerSocketTest, BindsAServersPortAgainWhenAskedTo) {
    SocketAddress local = kAnyPort;
    for (const bool reuse : {true, false}) {
        ServerSocket listener;
        ClientSocket client, accepted;
        ASSERT_EQ(listener.create(local, true), done());
        ASSERT_TRUE(listener.listen(1));
        local = listener.localAddress();
        createAll(kAnyPort, client);
        ASSERT_EQ(client.connect(local), done());
        ASSERT_EQ(listener.accept(accepted), done());
        accepted.close();  // closed first, so its port stays in TIME_WAIT
        EXPECT_EQ(client.receive(data, 1), kClosed);
        client.close();
        listener.close();
        EXPECT_EQ(listener.create(local, reuse), reuse ? done() : failed(EADDRINUSE));
    }
}

TEST_F(ServerSocketTest, RefusesToListenOrAcceptInTheWrongState) {
    ServerSocket deaf, file;
    createAll(kAnyPort, deaf, file);
    ASSERT_NE(dup2(open("/dev/null", O_RDONLY), file.descriptor()), -1);
    expectRefused({
        {deaf, [&] { return deaf.accept() == nullptr; },
         "5 accept() failed: socket=FD, ip=127.0.0.1, port=" + std::to_string(deaf.port()) +
             ", err=22"},
        {file, [&] { return !file.listen(1); }, "5 listen failed: socket=FD, ip=, port=0, err=88"},
        {file, [&] { return file.setBufLength(4096) == -1; }, ""},
    });
}

}  // namespace
}  // namespace NIVUR
