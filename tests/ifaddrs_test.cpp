#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>  // the platform's: a program that knows no other gets the library's lists
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <nivur/system_util.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "support/log_capture.h"

static Lines* answers = nullptr;  // when set, they are what the kernel sends

extern "C" ssize_t recv(int socket, void* data, size_t size, int flags) {
    static const auto real = reinterpret_cast<decltype(&recv)>(dlsym(RTLD_NEXT, "recv"));
    if (answers == nullptr) return real(socket, data, size, flags);
    if (answers->empty()) return -1;
    const std::string answer = answers->front();
    answers->erase(answers->begin());
    return static_cast<ssize_t>(answer.copy(static_cast<char*>(data), size));
}

namespace NIVUR {
namespace {

std::string hex(const sockaddr* address) {
    const bool isIPv6 = address->sa_family == AF_INET6;
    const auto* byte = reinterpret_cast<const uint8_t*>(address);
    byte += isIPv6 ? offsetof(sockaddr_in6, sin6_addr) : offsetof(sockaddr_in, sin_addr);
    char text[33];
    for (size_t i = 0; i < (isIPv6 ? 16U : 4U); ++i) {
        std::snprintf(text + 2 * i, 3, "%02x", byte[i]);
    }
    return text;
}

// "NAME ADDRESS MASK FLAGS" of each address, but on point-to-point links, where the platform's own
// enumeration differs.
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
            EXPECT_TRUE(record->ifa_dstaddr == nullptr && record->ifa_data == nullptr);
            EXPECT_TRUE(family == AF_INET || ipv6->sin6_scope_id == if_nametoindex(name.c_str()));
        }
        if ((family == AF_INET || family == AF_INET6) && !(record->ifa_flags & IFF_POINTOPOINT)) {
            lines.push_back(name + " " + hex(record->ifa_addr) + " " + hex(record->ifa_netmask) +
                            " " + std::to_string(record->ifa_flags & 0xFFFF));
        }
    }
    release(list);
    return lines;
}

Lines listedByThePlatform() {
    void* const libc = dlopen("libc.so.6", RTLD_LAZY);
    return listed(reinterpret_cast<decltype(&getifaddrs)>(dlsym(libc, "getifaddrs")),
                  reinterpret_cast<decltype(&freeifaddrs)>(dlsym(libc, "freeifaddrs")));
}

TEST(Interfaces, ThreeHundredAddressesOfAnInterfaceThatIsDownArriveComplete) {
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) _exit(77);
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
        std::fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no right to a namespace";
    EXPECT_EQ(status, 0);
}

constexpr int v4 = AF_INET, v6 = AF_INET6;

template <class Header>
std::string bytes(const Header& header) {
    return {reinterpret_cast<const char*>(&header), sizeof(header)};
}

// Headers tell the true length unless another one is given.
std::string message(int type, const std::string& body = "", size_t length = 0) {
    if (length == 0) length = sizeof(nlmsghdr) + body.size();
    return bytes(nlmsghdr{uint32_t(length), uint16_t(type), 0, 0, 0}) + body;
}

std::string attribute(std::string payload, int type = IFA_ADDRESS, size_t length = 0) {
    if (length == 0) length = sizeof(rtattr) + payload.size();
    payload.resize((payload.size() + 3) / 4 * 4);
    return bytes(rtattr{uint16_t(length), uint16_t(type)}) + payload;
}

std::string address(int family, int prefix, const std::string& attributes, unsigned int index = 1) {
    const ifaddrmsg header{uint8_t(family), uint8_t(prefix), 0, 0, index};
    return message(RTM_NEWADDR, bytes(header) + attributes);
}

TEST(Interfaces, AreWhatWasReceivedAndNothingElse) {
    const std::string done = message(NLMSG_DONE);
    const std::string a4 = attribute("abcd"), a6 = attribute("abcdefghijklmnop");
    const std::string ip4 = "61626364", ip6 = "6162636465666768696a6b6c6d6e6f70";
    const std::string ones = "ffffffff", ones6 = ones + ones + ones + ones;
    const std::string any = address(v4, 8, a4), body = any.substr(sizeof(nlmsghdr));
    const auto lines = [](const std::string& ip, const Lines& masks) {
        Lines result;
        for (const std::string& mask : masks) {
            result.push_back(std::string("lo ").append(ip).append(" ").append(mask).append(" 73"));
        }
        return result;
    };
    const Lines one = lines(ip4, {"ff000000"});
    const std::pair<Lines, Lines> rows[] = {
        {{address(v4, 0, a4) + address(v4, 9, a4) + address(v4, 31, a4),
          address(v4, 32, a4) + address(v4, 33, a4) + done},
         lines(ip4, {"00000000", "ff800000", "fffffffe", ones, ones})},
        {{address(v6, 127, a6) + address(v6, 128, a6), address(v6, 129, a6) + done},
         lines(ip6, {ones + ones + ones + "fffffffe", ones6, ones6})},
        {{address(v4, 8, attribute("abcd" + a6)) + done}, one},
        {{address(v6, 128, attribute("abcdefghijklmnop" + a6)) + done}, lines(ip6, {ones6})},
        {{address(v4, 8, attribute("ab")) + done}, lines("61620000", {"ff000000"})},
        {{done + any}, {}},
        {{address(v4, 8, attribute("wxyz", IFA_LOCAL) + a4) + message(RTM_NEWLINK, a4) +
          address(AF_PACKET, 8, a4) + done},
         one},
        {{message(RTM_NEWADDR, body, 16), message(RTM_NEWADDR, body, 24),
          message(RTM_NEWADDR, body, 27),
          address(v4, 8, attribute("abcd", IFA_ADDRESS, 3)) +
              address(v4, 8, attribute("abcd", IFA_ADDRESS, 9)) + any + done},
         one},
        {{any + any, any.substr(0, 31), any.substr(0, 15), message(RTM_NEWADDR, body, 15),
          message(RTM_NEWADDR, body, 0xFFFFFFFF), address(v4, 8, attribute("a").substr(0, 5)),
          done},
         {one[0], one[0], "lo 61000000 ff000000 73"}},
        {{any + message(NLMSG_ERROR) + done}, {"list left alone"}},
        {{any, "", done}, {"list left alone"}},
        {{address(v4, 8, a4, 0x7FFFFFFF) + done}, {"list is null"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        Lines received = row.first;
        answers = &received;
        EXPECT_EQ(listed(), row.second);
    }
    Lines both = {any + address(v6, 8, a6) + done};
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

TEST(Interfaces, AreThoseThatThePlatformListsAndNoneWithoutDescriptors) {
    const int free = dup(STDIN_FILENO);
    close(free);
    for (const int more : {0, 1, 1000}) {
        const rlimit limit{rlim_t(free + more), 4096};
        ASSERT_EQ(prlimit(0, RLIMIT_NOFILE, &limit, nullptr), 0);
        const Lines lines = listed();
        EXPECT_EQ(lines, more == 0   ? Lines{"list left alone"}
                         : more == 1 ? Lines{"list is null"}
                                     : listedByThePlatform());
    }
    EXPECT_EQ(dup(STDIN_FILENO), free);  // nothing was left open
    freeifaddrs(nullptr);
}

}  // namespace
}  // namespace NIVUR
