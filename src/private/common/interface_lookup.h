#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_LOOKUP_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_LOOKUP_H

#include <net/if.h>

namespace NIVUR::platform {

/// Name and flags of interfaces, read once for all addresses of one that follow each other.
class InterfaceLookup {
  public:
    /// Reads the interface with that index; false, with the reason in errno, if it cannot be read.
    bool read(unsigned int index);

    const char* name() const { return _request.ifr_name; }
    short flags() const { return _request.ifr_flags; }

  private:
    ifreq _request{};
    unsigned int _index = 0;  // of _request; no interface has 0
};

}  // namespace NIVUR::platform

#endif
