#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_DUMP_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_DUMP_H

#include <cstddef>
#include <cstdint>

namespace NIVUR::platform {

/// The bytes of an address in network order; data is null if there is none.
struct AddressBytes {
    const uint8_t* data;
    size_t length;
};

/// One address in the kernel's answer.
struct DumpedAddress {
    int family;  ///< AF_INET or AF_INET6
    unsigned int interfaceIndex;
    unsigned int prefixLength;
    bool changed;          ///< the addresses have changed during the dump
    AddressBytes address;  ///< on a point-to-point link the peer's; may be none
    AddressBytes local;    ///< the interface's own, if the kernel lists it separately
};

/// Receives the addresses in the order of the dump; returns false to stop.
class AddressVisitor {
  public:
    virtual bool visit(const DumpedAddress& address) = 0;

  protected:
    ~AddressVisitor() = default;
};

enum class DumpState {
    MORE,    ///< the next part of the answer must be received
    DONE,    ///< the answer is complete
    FAILED,  ///< the kernel has reported an error, which is in errno
    STOPPED  ///< the visitor has stopped
};

/// Walks one received part of the answer to a netlink address dump. The bytes are not trusted:
/// nothing outside them is read, and malformed items are skipped.
DumpState walkAddressDump(const void* received, size_t length, AddressVisitor& visitor);

/// Asks the kernel for the addresses of all interfaces and walks the whole answer. Returns DONE,
/// STOPPED, or FAILED with the reason in errno.
DumpState dumpAddresses(AddressVisitor& visitor);

}  // namespace NIVUR::platform

#endif
