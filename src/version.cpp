#include "version.h"

namespace NIVUR {

int version() {
    return NIVUR_VERSION;
}

}  // namespace NIVUR
