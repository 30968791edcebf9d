#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <jansson.h>
#include <nivur/serialization.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <variant>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("json");

/// Each peer's document and the text from which it was read.
struct NivurJson {
    using Document = NIVUR::Dictionary;
    static std::string name() { return "nivur"; }
    static Document read(const std::string& text) {
        return NIVUR::Serialization::deserialize(text);
    }
    static std::string write(const Document& document) {
        return NIVUR::Serialization::serialize(document);
    }
};

struct JanssonJson {
    struct Release {
        void operator()(json_t* json) const { ::json_decref(json); }
        void operator()(char* text) const { ::free(text); }
    };
    using Document = std::unique_ptr<json_t, Release>;
    static std::string name() { return "jansson"; }
    static Document read(const std::string& text) {
        return Document(::json_loads(text.c_str(), 0, nullptr));
    }
    static std::string write(const Document& document) { return print(document.get()); }
    static std::string print(const json_t* json) {
        const std::unique_ptr<char, Release> text(::json_dumps(json, 0));
        return text.get();
    }
};

/// The code that a user of jansson writes to convert its values to C++ values and back.
struct ConvertedJson {
    struct Value;
    using Array = std::vector<Value>;
    using Object = std::map<std::string, Value>;
    struct Value {
        std::variant<bool, long long, double, std::string, Array, Object> held;
    };
    using Document = Value;
    static std::string name() { return "jansson, converted"; }

    static Document read(const std::string& text) {
        return fromJson(JanssonJson::read(text).get());
    }
    static std::string write(const Document& document) {
        return JanssonJson::print(JanssonJson::Document(std::visit(ToJson(), document.held)).get());
    }

  private:
    static Value fromJson(json_t* json) {
        switch (json_typeof(json)) {
            case JSON_OBJECT: {
                Object object;
                const char* key = nullptr;
                json_t* member = nullptr;
                json_object_foreach(json, key, member) {
                    object.emplace(key, fromJson(member));
                }
                return {std::move(object)};
            }
            case JSON_ARRAY: {
                Array array;
                for (size_t i = 0; i < ::json_array_size(json); ++i) {
                    array.push_back(fromJson(::json_array_get(json, i)));
                }
                return {std::move(array)};
            }
            case JSON_STRING:
                return {std::string(::json_string_value(json))};
            case JSON_INTEGER:
                return {static_cast<long long>(::json_integer_value(json))};
            case JSON_REAL:
                return {::json_real_value(json)};
            default:
                return {json_is_true(json)};
        }
    }

    struct ToJson {
        json_t* operator()(bool value) const { return json_boolean(value); }
        json_t* operator()(long long value) const { return ::json_integer(value); }
        json_t* operator()(double value) const { return ::json_real(value); }
        json_t* operator()(const std::string& value) const { return ::json_string(value.c_str()); }
        json_t* operator()(const Array& values) const {
            json_t* array = ::json_array();
            for (const Value& value : values) {
                ::json_array_append_new(array, std::visit(*this, value.held));
            }
            return array;
        }
        json_t* operator()(const Object& members) const {
            json_t* object = ::json_object();
            for (const auto& [key, value] : members) {
                ::json_object_set_new(object, key.c_str(), std::visit(*this, value.held));
            }
            return object;
        }
    };
};

struct RapidJson {
    using Document = rapidjson::Document;
    static std::string name() { return "RapidJSON"; }
    static Document read(const std::string& text) {
        Document document;
        document.Parse(text.c_str(), text.size());
        return document;
    }
    static std::string write(const Document& document) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        return {buffer.GetString(), buffer.GetSize()};
    }
};

struct PocoJson {
    using Document = Poco::Dynamic::Var;
    static std::string name() { return "POCO"; }
    static Document read(const std::string& text) { return Poco::JSON::Parser().parse(text); }
    static std::string write(const Document& document) {
        std::ostringstream text;
        Poco::JSON::Stringifier::stringify(document, text);
        return text.str();
    }
};

struct NlohmannJson {
    using Document = nlohmann::json;
    static std::string name() { return "nlohmann::json"; }
    static Document read(const std::string& text) { return nlohmann::json::parse(text); }
    static std::string write(const Document& document) { return document.dump(); }
};

/// A list of settings of about 1 KB.
nlohmann::json flat() {
    nlohmann::json document;
    for (int i = 0; i < 12; ++i) {
        const std::string number = std::to_string(i);
        document["name-" + number] = "the value of setting " + number;
        document["width-" + number] = 1920 + i;
        document["rate-" + number] = 29.97 + i;
        document["enabled-" + number] = i % 2 == 0;
    }
    return document;
}

/// A tree of about 50 KB: three branches at each of seven levels.
nlohmann::json deep(int levels = 7) {
    nlohmann::json node = {{"id", levels}, {"name", "node"}, {"visible", true}};
    for (const char* branch : {"first", "second", "third"}) {
        if (levels > 1) {
            node[branch] = deep(levels - 1);
        }
    }
    return node;
}

/// Measurements of about 0.8 MB.
nlohmann::json arrays() {
    nlohmann::json document;
    for (int i = 0; i < 20000; ++i) {
        document["times"].push_back(1000000 + i * 40);
        document["values"].push_back(i * 0.25 + 0.125);
        document["labels"].push_back("label " + std::to_string(i));
    }
    for (int i = 0; i < 5000; ++i) {
        document["frames"].push_back(
            {{"sequence", i}, {"key", i % 30 == 0}, {"bytes", i * 7 % 1500}});
    }
    return document;
}

template <class Json>
void measureRead(State& state, Peer<Json>, const std::string& text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Json::read(text));
    }
}

template <class Json>
void measureWrite(State& state, Peer<Json>, const std::string& text) {
    const typename Json::Document document = Json::read(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Json::write(document));
    }
}

void addDocument(const char* kind, const std::string& text) {
    const Peers<NivurJson, ConvertedJson, JanssonJson, RapidJson, NlohmannJson, PocoJson> peers;
    const std::string size = ", " + std::string(kind) + ", " + std::to_string(text.size()) + " B";
    kFamily.add("read" + size, peers,
                [=](State& state, auto peer) { measureRead(state, peer, text); });
    kFamily.add("write" + size, peers,
                [=](State& state, auto peer) { measureWrite(state, peer, text); });
}

}  // namespace

void addJson() {
    addDocument("flat", flat().dump());
    addDocument("deep", deep().dump());
    addDocument("arrays", arrays().dump());
}

}  // namespace bench
