#ifndef MIRROR_NUMBER_H
#define MIRROR_NUMBER_H

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// The number that `text` is, all of it; nothing for other text and beyond 64 bits.
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
