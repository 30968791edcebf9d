#ifndef NIVUR_PRIVATE_ASSERTION_H
#define NIVUR_PRIVATE_ASSERTION_H

namespace NIVUR::platform {

/// Ends the process with the platform's own assertion report.
[[noreturn]] void reportAssertion(const char* expression, const char* file, unsigned int line,
                                  const char* function);

}  // namespace NIVUR::platform

/// Checks a REQUIRES clause in every build type. A macro, because it reports the expression and the
/// line of the caller.
#define NIVUR_ASSERT(expression)                                                        \
    ((expression) ? (void)0                                                             \
                  : ::NIVUR::platform::reportAssertion(#expression, __FILE__, __LINE__, \
                                                       __PRETTY_FUNCTION__))

#endif
