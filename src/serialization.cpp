#include "serialization.h"

#include <exception>
#include <string>
#include <vector>

#include "log.h"
#include "private/json_reader.h"
#include "private/json_writer.h"

namespace NIVUR {

namespace {

constexpr char kNoMemory[] = "memory exhausted";

// Readers and writers throw only when memory or the maximum size of a string is exhausted
// (std::bad_alloc, std::length_error).

template <class Value>
std::string textOf(const Value& value) {
    JsonWriter writer;
    std::string text;
    const char* error = nullptr;
    try {
        text = writer.write(value);
    } catch (const std::exception&) {
        error = kNoMemory;
    }
    if (error != nullptr) {
        Log::log("NIVUR", LOG_ERROR, "JSON writing error: %s", error);
    } else if (writer.isTooDeep()) {
        Log::log("NIVUR", LOG_ERROR, "JSON nesting error: more than %u levels",
                 JsonWriter::kMaxLevels);
    }
    return text;
}

/// Returns what `text` describes. On failure returns an empty value and passes the reason to
/// report().
template <class Value, class Report>
Value valueOf(const std::string& text, Report report) {
    JsonReader reader(text);
    Value value;
    const char* error = kNoMemory;
    try {
        error = reader.read(value) ? nullptr : reader.error();
    } catch (const std::exception&) {
    }
    if (error != nullptr) {
        value = Value();
        report(error);
    }
    return value;
}

}  // namespace

std::string Serialization::serialize(const Dictionary& dictionary) {
    return textOf(dictionary);
}

std::string Serialization::serializeArray(const std::vector<Dictionary>& dictionaries) {
    return textOf(dictionaries);
}

Dictionary Serialization::deserialize(const std::string& text) {
    return valueOf<Dictionary>(text, [&text](const char* /*error*/) {
        Log::log("NIVUR", LOG_ERROR, "JSON parsing error: %s", text.c_str());
    });
}

std::vector<Dictionary> Serialization::deserializeArray(const std::string& text) {
    return valueOf<std::vector<Dictionary>>(text, [](const char* error) {
        Log::log("NIVUR", LOG_ERROR, "JSON loading error: %s", error);
    });
}

}  // namespace NIVUR
