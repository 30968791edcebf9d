#include <glib.h>
#include <nivur/dictionary.h>

#include <map>
#include <nlohmann/json.hpp>
#include <variant>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("dictionary");

struct NivurRecord {
    static std::string name() { return "nivur"; }
    void set(const std::string& key, long long value) { record.setInteger(key, value); }
    void set(const std::string& key, const std::string& value) { record.setString(key, value); }
    long long integer(const std::string& key) const { return record.getInteger(key); }
    std::string string(const std::string& key) const { return record.getString(key); }
    std::vector<std::string> keys() const { return record.allKeys(); }
    NIVUR::Dictionary record;
};

struct NlohmannRecord {
    static std::string name() { return "nlohmann::json"; }
    template <class Value>
    void set(const std::string& key, const Value& value) {
        record[key] = value;
    }
    long long integer(const std::string& key) const { return record.at(key).get<long long>(); }
    std::string string(const std::string& key) const { return record.at(key).get<std::string>(); }
    std::vector<std::string> keys() const {
        std::vector<std::string> all;
        for (const auto& item : record.items()) {
            all.push_back(item.key());
        }
        return all;
    }
    nlohmann::json record = nlohmann::json::object();
};

struct VariantRecord {
    static std::string name() { return "std::map of std::variant"; }
    template <class Value>
    void set(const std::string& key, const Value& value) {
        record.insert_or_assign(key, value);
    }
    long long integer(const std::string& key) const {
        return std::get<long long>(record.find(key)->second);
    }
    std::string string(const std::string& key) const {
        return std::get<std::string>(record.find(key)->second);
    }
    std::vector<std::string> keys() const {
        std::vector<std::string> all;
        for (const auto& item : record) {
            all.push_back(item.first);
        }
        return all;
    }
    std::map<std::string, std::variant<long long, std::string, long double, bool>> record;
};

/// A hash table without an order, which cannot be copied and lists its keys only when it is
/// destroyed.
class GlibRecord {
  public:
    static std::string name() { return "GLib's GVariantDict"; }
    GlibRecord() { g_variant_dict_init(&_record, nullptr); }
    ~GlibRecord() { g_variant_dict_clear(&_record); }
    void set(const std::string& key, long long value) {
        g_variant_dict_insert_value(&_record, key.c_str(), g_variant_new_int64(value));
    }
    void set(const std::string& key, const std::string& value) {
        g_variant_dict_insert_value(&_record, key.c_str(), g_variant_new_string(value.c_str()));
    }
    long long integer(const std::string& key) {
        gint64 value = 0;
        g_variant_dict_lookup(&_record, key.c_str(), "x", &value);
        return value;
    }
    std::string string(const std::string& key) {
        const char* value = nullptr;
        g_variant_dict_lookup(&_record, key.c_str(), "&s", &value);
        return value;
    }

  private:
    GVariantDict _record;
};

/// Keys in random order.
std::vector<std::string> makeKeys(size_t count) {
    std::vector<std::string> keys;
    for (size_t i = 0; i < count; ++i) {
        keys.push_back("parameter-" + std::to_string(i * 7919 % count));
    }
    return keys;
}

/// Fills a record with numbers, and with a text for one in `textEvery` keys.
template <class Record>
void fill(Record& record, const std::vector<std::string>& keys, size_t textEvery = 2) {
    static const std::string kText = "a string of more than sixteen bytes";
    for (size_t i = 0; i < keys.size(); ++i) {
        if ((i + 1) % textEvery != 0) {
            record.set(keys[i], static_cast<long long>(i));
        } else {
            record.set(keys[i], kText);
        }
    }
}

template <class Record>
void measureGet(State& state, Peer<Record>, size_t count) {
    const auto keys = makeKeys(count);
    Record record;
    fill(record, keys);
    for (auto _ : state) {
        for (size_t i = 0; i < count; i += 2) {
            benchmark::DoNotOptimize(record.integer(keys[i]));
            benchmark::DoNotOptimize(record.string(keys[i + 1]));
        }
    }
    setItems(state, count);
}

template <class Record>
void measureKeys(State& state, Peer<Record>, size_t count) {
    Record record;
    fill(record, makeKeys(count));
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.keys());
    }
    setItems(state, count);
}

template <class Record>
void measureSet(State& state, Peer<Record>, size_t count, size_t textEvery) {
    const auto keys = makeKeys(count);
    for (auto _ : state) {
        Record record;
        fill(record, keys, textEvery);
    }
    setItems(state, count);
}

}  // namespace

void addDictionary() {
    const Peers<NivurRecord, NlohmannRecord, VariantRecord> listing;
    const Peers<NivurRecord, NlohmannRecord, VariantRecord, Other<GlibRecord>> peers;
    for (const size_t count : {10, 1000, 100000}) {
        const std::string keys = ", " + std::to_string(count) + " keys";
        kFamily.add("fill and drop" + keys, peers,
                    [=](State& state, auto peer) { measureSet(state, peer, count, 2); });
        kFamily.add("fill and drop" + keys + " of one type", peers,
                    [=](State& state, auto peer) { measureSet(state, peer, count, count + 1); });
        kFamily.add("get" + keys, peers,
                    [=](State& state, auto peer) { measureGet(state, peer, count); });
        kFamily.add("allKeys" + keys, listing,
                    [=](State& state, auto peer) { measureKeys(state, peer, count); });
    }
}

}  // namespace bench
