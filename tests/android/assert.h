// Declared by Android's <assert.h> only.
#include_next <assert.h>

[[noreturn]] inline void __assert2(const char* file, int line, const char* function,
                                   const char* expression) {
    __assert_fail(expression, file, static_cast<unsigned int>(line), function);
}
