#include "private/common/decimal_text.h"

#include <locale.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "no_copyable.h"

namespace NIVUR {

namespace {

/// Gives the calling thread the number format of the C locale while it exists.
class PlainNumbers : public NoCopyable {
  public:
    // If memory is exhausted the thread keeps its locale. This cannot matter: glibc's C locale
    // needs no memory, and all locales of Android write numbers alike.
    PlainNumbers() : _plain(::newlocale(LC_ALL_MASK, "C", nullptr)), _before(::uselocale(_plain)) {}
    ~PlainNumbers() {
        ::uselocale(_before);
        if (_plain != nullptr) {
            ::freelocale(_plain);
        }
    }

  private:
    locale_t _plain;
    locale_t _before;
};

}  // namespace

char* writeDecimal(double value, char (&text)[kDecimalSize]) {
    const PlainNumbers plain;
    return text + std::snprintf(text, kDecimalSize, "%.17g", value);
}

bool readDecimal(const char* begin, const char* /*end*/, double& value) {
    const PlainNumbers plain;
    value = std::strtod(begin, nullptr);
    return std::isfinite(value);
}

}  // namespace NIVUR
