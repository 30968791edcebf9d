#ifndef NIVUR_STRING_UTIL_H
#define NIVUR_STRING_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "export.h"

namespace NIVUR {

/// Returns the decimal number at the start of `text`, as atoi() reads it, cut to its low 8 bits:
/// "300" gives 44, "-1" gives 255, and text without digits 0. Any thread may call it.
NIVUR_EXPORT uint8_t stringToUInt8(const std::string& text);

/// Conversions between numbers and text. They report no errors: malformed text gives a number too.
/// Any thread may call any operation.
class NIVUR_EXPORT StringUtil {
  public:
    StringUtil() = delete;

    /// `value` in decimal.
    static std::string int2String(long value);

    /// Reads an optional minus sign and then digits, up to the first NUL, in 32-bit arithmetic that
    /// wraps. Nothing is checked: any other byte is used as the digit (byte - '0').
    static int string2Int(const std::string& text);

    /// Appends stringToUInt8() of each word of `text`, as separated by white space, to `bytes`.
    static void string2UInt8Vector(const std::string& text, std::vector<uint8_t>& bytes);
};

}  // namespace NIVUR

#endif
