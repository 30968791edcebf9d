#ifndef MIRROR_ADDRESS_H
#define MIRROR_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// Where an end listens: a numeric address and a port, the same for TCP and UDP.
struct Address {
    std::string ip;
    uint16_t port = 0;

    /// Reads "127.0.0.1:7000" or "[::1]:7000"; nothing for other text.
    static std::optional<Address> parse(const std::string& text);

    /// As parse() reads it.
    std::string text() const;

    /// Whether only this host can be reached there.
    bool isLoopback() const;

    /// The address that a socket which talks to this one is bound to: any of the same family.
    std::string anyLocal() const { return isIPv6() ? "::" : "0.0.0.0"; }

  private:
    bool isIPv6() const { return ip.find(':') != std::string::npos; }
};

}  // namespace mirror

#endif
