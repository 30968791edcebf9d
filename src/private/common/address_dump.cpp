#include "private/common/address_dump.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace NIVUR::platform {

namespace {

// Received bytes that are yet to be read.
class Bytes {
  public:
    Bytes(const uint8_t* data, size_t size) : _data(data), _size(size) {}

    const uint8_t* data() const { return _data; }
    size_t size() const { return _size; }

    // The structure that they begin with, whatever its alignment. REQUIRES: size() >= sizeof(T).
    template <class T>
    T read() const {
        T value;
        std::memcpy(&value, _data, sizeof(value));
        return value;
    }

    // The first `length` bytes without the first `header`. REQUIRES: header <= length <= size().
    Bytes body(size_t length, size_t header) const { return {_data + header, length - header}; }

    // Drops an item and the padding behind it, which the last one may lack: a length rounded up to
    // 4 could pass the end, or not fit the type. REQUIRES: length <= size().
    void drop(size_t length) {
        const size_t padding = (4 - length % 4) % 4;
        const size_t dropped = length + std::min(padding, _size - length);
        _data += dropped;
        _size -= dropped;
    }

  private:
    const uint8_t* _data;
    size_t _size;
};

bool isWanted(const ifaddrmsg& message, const rtattr& attribute) {
    return attribute.rta_type == IFA_ADDRESS &&
           (message.ifa_family == AF_INET || message.ifa_family == AF_INET6);
}

bool visitAddresses(Bytes body, AddressVisitor& visitor) {
    if (body.size() < sizeof(ifaddrmsg)) {
        return true;
    }
    const auto message = body.read<ifaddrmsg>();
    body.drop(sizeof(ifaddrmsg));
    while (body.size() >= sizeof(rtattr)) {
        const auto attribute = body.read<rtattr>();
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > body.size()) {
            break;
        }
        const Bytes payload = body.body(attribute.rta_len, sizeof(rtattr));
        if (isWanted(message, attribute) &&
            !visitor.visit({message.ifa_family, message.ifa_index, message.ifa_prefixlen,
                            payload.data(), payload.size()})) {
            return false;
        }
        body.drop(attribute.rta_len);
    }
    return true;
}

}  // namespace

DumpState walkAddressDump(const void* received, size_t length, AddressVisitor& visitor) {
    Bytes bytes(static_cast<const uint8_t*>(received), length);
    while (bytes.size() >= sizeof(nlmsghdr)) {
        const auto header = bytes.read<nlmsghdr>();
        if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > bytes.size()) {
            break;
        }
        switch (header.nlmsg_type) {
            case NLMSG_DONE:
                return DumpState::DONE;
            case NLMSG_ERROR:
                return DumpState::FAILED;
            case RTM_NEWADDR:
                if (!visitAddresses(bytes.body(header.nlmsg_len, sizeof(nlmsghdr)), visitor)) {
                    return DumpState::STOPPED;
                }
                break;
            default:
                break;
        }
        bytes.drop(header.nlmsg_len);
    }
    return DumpState::MORE;
}

}  // namespace NIVUR::platform
