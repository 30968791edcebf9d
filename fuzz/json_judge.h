#ifndef NIVUR_FUZZ_JSON_JUDGE_H
#define NIVUR_FUZZ_JSON_JUDGE_H

#include <nivur/dictionary.h>

#include <string>
#include <vector>

/// Reads and writes records as JSON with jansson, which defines the accepted texts, the messages
/// and the written bytes of the library.
namespace judge {

/// The expected results of deserialize() and deserializeArray(), and the expected messages if they
/// refuse the text, otherwise "".
struct Reading {
    NIVUR::Dictionary record;
    std::vector<NIVUR::Dictionary> records;
    std::string error;
};
Reading read(const std::string& text);

/// Returns whether `written` is what serialize() is to return; with a jansson that writes fewer
/// digits, whether it has the same values.
bool writes(const NIVUR::Dictionary& record, const std::string& written);

}  // namespace judge

#endif
