#ifndef MIRROR_NUMBER_H
#define MIRROR_NUMBER_H

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// Parses a whole text as a decimal number of up to 64 bits; nullopt for other text.
inline std::optional<uint64_t> toNumber(const std::string& text) {
    uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

}  // namespace mirror

#endif
