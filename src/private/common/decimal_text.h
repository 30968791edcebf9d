#ifndef NIVUR_PRIVATE_COMMON_DECIMAL_TEXT_H
#define NIVUR_PRIVATE_COMMON_DECIMAL_TEXT_H

#include <cstddef>

namespace NIVUR {

/// Conversion between doubles and text, independent of the locale. decimal_charconv.cpp is compiled
/// where the standard library converts doubles, decimal_locale.cpp elsewhere.

constexpr size_t kDecimalSize = 32;  ///< bytes for the text of any double

/// Writes a finite value as "%.17g" does in the C locale. Returns the end of the text, to which it
/// adds no NUL.
char* writeDecimal(double value, char (&text)[kDecimalSize]);

/// Reads a number in JSON's syntax from `begin` to `end`. A number too close to 0 for a double
/// becomes 0. Returns false, with `value` unspecified, if it exceeds the range of double.
/// REQUIRES: the byte at `end` does not continue the number.
bool readDecimal(const char* begin, const char* end, double& value);

}  // namespace NIVUR

#endif
