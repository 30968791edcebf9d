#ifndef NIVUR_PRIVATE_DICTIONARY_ENTRIES_H
#define NIVUR_PRIVATE_DICTIONARY_ENTRIES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "dictionary.h"

namespace NIVUR {

// The entries of a record are in blocks of up to 64, each one allocation. Most records have one:
//
//   _blocks -> | _count 3, _capacity 6, ... | hashes 7 4 9 - - - | order 1 0 2 - - - |
//              | "m" | "a" | "z" |  -  |  -  |  -  |                (entries, as they came)
//
// A key is found by its hash of one byte. Adding an entry moves only bytes of the order. A full
// block is replaced by one of twice its size; at 64 it is split into halves, or, if the new key is
// the record's last, followed by an empty block. Several blocks are chained in the order of their
// keys, and the first has a tree that finds the block for a key:
//
//   _blocks -> | ..."f" | -> | "g"... | -> | "q"... |     _index: "g" -> 2nd, "q" -> 3rd
//
// So operations take logarithmic time, whatever keys are chosen and in which order they come.

/// A key and its value.
struct Dictionary::Entry {
    /// Every type of value, in the order of allKeys().
    using Value =
        std::variant<std::string, long long, long double, bool, Dictionary,
                     std::vector<std::string>, std::vector<long long>, std::vector<long double>,
                     std::vector<bool>, std::vector<Dictionary>>;

    std::string key;
    Value value;
};

/// Nested records that are yet to be copied, and where to.
struct Dictionary::NestedCopies : std::vector<std::pair<const Dictionary*, Dictionary*>> {};

/// Of a key's length and up to eight bytes at either end.
std::uint8_t hashOf(std::string_view key);

/// Entries with neighbouring keys.
class Dictionary::Block {
  public:
    static constexpr unsigned int kMost = 64;

    static void* operator new(std::size_t size, unsigned int capacity);
    static void operator delete(void* block) { ::operator delete(block); }
    static void operator delete(void* block, unsigned int /*capacity*/) {
        ::operator delete(block);
    }

    explicit Block(unsigned int capacity) noexcept;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block();

    unsigned int count() const { return _count; }
    unsigned int capacity() const { return _capacity; }

    /// The entry at a place in the order of the keys.
    Entry& operator[](unsigned int place) { return _entries[order()[place]]; }
    const Entry& operator[](unsigned int place) const { return _entries[order()[place]]; }

    /// The entry of a key; null if there is none.
    Entry* find(std::string_view key) const;

    /// The place of the first key that is not less.
    unsigned int placeOf(std::string_view key) const;

    /// Adds an entry at its place. There is room for it.
    template <class Value>
    Value& insert(unsigned int place, std::string_view key, Value&& value);

    void erase(unsigned int place);

    /// Takes all entries of a smaller block; this one is empty.
    void take(Block& smaller) noexcept;

    /// Moves the entries from a place on to a block that is empty and no smaller.
    void split(unsigned int place, Block& upper) noexcept;

    /// Moves what the nested records hold to the front of `list`.
    void unlinkNested(Block*& list);

    /// With greater keys; once the record is destroyed, of any record.
    alignas(Entry) Block* _next = nullptr;

    // Of the record, in its first block.
    std::unique_ptr<std::map<std::string, Block*, std::less<>>> _index;  // null if that is the only
    std::uint32_t _size = 0;                                             // of all blocks

  private:
    static std::size_t sizeOfBytes(std::size_t capacity);
    std::uint8_t* hashes() const {
        return reinterpret_cast<std::uint8_t*>(const_cast<Block*>(this) + 1);  // NOLINT
    }
    std::uint8_t* order() const { return hashes() + _capacity; }
    void addToOrder(unsigned int place, std::uint8_t hash) noexcept;

    Entry* const _entries;
    std::uint8_t _count = 0;
    const std::uint8_t _capacity;
};

/// Where an entry is to be added.
struct Dictionary::Place {
    Block* block;
    unsigned int place;
};

/// Goes through the entries of a record, which does not change meanwhile, in the order of
/// allKeys(): once for each type that it holds.
class Dictionary::Walk {
  public:
    explicit Walk(const Dictionary& record) : _first(record._blocks.get()), _block(_first) {}

    /// The next entry; null after the last.
    const Entry* next();

  private:
    static constexpr std::size_t kTypes = std::variant_size_v<Entry::Value>;

    const Block* const _first;
    const Block* _block;
    unsigned int _place = 0;
    std::size_t _type = 0;
    std::size_t _nextType = kTypes;  // the least that is above _type and was met
};

template <class Value>
Value& Dictionary::Block::insert(unsigned int place, std::string_view key, Value&& value) {
    Entry* const entry = new (_entries + _count)
        Entry{std::string(key), Entry::Value(std::in_place_type<Value>, std::move(value))};
    addToOrder(place, hashOf(key));
    return *std::get_if<Value>(&entry->value);
}

/// Stores a value, in place of what the key held.
template <class Value>
Value& Dictionary::put(std::string_view key, Value&& value) {
    Block* const block = blockOf(key);
    if (Entry* const entry = block != nullptr ? block->find(key) : nullptr) {
        return entry->value.emplace<Value>(std::move(value));
    }
    const Place place = makeRoom(block, key);
    Value& stored = place.block->insert(place.place, key, std::move(value));
    ++_blocks->_size;
    return stored;
}

}  // namespace NIVUR

#endif
