#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_DUMP_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_DUMP_H

#include <cstddef>
#include <cstdint>

namespace NIVUR::platform {

/// Bytes of an address in the kernel's answer, in the order of the network; null for none.
struct AddressBytes {
    const uint8_t* data;
    size_t length;
};

/// One address in the kernel's answer.
struct DumpedAddress {
    int family;  ///< AF_INET or AF_INET6
    unsigned int interfaceIndex;
    unsigned int prefixLength;
    bool changed;          ///< the kernel says that what it lists changed meanwhile
    AddressBytes address;  ///< on a point-to-point link the peer's; none if that is not known
    AddressBytes local;    ///< the interface's own, if the kernel tells it apart
};

/// Is handed the addresses as they are found; false ends the walk.
class AddressVisitor {
  public:
    virtual bool visit(const DumpedAddress& address) = 0;

  protected:
    ~AddressVisitor() = default;
};

enum class DumpState {
    MORE,    ///< another part of the answer must be received
    DONE,    ///< the answer is complete
    FAILED,  ///< the kernel reports an error, which is in errno
    STOPPED  ///< the visitor did not want to go on
};

/// Walks one received part of the answer to a netlink address dump. Any bytes will do: nothing
/// outside them is read, and what is malformed is left out.
DumpState walkAddressDump(const void* received, size_t length, AddressVisitor& visitor);

/// Asks the kernel for the addresses of all interfaces and walks the whole answer: DONE, STOPPED,
/// or FAILED with the reason in errno.
DumpState dumpAddresses(AddressVisitor& visitor);

}  // namespace NIVUR::platform

#endif
