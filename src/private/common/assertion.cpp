#include "private/assertion.h"

// The platform's header declares its report only without it.
#undef NDEBUG
#include <cassert>

namespace NIVUR::platform {

void reportAssertion(const char* expression, const char* file, unsigned int line,
                     const char* function) {
#if defined(__ANDROID__)
    __assert2(file, static_cast<int>(line), function, expression);
#else
    __assert_fail(expression, file, line, function);
#endif
}

}  // namespace NIVUR::platform
