#include "shared_ptr.h"

#include "runnable.h"

namespace NIVUR {

// The disposers are constant-initialised and trivially destructible: they are usable before any
// static object is constructed and after all are destroyed.
template class SharedCount<Runnable>;
template class SharedPtr<Runnable>;

}  // namespace NIVUR
