#include "private/common/interface_lookup.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include "private/common/descriptor.h"

namespace NIVUR::platform {

bool InterfaceLookup::read(unsigned int index) {
    if (index != 0 && index == _index) {
        return true;
    }
    _index = 0;
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.get() == -1 || ::if_indextoname(index, _request.ifr_name) == nullptr ||
        ::ioctl(socket.get(), SIOCGIFFLAGS, &_request) == -1) {
        return false;
    }
    _index = index;
    return true;
}

}  // namespace NIVUR::platform
