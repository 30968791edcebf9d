#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>  // the platform's: a program that knows no other gets the library's lists
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <nivur/interface_address.h>
#include <nivur/system_util.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/log_capture.h"

// If set, they replace what the kernel sends. Global, because recv() has no argument to pass state.
static Lines* answers = nullptr;

extern "C" ssize_t recv(int socket, void* data, size_t size, int flags) {
    static const auto real = reinterpret_cast<decltype(&recv)>(dlsym(RTLD_NEXT, "recv"));
    if (answers == nullptr) return real(socket, data, size, flags);
    if (answers->empty()) return -1;
    const std::string answer = answers->front();
    answers->erase(answers->begin());
    const size_t copied = answer.copy(static_cast<char*>(data), size);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? answer.size() : copied);
}

namespace NIVUR {
namespace {

std::string text(const sockaddr* address) {
    const void* const bytes = address->sa_data + (address->sa_family == AF_INET6 ? 6 : 2);
    char text[INET6_ADDRSTRLEN];
    return inet_ntop(address->sa_family, bytes, text, sizeof(text));
}

// "NAME ADDRESS MASK FLAGS" of each address, except on point-to-point links, for which the
// platform's list differs.
Lines listed(decltype(&getifaddrs) get = getifaddrs, decltype(&freeifaddrs) release = freeifaddrs) {
    ifaddrs nothing{};
    ifaddrs* list = &nothing;
    if (get(&list) != 0) return {list == &nothing ? "list left alone" : "list is null"};
    Lines lines;
    for (const ifaddrs* record = list; record != nullptr; record = record->ifa_next) {
        const int family = record->ifa_addr != nullptr ? record->ifa_addr->sa_family : AF_UNSPEC;
        const auto* const ipv6 = reinterpret_cast<const sockaddr_in6*>(record->ifa_addr);
        const std::string name(record->ifa_name, std::strcspn(record->ifa_name, ":"));
        if (get == getifaddrs) {
            EXPECT_EQ(record->ifa_dstaddr, nullptr);
            EXPECT_EQ(record->ifa_data, nullptr);
            const uint32_t index = if_nametoindex(name.c_str());
            const uint32_t scope = family == AF_INET6 ? ipv6->sin6_scope_id : index;
            EXPECT_EQ(scope, index);
            EXPECT_NE(family, AF_UNSPEC);
        }
        if ((family == AF_INET || family == AF_INET6) && !(record->ifa_flags & IFF_POINTOPOINT)) {
            lines.push_back(name + " " + text(record->ifa_addr) + " " + text(record->ifa_netmask) +
                            " " + std::to_string(record->ifa_flags & 0xFFFF));
        }
    }
    release(list);
    return lines;
}

template <class Function>
Function* ofThePlatform(const char* name, Function* /*sameType*/) {
    static void* const libc = dlopen("libc.so.6", RTLD_LAZY);
    return reinterpret_cast<Function*>(dlsym(libc, name));
}

Lines listedByThePlatform() {
    return listed(ofThePlatform("getifaddrs", getifaddrs),
                  ofThePlatform("freeifaddrs", freeifaddrs));
}

// "NAME FLAGS ADDRESS", with scope, and " to PEER" on a point-to-point link.
std::string line(const std::string& name, unsigned int flags, const SocketAddress& own,
                 const SocketAddress& peer) {
    return name + " " + std::to_string(flags & 0xFFFF) + " " + own.ip() +
           (peer.isValid() ? " to " + peer.ip() : "");
}

Lines ownList() {
    std::vector<InterfaceAddress> list(1);
    const IoResult result = getInterfaceAddresses(list);
    if (!result) return {"error " + std::to_string(result.error) + (list.size() == 1 ? "" : "!")};
    EXPECT_EQ(result.count, list.size());
    Lines lines;
    for (const InterfaceAddress& each : list) {
        lines.push_back(line(each.name, each.flags, each.address, each.peer) + " /" +
                        std::to_string(each.prefixLength));
        EXPECT_EQ(each.interfaceIndex, if_nametoindex(each.name.c_str()));
        EXPECT_EQ(each.isUp(), (each.flags & IFF_UP) != 0);
        EXPECT_EQ(each.isLoopback(), (each.flags & IFF_LOOPBACK) != 0);
    }
    return lines;
}

// The platform's list in the format of ours, as far as it has the same fields.
Lines ownListByThePlatform() {
    ifaddrs* list = nullptr;
    EXPECT_EQ(ofThePlatform("getifaddrs", getifaddrs)(&list), 0);
    Lines lines;
    for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
        const auto own = SocketAddress::fromPlatform(each->ifa_addr, sizeof(sockaddr_in6));
        const bool linked =
            (each->ifa_flags & IFF_POINTOPOINT) != 0 && each->ifa_dstaddr != nullptr;
        const auto peer =
            SocketAddress::fromPlatform(each->ifa_dstaddr, linked ? sizeof(sockaddr_in6) : 0);
        const std::string name(each->ifa_name, std::strcspn(each->ifa_name, ":"));
        if (own.isValid()) lines.push_back(line(name, each->ifa_flags, own, peer));
    }
    ofThePlatform("freeifaddrs", freeifaddrs)(list);
    return lines;
}

TEST(Interfaces, ThreeHundredAddressesOfAnInterfaceThatIsDownArriveComplete) {
    const pid_t child = fork();
    if (child == 0) {
        // Root needs no user namespace, and the threads of an emulator make it impossible.
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) _exit(77);
        LogCapture capture;
        EXPECT_TRUE(SystemUtil::getLocalIPList().empty());
        EXPECT_EQ(capture.take(), Lines{"2 temp_addr = (nil)"});
        const int any = socket(AF_INET, SOCK_DGRAM, 0);
        for (unsigned int i = 0; i < 300; ++i) {
            ifreq request{};
            std::snprintf(request.ifr_name, IFNAMSIZ, "lo:%u", i);
            const sockaddr_in address{AF_INET, 0, {htonl(0x0A000001 + i)}, {}};
            std::memcpy(&request.ifr_addr, &address, sizeof(address));
            EXPECT_EQ(ioctl(any, SIOCSIFADDR, &request), 0);
        }
        EXPECT_EQ(listed().size(), 300U);
        EXPECT_EQ(listed(), listedByThePlatform());
        EXPECT_EQ(SystemUtil::getLocalIPList().back().ip, "10.0.1.44");
        EXPECT_EQ(ownList().back(), "lo 8 10.0.1.44 /8");
        std::fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no right to a namespace";
    EXPECT_EQ(status, 0);
}

template <class Header>
std::string bytes(const Header& header) {
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

// Messages and attributes whose length fields are `more` bytes too large.
std::string message(int type, const std::string& body = "", int more = 0) {
    const auto length =
        static_cast<uint32_t>(static_cast<int>(sizeof(nlmsghdr) + body.size()) + more);
    return bytes(nlmsghdr{length, uint16_t(type), 0, 0, 0}) + body;
}

std::string attribute(const std::string& payload, int type = IFA_ADDRESS, int more = 0) {
    const auto length =
        static_cast<uint16_t>(static_cast<int>(sizeof(rtattr) + payload.size()) + more);
    const std::string padding((4 - payload.size() % 4) % 4, '\0');
    return bytes(rtattr{length, uint16_t(type)}) + payload + padding;
}

std::string address(int prefix, const std::string& attributes, int family = AF_INET,
                    unsigned int index = 1) {
    const ifaddrmsg header{uint8_t(family), uint8_t(prefix), 0, 0, index};
    return message(RTM_NEWADDR, bytes(header) + attributes);
}

TEST(Interfaces, AreWhatWasReceivedAndNothingElse) {
    const std::string done = message(NLMSG_DONE), error = message(NLMSG_ERROR);
    const std::string a4 = attribute("abcd"), a6 = attribute("abcdefghijklmnop");
    const std::string any = address(8, a4), body = any.substr(sizeof(nlmsghdr));
    const std::string ip4 = "lo 97.98.99.100 ", ip6 = "lo 6162:6364:6566:6768:696a:6b6c:6d6e:6f70 ";
    const std::string one = ip4 + "255.0.0.0 73";
    const std::string ones6 = "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fff";
    const std::pair<Lines, Lines> rows[] = {
        {{address(0, a4) + address(9, a4), address(31, a4) + address(32, a4),
          address(33, a4) + done},
         {ip4 + "0.0.0.0 73", ip4 + "255.128.0.0 73", ip4 + "255.255.255.254 73",
          ip4 + "255.255.255.255 73", ip4 + "255.255.255.255 73"}},
        {{address(127, a6, AF_INET6), address(129, attribute(a6.substr(4) + a6), AF_INET6), done},
         {ip6 + ones6 + "e 73", ip6 + ones6 + "f 73"}},
        {{done + any}, {}},
        {{address(8, attribute("", IFA_LABEL) + attribute("odd", IFA_LABEL) + a4) + done}, {one}},
        {{address(8, attribute("abcd" + a6)) + address(8, attribute("ab")),
          address(8, attribute("wxyz", IFA_LOCAL) + a4) + message(RTM_NEWLINK, a4) +
              address(8, a4, AF_PACKET) + done},
         {one, "lo 97.98.0.0 255.0.0.0 73", one}},
        {{message(RTM_NEWADDR, body, -16), message(RTM_NEWADDR, body, -8),
          message(RTM_NEWADDR, body, -5), address(8, attribute("abcd", IFA_ADDRESS, -5)),
          address(8, attribute("abcd", IFA_ADDRESS, 1)) + any + done},
         {one}},
        {{any + any, any.substr(0, 31), any.substr(0, 15), message(RTM_NEWADDR, body, -17),
          message(RTM_NEWADDR, body, -33), address(8, attribute("a").substr(0, 5)), done},
         {one, one, "lo 97.0.0.0 255.0.0.0 73"}},
        {{any + error + done}, {"list left alone"}},
        {{any, "", done}, {"list left alone"}},
        {{address(8, a4, AF_INET, 0x7FFFFFFF) + done}, {"list is null"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        Lines received = row.first;
        answers = &received;
        EXPECT_EQ(listed(), row.second);
    }
    Lines both = {any + address(8, a6, AF_INET6) + done};
    answers = &both;
    LogCapture capture;
    EXPECT_EQ(SystemUtil::getLocalIPList().size(), 1U);
    answers = nullptr;
    Lines log = capture.take();
    log.at(0).resize(16);
    EXPECT_EQ(log, (Lines{"2 temp_addr = 0x", "2 temp_addr->ifa_addr->sa_family = 2",
                          "2 temp_addr->ifa_name = lo, ipStr = 97.98.99.100",
                          "2 temp_addr->ifa_addr->sa_family = 10"}));
}

TEST(Interfaces, OfTheirOwnListAreWholeAndNamedByTheirOwnAddress) {
    const std::string done = message(NLMSG_DONE), a4 = attribute("abcd");
    const std::string own4 = attribute("wxyz", IFA_LOCAL);
    const std::string a6 = attribute("abcdefghijklmnop"),
                      local6 = attribute("\xfe\x80............yz");
    const std::string own6 = attribute("ABCDEFGHIJKLMNOP", IFA_LOCAL);
    const std::string one = address(8, a4);
    std::string many = one;
    while (many.size() + one.size() <= 32768)
        many += one;
    const size_t most = many.size() / one.size();
    std::string interrupted = one + done;  // the kernel's list changed meanwhile
    const uint16_t flags = NLM_F_DUMP_INTR;
    std::memcpy(&interrupted[offsetof(nlmsghdr, nlmsg_flags)], &flags, sizeof(flags));
    const std::string text6 = "6162:6364:6566:6768:696a:6b6c:6d6e:6f70";
    const std::pair<Lines, Lines> rows[] = {
        {{one + address(9, attribute("abcd", IFA_LOCAL) + a4) + address(31, a4 + own4) +
          address(40, a4, AF_INET, 0x7FFFFFFF) + address(8, a4, AF_PACKET) +
          address(64, local6, AF_INET6) + address(127, own6 + a6, AF_INET6) + done},
         {"lo 73 97.98.99.100 /8", "lo 73 97.98.99.100 /9",
          "lo 73 119.120.121.122 to 97.98.99.100 /31",
          "lo 73 fe80:2e2e:2e2e:2e2e:2e2e:2e2e:2e2e:797a%lo /64",
          "lo 73 4142:4344:4546:4748:494a:4b4c:4d4e:4f50 to " + text6 + " /127"}},
        {{address(8, own4) + address(8, attribute("abcd" + a6)) + done},
         {"lo 73 119.120.121.122 /8", "lo 73 97.98.99.100 /8"}},
        {{interrupted, one + one + done}, Lines(2, "lo 73 97.98.99.100 /8")},
        {Lines(9, interrupted), {"lo 73 97.98.99.100 /8"}},
        {{many, done}, Lines(most, "lo 73 97.98.99.100 /8")},
        {{many + one, done}, {"error " + std::to_string(EMSGSIZE)}},
        {{one, message(NLMSG_ERROR, bytes(-EPERM))}, {"error " + std::to_string(EPERM)}},
        {{message(NLMSG_ERROR)}, {"error " + std::to_string(EIO)}},
        {{one, ""}, {"error " + std::to_string(EIO)}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        Lines received = row.first, again = row.first;
        answers = &received;
        EXPECT_EQ(ownList(), row.second);
        answers = &again;
        ifaddrs* list = nullptr;
        if (row.second[0].compare(0, 5, "error") == 0) {
            EXPECT_EQ(getifaddrs(&list), -1);
            EXPECT_EQ(list, nullptr);
            EXPECT_EQ("error " + std::to_string(errno), row.second[0]);
        }
    }
    answers = nullptr;
}

TEST(Interfaces, AreThoseThatThePlatformLists) {
    EXPECT_EQ(listed(), listedByThePlatform());
    Lines own = ownList();
    for (std::string& each : own)
        each.resize(each.rfind(" /"));
    EXPECT_EQ(own, ownListByThePlatform());
    freeifaddrs(nullptr);
}

}  // namespace
}  // namespace NIVUR
