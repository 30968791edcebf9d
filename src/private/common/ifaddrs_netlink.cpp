#include "private/common/interface_list.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "no_copyable.h"
#include "private/common/interface_dump.h"
#include "private/common/interface_lookup.h"
#include "private/saved_errno.h"

namespace NIVUR::platform {

namespace {

/// A record and everything that it points to, in one block. The platform's record has two more
/// pointers: code that was compiled for it finds null there.
struct Record : ifaddrs {
    sockaddr* broadcastAddress;
    void* data;
    sockaddr_in6 address;
    sockaddr_in6 netmask;
    char name[IFNAMSIZ];
};

/// Writes a socket address of that family over zeros, with as many of the bytes as fit.
sockaddr* fillAddress(sockaddr_in6& room, int family, unsigned int scope, AddressBytes bytes) {
    auto* const address = reinterpret_cast<sockaddr*>(&room);
    address->sa_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
        auto& ipv4 = reinterpret_cast<sockaddr_in*>(address)->sin_addr;
        std::memcpy(&ipv4, bytes.data, std::min(bytes.length, sizeof(ipv4)));
    } else {
        room.sin6_scope_id = scope;
        std::memcpy(&room.sin6_addr, bytes.data, std::min(bytes.length, sizeof(room.sin6_addr)));
    }
    return address;
}

sockaddr* fillNetmask(sockaddr_in6& room, int family, unsigned int prefixLength) {
    uint8_t mask[sizeof(in6_addr)] = {};
    const size_t ones = std::min<size_t>(prefixLength / 8, sizeof(mask));
    std::fill_n(mask, ones, uint8_t{0xFF});
    if (ones < sizeof(mask)) {
        mask[ones] = static_cast<uint8_t>(0xFF << (8 - prefixLength % 8));
    }
    return fillAddress(room, family, 0, {mask, sizeof(mask)});
}

/// The list while it is built; freed with this object unless released.
class AddressList final : public AddressVisitor, public NoCopyable {
  public:
    ~AddressList() { freeInterfaces(_head); }

    ifaddrs* release() { return std::exchange(_head, nullptr); }

    bool visit(const DumpedAddress& address) override {
        if (address.address.data == nullptr) {
            return true;
        }
        if (!_interface.read(address.interfaceIndex)) {
            return false;
        }
        auto* const record = static_cast<Record*>(std::calloc(1, sizeof(Record)));
        if (record == nullptr) {
            return false;
        }
        fill(*record, address);
        *_end = record;
        _end = &record->ifa_next;
        return true;
    }

  private:
    void fill(Record& record, const DumpedAddress& address) const {
        std::memcpy(record.name, _interface.name(), sizeof(record.name));
        record.ifa_name = record.name;
        record.ifa_flags = static_cast<unsigned int>(int{_interface.flags()});
        record.ifa_addr =
            fillAddress(record.address, address.family, address.interfaceIndex, address.address);
        record.ifa_netmask = fillNetmask(record.netmask, address.family, address.prefixLength);
    }

    ifaddrs* _head = nullptr;
    ifaddrs** _end = &_head;
    InterfaceLookup _interface;
};

}  // namespace

int listInterfaces(ifaddrs** list) noexcept {
    AddressList addresses;
    const DumpState state = dumpAddresses(addresses);
    const SavedErrno error;  // freeing the incomplete list may change it
    if (state == DumpState::DONE) {
        *list = addresses.release();
        return 0;
    }
    if (state == DumpState::STOPPED) {
        *list = nullptr;
    }
    return -1;
}

void freeInterfaces(ifaddrs* list) noexcept {
    while (list != nullptr) {
        ifaddrs* const next = list->ifa_next;
        std::free(static_cast<Record*>(list));  // from calloc()
        list = next;
    }
}

}  // namespace NIVUR::platform
