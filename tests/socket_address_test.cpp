#include <gtest/gtest.h>
#include <net/if.h>
#include <nivur/socket_address.h>
#include <sys/un.h>

#include <unordered_set>

namespace NIVUR {
namespace {

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
        EXPECT_EQ(again, address);
        EXPECT_EQ(address.isIPv6(), text[0] == '[');
        EXPECT_NE(address, SocketAddress(ip, 81));
        different.insert({address, again});
    }
    EXPECT_EQ(different.size(), std::size(rows) - 1);
    EXPECT_EQ(SocketAddress("fe80::1%lo", 0).scopeId(), if_nametoindex("lo"));
    const SocketAddress one("::1", 1);
    EXPECT_LT(one, SocketAddress("::2", 1));
    EXPECT_FALSE(one < one);
    const sockaddr_un path{AF_UNIX, "/"};
    EXPECT_FALSE(SocketAddress::fromPlatform(&path, sizeof(path)).isValid());
    EXPECT_FALSE(SocketAddress::fromPlatform(one.data(), 27).isValid());
    for (const std::string& ip :
         {std::string(), std::string("localhost"), std::string("127.1"), std::string("127.0.0.1 "),
          std::string("127.0.0.1%lo"), std::string("::1%"), std::string("::1%none"),
          std::string("::x%lo"), std::string("::1%1x"), std::string("::1%4294967296"),
          std::string("127.0.0.1\0", 10), std::string(100, ':'), "::1%" + std::string(100, 'l')}) {
        const SocketAddress none(ip, 80);
        EXPECT_FALSE(none.isValid()) << ip;
        EXPECT_EQ(none, SocketAddress()) << ip;
        EXPECT_EQ(none.port(), 0) << ip;
        EXPECT_EQ(none.ip() + none.toString(), "") << ip;
    }
}

}  // namespace
}  // namespace NIVUR
