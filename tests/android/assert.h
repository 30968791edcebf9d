// What Android declares in <assert.h> beyond what a desktop's C library does.
#include_next <assert.h>

[[noreturn]] inline void __assert2(const char* file, int line, const char* function,
                                   const char* expression) {
    __assert_fail(expression, file, static_cast<unsigned int>(line), function);
}
