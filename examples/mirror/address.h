#ifndef MIRROR_ADDRESS_H
#define MIRROR_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// The address on which an end listens: a numeric IP address and a port, the same for TCP and UDP.
struct Address {
    std::string ip;
    uint16_t port = 0;

    /// Parses "127.0.0.1:7000" or "[::1]:7000"; nullopt for other text.
    static std::optional<Address> parse(const std::string& text);

    /// In the format that parse() reads.
    std::string text() const;

    /// Whether it is a loopback address.
    bool isLoopback() const;

    /// The wildcard address of the same family, to bind a local socket to.
    std::string anyLocal() const { return isIPv6() ? "::" : "0.0.0.0"; }

  private:
    bool isIPv6() const { return ip.find(':') != std::string::npos; }
};

}  // namespace mirror

#endif
