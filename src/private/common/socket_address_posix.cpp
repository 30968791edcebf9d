#include "socket_address.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <charconv>
#include <cstring>

#include "private/common/socket_posix.h"

namespace NIVUR {

static_assert(sizeof(sockaddr_in6) == sizeof(SocketAddress));
static_assert(alignof(sockaddr_in6) <= alignof(SocketAddress));

namespace {

/// The bytes as an IPv6 structure, in which family and port are at the same place for IPv4.
sockaddr_in6 read(const SocketAddress& address) {
    sockaddr_in6 platform;
    std::memcpy(&platform, address.data(), sizeof(platform));
    return platform;
}

/// Copies text and adds a NUL. Returns false if the text has a NUL or is too long.
template <size_t kRoom>
bool copyText(std::string_view text, char (&copy)[kRoom]) {
    if (text.size() >= kRoom || text.find('\0') != std::string_view::npos) {
        return false;
    }
    copy[text.copy(copy, kRoom)] = '\0';
    return true;
}

/// Reads a scope: the name of an interface or its index.
bool readScope(std::string_view text, uint32_t& scope) {
    char name[IFNAMSIZ];
    if (copyText(text, name)) {
        scope = ::if_nametoindex(name);
        if (scope != 0) {
            return true;
        }
    }
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, scope);
    return error == std::errc() && stop == end;
}

std::string scopeText(uint32_t scope) {
    char name[IFNAMSIZ];
    return scope == 0 ? ""
                      : "%" + (::if_indextoname(scope, name) != nullptr ? std::string(name)
                                                                        : std::to_string(scope));
}

}  // namespace

SocketAddress::SocketAddress(std::string_view ip, uint16_t port) {
    const size_t percent = ip.find('%');
    const bool isIPv6 = ip.find(':') != std::string_view::npos;
    const bool scoped = percent != std::string_view::npos;
    uint32_t scope = 0;
    char host[INET6_ADDRSTRLEN];
    if (!copyText(ip.substr(0, percent), host) ||
        (scoped && !(isIPv6 && readScope(ip.substr(percent + 1), scope)))) {
        return;
    }
    *this = platform::parseAddress(host, port, isIPv6);
    if (scoped && isValid()) {
        std::memcpy(_bytes + offsetof(sockaddr_in6, sin6_scope_id), &scope, sizeof(scope));
    }
}

bool SocketAddress::isIPv6() const {
    return read(*this).sin6_family == AF_INET6;
}

std::string SocketAddress::ip() const {
    platform::AddressText text;
    return isValid() ? platform::addressText(*this, text) + scopeText(scopeId()) : "";
}

uint16_t SocketAddress::port() const {
    return ntohs(read(*this).sin6_port);
}

uint32_t SocketAddress::scopeId() const {
    return read(*this).sin6_scope_id;
}

std::string SocketAddress::toString() const {
    if (!isValid()) {
        return "";
    }
    const std::string end = ":" + std::to_string(port());
    return isIPv6() ? "[" + ip() + "]" + end : ip() + end;
}

size_t SocketAddress::size() const {
    switch (read(*this).sin6_family) {
        case AF_INET:
            return sizeof(sockaddr_in);
        case AF_INET6:
            return sizeof(sockaddr_in6);
        default:
            return 0;
    }
}

SocketAddress SocketAddress::fromPlatform(const void* address, size_t size) {
    SocketAddress result;
    if (size < sizeof(sockaddr_in)) {
        return result;
    }
    sockaddr_in6 given{};
    std::memcpy(&given, address, size < sizeof(given) ? size : sizeof(given));
    if (given.sin6_family == AF_INET) {
        std::memcpy(result._bytes, &given, offsetof(sockaddr_in, sin_zero));
    } else if (given.sin6_family == AF_INET6 && size >= sizeof(given)) {
        given.sin6_flowinfo = 0;
        std::memcpy(result._bytes, &given, sizeof(given));
    }
    return result;
}

}  // namespace NIVUR
