#include "private/common/interface_dump.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "private/common/descriptor.h"

namespace NIVUR::platform {

namespace {

/// Received bytes that are still to be read.
class Bytes {
  public:
    Bytes(const uint8_t* data, size_t size) : _data(data), _size(size) {}

    const uint8_t* data() const { return _data; }
    size_t size() const { return _size; }

    /// The structure at their start, at any alignment. REQUIRES: size() >= sizeof(T).
    template <class T>
    T read() const {
        T value;
        std::memcpy(&value, _data, sizeof(value));
        return value;
    }

    /// The first `length` bytes without their first `header`. REQUIRES: header <= length <= size().
    Bytes body(size_t length, size_t header) const { return {_data + header, length - header}; }

    /// Skips an item and its padding. The last item may be unpadded, so the aligned length is never
    /// computed: it could exceed the buffer or overflow. REQUIRES: length <= size().
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

/// Calls `visit(type, payload)` for each attribute until it returns false; then returns false, too.
template <class Visit>
bool visitAttributes(Bytes body, Visit visit) {
    while (body.size() >= sizeof(rtattr)) {
        const auto attribute = body.read<rtattr>();
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > body.size()) {
            break;
        }
        const Bytes payload = body.body(attribute.rta_len, sizeof(rtattr));
        if (!visit(attribute.rta_type, AddressBytes{payload.data(), payload.size()})) {
            return false;
        }
        body.drop(attribute.rta_len);
    }
    return true;
}

bool visitAddresses(Bytes body, bool changed, AddressVisitor& visitor) {
    if (body.size() < sizeof(ifaddrmsg)) {
        return true;
    }
    const auto message = body.read<ifaddrmsg>();
    body.drop(sizeof(ifaddrmsg));
    if (message.ifa_family != AF_INET && message.ifa_family != AF_INET6) {
        return true;
    }
    AddressBytes local{};  // may come before or after the address
    visitAttributes(body, [&local](int type, AddressBytes payload) {
        local = type == IFA_LOCAL ? payload : local;
        return true;
    });
    bool none = true;
    const auto visit = [&](AddressBytes address) {
        none = false;
        return visitor.visit({message.ifa_family, message.ifa_index, message.ifa_prefixlen, changed,
                              address, local});
    };
    const bool goOn = visitAttributes(body, [&](int type, AddressBytes payload) {
        return type != IFA_ADDRESS || visit(payload);
    });
    return goOn && (!none || local.data == nullptr || visit({}));
}

/// The error number in an error message of the kernel, which negates it.
int errorOf(Bytes body) {
    const int error = body.size() < sizeof(int) ? 0 : body.read<int>();
    return error < 0 && error != INT_MIN ? -error : EIO;
}

bool requestDump(int socket) {
    struct {
        nlmsghdr header;
        ifaddrmsg message;
    } request{};
    static_assert(sizeof(request) == 24);
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ROOT;
    errno = EIO;  // if send() sends less than the request
    return ::send(socket, &request, sizeof(request), 0) == sizeof(request);
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
                errno = errorOf(bytes.body(header.nlmsg_len, sizeof(nlmsghdr)));
                return DumpState::FAILED;
            case RTM_NEWADDR:
                if (!visitAddresses(bytes.body(header.nlmsg_len, sizeof(nlmsghdr)),
                                    (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0, visitor)) {
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

DumpState dumpAddresses(AddressVisitor& visitor) {
    const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (socket.get() == -1 || !requestDump(socket.get())) {
        return DumpState::FAILED;
    }
    // The largest datagram of a dump. With pages of 16 KiB the kernel sends 8 KiB even if the
    // receiver offers less room.
    constexpr size_t kRoom = 32768;
    const std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kRoom]);
    if (buffer == nullptr) {
        errno = ENOMEM;
        return DumpState::FAILED;
    }
    DumpState state = DumpState::MORE;
    while (state == DumpState::MORE) {
        errno = EIO;  // if the answer ends before its last message
        const ssize_t count = ::recv(socket.get(), buffer.get(), kRoom, MSG_TRUNC);
        if (count <= 0) {
            return DumpState::FAILED;
        }
        if (static_cast<size_t>(count) > kRoom) {
            errno = EMSGSIZE;
            return DumpState::FAILED;
        }
        state = walkAddressDump(buffer.get(), static_cast<size_t>(count), visitor);
    }
    return state;
}

}  // namespace NIVUR::platform
