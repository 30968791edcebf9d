#ifndef NIVUR_PRIVATE_COMMON_INTERFACE_LOOKUP_H
#define NIVUR_PRIVATE_COMMON_INTERFACE_LOOKUP_H

#include <net/if.h>

namespace NIVUR::platform {

/// Looks up names and flags of interfaces. Caches the last interface, because its addresses follow
/// one another in a dump.
class InterfaceLookup {
  public:
    /// Looks up the interface with that index. Returns false, with the reason in errno, if it
    /// fails.
    bool read(unsigned int index);

    const char* name() const { return _request.ifr_name; }
    short flags() const { return _request.ifr_flags; }

  private:
    ifreq _request{};
    unsigned int _index = 0;  // the interface in _request; 0 if none
};

}  // namespace NIVUR::platform

#endif
