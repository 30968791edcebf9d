#include "address.h"

#include <nivur/socket_address.h>

#include "number.h"

namespace mirror {

std::optional<Address> Address::parse(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    std::string ip = text.substr(0, colon);
    const auto port = toNumber(text.substr(colon + 1));
    const bool bracketed = ip.size() > 2 && ip.front() == '[' && ip.back() == ']';
    if (bracketed) {
        ip = ip.substr(1, ip.size() - 2);
    }
    const Address address{ip, static_cast<uint16_t>(port.value_or(0))};
    const bool isUsable = port && *port <= UINT16_MAX && address.isIPv6() == bracketed &&
                          NIVUR::SocketAddress(ip, address.port).isValid();
    return isUsable ? std::optional(address) : std::nullopt;
}

bool Address::isLoopback() const {
    return ip == "::1" || ip.compare(0, 4, "127.") == 0;
}

std::string Address::text() const {
    return (isIPv6() ? "[" + ip + "]" : ip) + ":" + std::to_string(port);
}

}  // namespace mirror
