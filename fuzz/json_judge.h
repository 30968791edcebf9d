#ifndef NIVUR_FUZZ_JSON_JUDGE_H
#define NIVUR_FUZZ_JSON_JUDGE_H

#include <nivur/dictionary.h>

#include <string>
#include <vector>

/// Records and JSON by way of jansson, whose choice of texts, messages and bytes is the library's.
namespace judge {

/// What deserialize() and deserializeArray() are to give, and why they are to refuse the text: ""
/// if they are not.
struct Reading {
    NIVUR::Dictionary record;
    std::vector<NIVUR::Dictionary> records;
    std::string error;
};
Reading read(const std::string& text);

/// Whether `written` is what serialize() is to give; of a jansson that writes fewer digits, whether
/// it has the same values.
bool writes(const NIVUR::Dictionary& record, const std::string& written);

}  // namespace judge

#endif
