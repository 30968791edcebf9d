
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "private/common/address_dump.h"
#include "private/common/descriptor.h"
#include "private/common/interface_list.h"

namespace NIVUR::platform {

namespace {

// The platform's record has two pointers more: a reader that was built with it finds null there.
struct Record : ifaddrs {
    sockaddr* broadcastAddress;
    void* data;
};

// All memory of a list is from here and goes to free(); null when there is none.
template <class T>
T* allocateZeroed() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

void freeList(ifaddrs* list) {
    while (list != nullptr) {
        ifaddrs* const next = list->ifa_next;
        std::free(list->ifa_name);
        std::free(list->ifa_addr);
        std::free(list->ifa_netmask);
        std::free(static_cast<Record*>(list));
        list = next;
    }
}

// A new socket address with as much of the bytes as it has room for.
sockaddr* makeAddress(int family, unsigned int scope, const uint8_t* bytes, size_t length) {
    if (family == AF_INET) {
        auto* const address = allocateZeroed<sockaddr_in>();
        if (address != nullptr) {
            address->sin_family = AF_INET;
            std::memcpy(&address->sin_addr, bytes, std::min(length, sizeof(address->sin_addr)));
        }
        return reinterpret_cast<sockaddr*>(address);
    }
    auto* const address = allocateZeroed<sockaddr_in6>();
    if (address != nullptr) {
        address->sin6_family = AF_INET6;
        address->sin6_scope_id = scope;
        std::memcpy(&address->sin6_addr, bytes, std::min(length, sizeof(address->sin6_addr)));
    }
    return reinterpret_cast<sockaddr*>(address);
}

sockaddr* makeNetmask(int family, unsigned int prefixLength) {
    std::array<uint8_t, sizeof(in6_addr)> mask{};
    const size_t ones = std::min<size_t>(prefixLength / 8, mask.size());
    std::fill_n(mask.begin(), ones, uint8_t{0xFF});
    if (ones < mask.size()) {
        mask[ones] = static_cast<uint8_t>(0xFF << (8 - prefixLength % 8));
    }
    return makeAddress(family, 0, mask.data(), mask.size());
}

// The list as it grows; it is freed with this unless it was released.
class AddressList final : public AddressVisitor {
  public:
    AddressList() = default;
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;
    ~AddressList() { freeList(_head); }

    ifaddrs* release() { return std::exchange(_head, nullptr); }

    bool visit(const DumpedAddress& address) override {
        auto* const record = allocateZeroed<Record>();
        if (record == nullptr) {
            return false;
        }
        *_end = record;
        _end = &record->ifa_next;
        return fill(*record, address);
    }

  private:
    bool fill(ifaddrs& record, const DumpedAddress& address) {
        if (!readInterface(address.interfaceIndex)) {
            return false;
        }
        record.ifa_name = ::strdup(_interface.ifr_name);
        record.ifa_flags = static_cast<unsigned int>(int{_interface.ifr_flags});
        record.ifa_addr =
            makeAddress(address.family, address.interfaceIndex, address.bytes, address.length);
        record.ifa_netmask = makeNetmask(address.family, address.prefixLength);
        return record.ifa_name != nullptr && record.ifa_addr != nullptr &&
               record.ifa_netmask != nullptr;
    }

    // Name and flags of an interface, once for all its addresses that follow each other.
    bool readInterface(unsigned int index) {
        if (index != 0 && index == _index) {
            return true;
        }
        _index = 0;
        const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (::if_indextoname(index, _interface.ifr_name) == nullptr || socket.get() == -1 ||
            ::ioctl(socket.get(), SIOCGIFFLAGS, &_interface) == -1) {
            return false;
        }
        _index = index;
        return true;
    }

    ifaddrs* _head = nullptr;
    ifaddrs** _end = &_head;
    ifreq _interface{};
    unsigned int _index = 0;  // of _interface; no interface has 0
};

bool requestDump(int socket) {
    struct {
        nlmsghdr header;
        ifaddrmsg message;
    } request{};
    static_assert(sizeof(request) == 24);
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT;
    return ::send(socket, &request, sizeof(request), 0) == sizeof(request);
}

DumpState receiveDump(int socket, AddressList& list) {
    alignas(nlmsghdr) uint8_t buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(socket, buffer, sizeof(buffer), 0);
        if (count <= 0) {
            return DumpState::FAILED;
        }
        const DumpState state = walkAddressDump(buffer, static_cast<size_t>(count), list);
        if (state != DumpState::MORE) {
            return state;
        }
    }
}

}  // namespace

int listInterfaces(ifaddrs** list) noexcept {
    const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (socket.get() == -1 || !requestDump(socket.get())) {
        return -1;
    }
    AddressList addresses;
    switch (receiveDump(socket.get(), addresses)) {
        case DumpState::DONE:
            *list = addresses.release();
            return 0;
        case DumpState::STOPPED:
            *list = nullptr;
            return -1;
        default:
            return -1;
    }
}

void freeInterfaces(ifaddrs* list) noexcept {
    freeList(list);
}

}  // namespace NIVUR::platform

int getifaddrs(ifaddrs** list) noexcept {
    return NIVUR::platform::listInterfaces(list);
}

void freeifaddrs(ifaddrs* list) noexcept {
    NIVUR::platform::freeInterfaces(list);
}
