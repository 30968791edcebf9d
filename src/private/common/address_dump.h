#ifndef NIVUR_PRIVATE_COMMON_ADDRESS_DUMP_H
#define NIVUR_PRIVATE_COMMON_ADDRESS_DUMP_H

#include <cstddef>
#include <cstdint>

namespace NIVUR::platform {

/// One address in the kernel's answer; `bytes` lie in what was received.
struct DumpedAddress {
    int family;  ///< AF_INET or AF_INET6
    unsigned int interfaceIndex;
    unsigned int prefixLength;
    const uint8_t* bytes;
    size_t length;
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
    FAILED,  ///< the kernel reports an error
    STOPPED  ///< the visitor did not want to go on
};

/// Walks one received part of the answer to a netlink address dump. Any bytes will do: nothing
/// outside them is read, and what is malformed is left out.
DumpState walkAddressDump(const void* received, size_t length, AddressVisitor& visitor);

}  // namespace NIVUR::platform

#endif
