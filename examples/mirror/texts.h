#ifndef MIRROR_TEXTS_H
#define MIRROR_TEXTS_H

#include <nivur/dictionary.h>

#include <cstdint>
#include <optional>
#include <string>

/// The messages on the control connection: JSON objects, one per line, with a "type". protocol.md
/// lists them.
namespace mirror {

/// A message of that type.
NIVUR::Dictionary makeText(const std::string& type);

/// The message that ends a transfer for this reason.
NIVUR::Dictionary makeRefusal(const std::string& reason);

/// A message as a line of JSON.
std::string toLine(const NIVUR::Dictionary& text);

/// The type of a message; "" if it has none.
std::string typeOf(const NIVUR::Dictionary& text);

/// Stores a text that may contain a file name, which can be any bytes. JSON must be UTF-8: in a
/// text that is not, `?` replaces the bytes that are not ASCII.
void setAnyString(NIVUR::Dictionary& text, const std::string& key, std::string value);

/// Stores a number as a decimal string, because nivur's JSON integers have 32 bits.
void setNumber(NIVUR::Dictionary& text, const std::string& key, uint64_t number);

/// Reads a number stored by setNumber(); nullopt if there is none.
std::optional<uint64_t> getNumber(const NIVUR::Dictionary& text, const std::string& key);

/// Makes a peer's text safe for a terminal: limits its length, and replaces control characters,
/// marks that change the writing direction, and invalid UTF-8 with question marks.
std::string printable(const std::string& text);

}  // namespace mirror

#endif
