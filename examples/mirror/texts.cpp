#include "texts.h"

#include <nivur/serialization.h>

#include <algorithm>

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

std::string printable(std::string text) {
    constexpr size_t kMaxLength = 300;
    text.resize(std::min(text.size(), kMaxLength));
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char character) { return character < ' ' || character == 0x7f; }, '?');
    return text;
}

}  // namespace mirror
