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

/// Keys in an order of chance.
std::vector<std::string> makeKeys(size_t count) {
    std::vector<std::string> keys;
    for (size_t i = 0; i < count; ++i) {
        keys.push_back("parameter-" + std::to_string(i * 7919 % count));
    }
    return keys;
}

/// Numbers, and a text for each so many of the keys.
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
void measureGet(State& state, size_t count) {
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
void measureKeys(State& state, size_t count) {
    Record record;
    fill(record, makeKeys(count));
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.keys());
    }
    setItems(state, count);
}

template <class Record>
void measureSet(State& state, size_t count, size_t textEvery) {
    const auto keys = makeKeys(count);
    for (auto _ : state) {
        Record record;
        fill(record, keys, textEvery);
    }
    setItems(state, count);
}

}  // namespace

void addDictionary() {
    const Peers<NivurRecord, NlohmannRecord, VariantRecord> peers;
    for (const size_t count : {10, 1000, 100000}) {
        const std::string keys = ", " + std::to_string(count) + " keys";
        kFamily.add("fill and drop" + keys, peers, [=](State& state, auto peer) {
            measureSet<typename decltype(peer)::Type>(state, count, 2);
        });
        kFamily.add("fill and drop" + keys + " of one type", peers, [=](State& state, auto peer) {
            measureSet<typename decltype(peer)::Type>(state, count, count + 1);
        });
        kFamily.add("get" + keys, peers, [=](State& state, auto peer) {
            measureGet<typename decltype(peer)::Type>(state, count);
        });
        kFamily.add("allKeys" + keys, peers, [=](State& state, auto peer) {
            measureKeys<typename decltype(peer)::Type>(state, count);
        });
    }
}

}  // namespace bench
