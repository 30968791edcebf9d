#include "private/assertion.h"

// With NDEBUG the platform's header does not declare its report function.
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
