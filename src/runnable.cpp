#include "runnable.h"

namespace NIVUR {

Runnable::~Runnable() = default;

void* Runnable::getObject() {
    return nullptr;
}

std::string plainFunctionText(std::string text) {
    static constexpr char kInlineNamespace[] = "std::__cxx11::";
    static constexpr char kPlain[] = "std::";
    for (size_t at = 0; (at = text.find(kInlineNamespace, at)) != std::string::npos;) {
        text.replace(at, sizeof(kInlineNamespace) - 1, kPlain);
    }
    return text;
}

}  // namespace NIVUR
