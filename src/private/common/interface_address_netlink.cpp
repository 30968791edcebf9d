#include "interface_address.h"

#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "private/common/interface_dump.h"
#include "private/common/interface_lookup.h"

namespace NIVUR {

static_assert(IFF_UP == 0x1 && IFF_LOOPBACK == 0x8);

namespace {

using platform::AddressBytes;
using platform::DumpedAddress;

SocketAddress makeIPv4(AddressBytes bytes) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&address.sin_addr, bytes.data, std::min(bytes.length, sizeof(address.sin_addr)));
    return SocketAddress::fromPlatform(&address, sizeof(address));
}

/// Sets the scope of link-local addresses only: others are unambiguous without it.
SocketAddress makeIPv6(AddressBytes bytes, unsigned int interfaceIndex) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    std::memcpy(&address.sin6_addr, bytes.data, std::min(bytes.length, sizeof(address.sin6_addr)));
    address.sin6_scope_id = IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr) ? interfaceIndex : 0;
    return SocketAddress::fromPlatform(&address, sizeof(address));
}

class AddressCollector final : public platform::AddressVisitor {
  public:
    std::vector<InterfaceAddress> list;
    bool changed = false;

    bool visit(const DumpedAddress& found) override {
        const unsigned int index = found.interfaceIndex;
        changed = changed || found.changed;
        if (!_interface.read(index)) {
            return errno == ENXIO || errno == ENODEV;  // the interface has vanished: skip it
        }
        const auto make = [&](AddressBytes bytes) {
            return found.family == AF_INET ? makeIPv4(bytes) : makeIPv6(bytes, index);
        };
        const bool known = found.address.data != nullptr;
        SocketAddress own = known ? make(found.address) : SocketAddress();
        SocketAddress peer;
        if (found.local.data != nullptr) {
            peer = std::exchange(own, make(found.local));
        }
        const auto flags = static_cast<uint16_t>(_interface.flags());
        list.push_back({_interface.name(), index, flags, own, peer == own ? SocketAddress() : peer,
                        found.prefixLength});
        return true;
    }

  private:
    platform::InterfaceLookup _interface;
};

}  // namespace

IoResult getInterfaceAddresses(std::vector<InterfaceAddress>& list) {
    // The dump is repeated if addresses came or went meanwhile, since others may be missing then.
    for (int left = 8;; --left) {
        AddressCollector collector;
        if (platform::dumpAddresses(collector) != platform::DumpState::DONE) {
            return {IoResult::FAILED, 0, errno};
        }
        if (!collector.changed || left == 0) {
            list = std::move(collector.list);
            return {IoResult::DONE, list.size()};
        }
    }
}

}  // namespace NIVUR
