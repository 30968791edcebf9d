#include "texts.h"

#include <nivur/serialization.h>

#include <algorithm>
#include <iterator>

#include "number.h"

using NIVUR::Dictionary;
using NIVUR::Serialization;

namespace mirror {

Dictionary makeText(const std::string& type) {
    Dictionary text;
    text.setString("type", type);
    return text;
}

Dictionary makeRefusal(const std::string& reason) {
    Dictionary text = makeText("refuse");
    setAnyString(text, "reason", reason);
    return text;
}

std::string toLine(const Dictionary& text) {
    return Serialization::serialize(text) + "\n";
}

void setAnyString(Dictionary& text, const std::string& key, std::string value) {
    text.setString(key, value);
    if (Serialization::deserialize(Serialization::serialize(text)).getString(key) != value) {
        std::replace_if(
            value.begin(), value.end(), [](unsigned char byte) { return byte > '~'; }, '?');
        text.setString(key, value);
    }
}

std::string typeOf(const Dictionary& text) {
    return text.getString("type");
}

void setNumber(Dictionary& text, const std::string& key, uint64_t number) {
    text.setString(key, std::to_string(number));
}

std::optional<uint64_t> getNumber(const Dictionary& text, const std::string& key) {
    return toNumber(text.getString(key));
}

namespace {

struct Character {
    uint32_t code;  // 0: invalid UTF-8
    size_t size;
};

Character decode(const char* bytes, size_t size) {
    const auto lead = static_cast<unsigned char>(bytes[0]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (length == 0 || length > size || lead > 0xf4) {
        return {0, 1};
    }
    uint32_t code = length == 1 ? lead : lead & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if ((byte & 0xc0U) != 0x80) {
            return {0, 1};
        }
        code = code << 6 | (byte & 0x3fU);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    return {code < kLeast[length] ? 0 : code, length};
}

/// Whether a character is printable and does not affect how its neighbours are shown.
bool isHarmless(uint32_t code) {
    constexpr struct {
        uint32_t first;
        uint32_t last;
    } kHarmful[] = {{0, 0x1f},        {0x7f, 0x9f},     {0xad, 0xad},         {0x61c, 0x61c},
                    {0x200b, 0x200f}, {0x2028, 0x202e}, {0x2060, 0x206f},     {0xd800, 0xdfff},
                    {0xfeff, 0xfeff}, {0xfff0, 0xffff}, {0xe0000, UINT32_MAX}};
    return std::none_of(std::begin(kHarmful), std::end(kHarmful), [code](const auto& range) {
        return code >= range.first && code <= range.last;
    });
}

}  // namespace

std::string printable(const std::string& text) {
    constexpr size_t kMaxLength = 300;
    std::string result;
    for (size_t i = 0; i < text.size() && result.size() < kMaxLength;) {
        const Character character = decode(text.data() + i, text.size() - i);
        result += isHarmless(character.code) ? text.substr(i, character.size) : "?";
        i += character.size;
    }
    return result;
}

}  // namespace mirror
