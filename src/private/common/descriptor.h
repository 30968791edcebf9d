#ifndef NIVUR_PRIVATE_COMMON_DESCRIPTOR_H
#define NIVUR_PRIVATE_COMMON_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

#include "no_copyable.h"

namespace NIVUR::platform {

/// Owns a descriptor and closes it; -1 is none.
class Descriptor : public NoCopyable {
  public:
    explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
    ~Descriptor() {
        if (_descriptor != -1) {
            ::close(_descriptor);
        }
    }

    int get() const { return _descriptor; }
    int release() { return std::exchange(_descriptor, -1); }

  private:
    int _descriptor;
};

}  // namespace NIVUR::platform

#endif
