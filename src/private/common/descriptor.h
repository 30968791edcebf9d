#ifndef NIVUR_PRIVATE_COMMON_DESCRIPTOR_H
#define NIVUR_PRIVATE_COMMON_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace NIVUR::platform {

/// Closes the descriptor that it holds, unless that is -1 or was released.
class Descriptor {
  public:
    explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
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
