#ifndef NIVUR_PRIVATE_JSON_BYTES_H
#define NIVUR_PRIVATE_JSON_BYTES_H

#include <cstdint>

/// Bytes and escapes in JSON strings. All texts end with a NUL.
namespace NIVUR::json {

/// The bytes for which a backslash and the letter at the same index stand.
constexpr char kEscapedBytes[] = "\"\\\b\f\n\r\t/";
constexpr char kEscapeLetters[] = "\"\\bfnrt/";

inline bool isAscii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// Returns whether a byte stands for itself, whatever its neighbours are.
inline bool isPlain(char byte) {
    return static_cast<unsigned char>(byte) - 0x20U < 0x60 && byte != '"' && byte != '\\';
}

/// Loads eight bytes, the first as the lowest.
inline std::uint64_t loadBytes(const char* text) {
    const auto byte = [text](int i) {
        return static_cast<std::uint64_t>(static_cast<unsigned char>(text[i])) << (8 * i);
    };
    return byte(0) | byte(1) | byte(2) | byte(3) | byte(4) | byte(5) | byte(6) | byte(7);
}

/// Returns a word in which the highest bit of each byte that is not plain is set, up to the first
/// such byte; later bits may be wrong.
inline std::uint64_t notPlain(std::uint64_t bytes) {
    constexpr std::uint64_t kEach = 0x0101010101010101;
    const std::uint64_t control = bytes - kEach * 0x20;
    const std::uint64_t quote = (bytes ^ (kEach * '"')) - kEach;
    const std::uint64_t backslash = (bytes ^ (kEach * '\\')) - kEach;
    return (bytes | control | quote | backslash) & (kEach * 0x80);
}

/// Returns the first byte from `text` on that is not plain. Bytes before `limit` may be read.
inline const char* plainEnd(const char* text, const char* limit) {
    for (; limit - text >= 8; text += 8) {
        if (const std::uint64_t found = notPlain(loadBytes(text))) {
            return text + __builtin_ctzll(found) / 8;
        }
    }
    while (isPlain(*text)) {
        ++text;
    }
    return text;
}

/// Returns the length of the UTF-8 sequence (RFC 3629: nothing overlong, no surrogates, nothing
/// beyond U+10FFFF) of two bytes or more at the start of `text`; 0 if there is none.
inline unsigned int utf8Length(const char* text) {
    const auto* const byte = reinterpret_cast<const unsigned char*>(text);
    const unsigned int lead = byte[0];
    const unsigned int least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned int most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (lead < 0xC2 || lead > 0xF4 || byte[1] < least || byte[1] > most) {
        return 0;
    }
    const unsigned int length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    for (unsigned int i = 2; i < length; ++i) {
        if ((byte[i] & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

}  // namespace NIVUR::json

#endif
