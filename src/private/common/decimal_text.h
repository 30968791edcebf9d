#ifndef NIVUR_PRIVATE_COMMON_DECIMAL_TEXT_H
#define NIVUR_PRIVATE_COMMON_DECIMAL_TEXT_H

#include <cstddef>

namespace NIVUR {

/// Decimals as text and back, the same in every locale. decimal_charconv.cpp uses the standard
/// library where that converts doubles; elsewhere decimal_locale.cpp uses the platform.

constexpr size_t kDecimalSize = 32;  ///< bytes that the text of any double fits

/// Writes a finite value as "%.17g" does in the C locale; returns the end of the text, which has no
/// NUL.
char* writeDecimal(double value, char (&text)[kDecimalSize]);

/// Reads a number that JSON allows, from `begin` to `end`. Nothing that could continue it follows.
/// A number too close to 0 for a double becomes 0. Returns false, with `value` unspecified, when it
/// is beyond the largest double.
bool readDecimal(const char* begin, const char* end, double& value);

}  // namespace NIVUR

#endif
