#include <gtest/gtest.h>
#include <nivur/nivur.h>

#include <filesystem>
#include <functional>

#include "support/fault_injector.h"
#include "support/io_results.h"

namespace NIVUR {
namespace {

ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

const SocketAddress kAnyPort("127.0.0.1", 0);

struct World {
    World() {
        EXPECT_TRUE(listener.create(kAnyPort) && listener.listen(9) && udp.create(kAnyPort) &&
                    client.create(kAnyPort) && client.connect(listener.localAddress()) &&
                    listener.accept(accepted));
    }
    IoResult connectAndAccept() {
        ClientSocket other, taken;
        IoResult result = other.create(kAnyPort, true);
        if (result) result = other.connect(listener.localAddress());
        return result ? listener.accept(taken) : result;
    }
    IoResult exchange() {  // the datagrams arrive one by one, whichever way they went
        SocketAddress sender;
        char data[8];
        const IoResult sent = udp.sendDatagrams(udp.localAddress(), "aabbc", 5, 2);
        if (!sent) return sent;
        for (const size_t size : {2U, 2U, 1U}) {
            EXPECT_EQ(udp.recvfrom(sender, data, 8), done(size));
        }
        return sent;
    }
    IoResult list() {
        addresses.assign(1, {});
        const IoResult listed = getInterfaceAddresses(addresses);
        EXPECT_EQ(addresses.size(), listed ? listed.count : 1);
        return listed;
    }
    ServerSocket listener;
    UDPSocket udp;
    ClientSocket client, accepted;
    std::vector<InterfaceAddress> addresses;
};

TEST(SocketResults, TellWhichCallOfThePlatformFailed) {
    World w;
    const auto connect = [&] { return w.connectAndAccept(); };
    const auto exchange = [&] { return w.exchange(); };
    const auto list = [&] { return w.list(); };
    const size_t all = w.list().count;
    const auto onLoopback = static_cast<size_t>(std::count_if(
        w.addresses.begin(), w.addresses.end(),
        [](const auto& each) { return each.isLoopback() && !each.address.isIPv6(); }));
    const IoResult withoutLoopback = done(all - onLoopback);  // whose addresses come first
    const std::tuple<const char*, int, int, std::function<IoResult()>, IoResult> rows[] = {
        {"socket", EMFILE, 0, connect, failed(EMFILE)},
        {"setsockopt", ENOPROTOOPT, 0, connect, failed(ENOPROTOOPT)},
        {"bind", EACCES, 0, connect, failed(EACCES)},
        {"connect", EINTR, 0, connect, done()},
        {"connect", ENETUNREACH, 0, connect, failed(ENETUNREACH)},
        {"accept4", EINTR, 0, connect, done()},
        {"accept4", EMFILE, 0, connect, failed(EMFILE)},
        {"getpeername", ENOBUFS, 0, [&] { return w.client.finishConnect(); }, failed(ENOBUFS)},
        {"recvfrom", EINTR, 0, exchange, done(5)},
        {"getsockopt", ENOPROTOOPT, 0, exchange, done(5)},
        {"sendmsg", EINTR, 0, exchange, done(5)},
        {"sendmsg", EIO, 0, exchange, done(5)},
        {"sendmsg", ENOBUFS, 0, exchange, failed(ENOBUFS)},
        {"socket", EMFILE, 0, list, failed(EMFILE)},
        {"socket", ENFILE, 1, list, failed(ENFILE)},
        {"send", ENOBUFS, 0, list, failed(ENOBUFS)},
        {"recv", ENOBUFS, 0, list, failed(ENOBUFS)},
        {"if_indextoname", ENXIO, 0, list, withoutLoopback},
        {"ioctl", ENODEV, 0, list, withoutLoopback},
        {"ioctl", EPERM, 0, list, failed(EPERM)},
    };
    const ptrdiff_t descriptors = openDescriptors();
    for (const auto& [call, error, skipped, operation, result] : rows) {
        SCOPED_TRACE(call + (" " + std::to_string(error)));
        {
            const faults::Call fault(call, error, skipped);
            EXPECT_EQ(operation(), result);
        }
        EXPECT_TRUE(operation());
        EXPECT_EQ(openDescriptors(), descriptors);
    }
}

TEST(SocketResults, LeaveNothingBehindWhenMemoryRunsOut) {
    World w;
    const ptrdiff_t descriptors = openDescriptors();
    const auto all = [&] {
        const IoResult connected = w.connectAndAccept(), again = w.client.finishConnect();
        const IoResult listed = w.list();
        return connected && again && w.exchange() && (listed || listed.error == ENOMEM);
    };
    for (int skipped = 0, before = -1; before != faults::Memory::injected; ++skipped) {
        before = faults::Memory::injected;
        const long blocks = faults::livingBlocks;
        try {
            const faults::Memory fault("memory", ENOMEM, skipped);
            EXPECT_TRUE(all()) << skipped;
        } catch (const std::bad_alloc&) {
        }
        std::vector<InterfaceAddress>().swap(w.addresses);
        EXPECT_TRUE(openDescriptors() == descriptors && faults::livingBlocks <= blocks) << skipped;
        EXPECT_EQ(w.client.remotePort(), w.listener.port());
    }
    EXPECT_TRUE(all());
}

}  // namespace
}  // namespace NIVUR
