#include "shared_ptr.h"

#include "runnable.h"

namespace NIVUR {

// The disposers are constant-initialised and trivially destructible: they are there before the
// first static object of an application and after its last.
template class SharedCount<Runnable>;
template class SharedPtr<Runnable>;

}  // namespace NIVUR
