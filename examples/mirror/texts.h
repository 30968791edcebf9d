#ifndef MIRROR_TEXTS_H
#define MIRROR_TEXTS_H

#include <nivur/dictionary.h>

#include <cstdint>
#include <optional>
#include <string>

/// What the two ends tell each other on the control connection: JSON texts, a line each, with a
/// "type". protocol.md lists them.
namespace mirror {

/// A text of that type.
NIVUR::Dictionary makeText(const std::string& type);

/// The text that ends a transfer, and why.
NIVUR::Dictionary makeRefusal(const std::string& reason);

/// A text as it travels.
std::string toLine(const NIVUR::Dictionary& text);

/// The type of a text; "" when it has none.
std::string typeOf(const NIVUR::Dictionary& text);

/// Stores text that may hold a file's name, which can be any bytes: JSON carries UTF-8 alone, and
/// of other text only the ASCII characters travel.
void setAnyString(NIVUR::Dictionary& text, const std::string& key, std::string value);

/// Numbers travel as decimal strings: JSON integers are written in 32 bits.
void setNumber(NIVUR::Dictionary& text, const std::string& key, uint64_t number);

/// The number that was stored so; nothing when there is none.
std::optional<uint64_t> getNumber(const NIVUR::Dictionary& text, const std::string& key);

/// Text that a peer has chosen, fit for a terminal: UTF-8 without control characters or marks that
/// change the direction of writing, and not endless. A question mark stands for what is left out.
std::string printable(const std::string& text);

}  // namespace mirror

#endif
