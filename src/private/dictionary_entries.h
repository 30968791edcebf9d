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

// A record keeps its entries in blocks of up to 64. Each block is one allocation, and most records
// have a single block:
//
//   _blocks -> | count 3, capacity 6, ... | hashes 7 4 9 - - - | order 1 0 2 - - - |
//              | "m" | "a" | "z" |  -  |  -  |  -  |          (entries, in order of insertion)
//
// A lookup compares the key's hash of one byte with all hashes of the block. An insertion moves no
// entry, only bytes of the order. A full block is replaced by one of twice its capacity. At 64,
// half of its entries move to a new block; if the new key is the record's greatest, none do, and
// the new block holds that key alone. Several blocks are chained in the order of their keys, and
// the first block has an index that maps the least key of each other block to that block:
//
//   _blocks -> | ..."f" | -> | "g"... | -> | "q"... |     _index: "g" -> 2nd, "q" -> 3rd
//
// Every operation on a key takes logarithmic time, for any keys in any order. Listing 10 keys takes
// 8 ns, where a std::map takes 19 ns (docs/performance.md, "allKeys, 10 keys").

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

/// Up to 64 entries with neighbouring keys.
class Dictionary::Block {
  public:
    static constexpr unsigned int kMost = 64;

    /// An empty block.
    static Blocks make(unsigned int capacity);
    /// Deletes the blocks of a list and all nested records.
    static void deleteAll(Block* list) noexcept;

    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    unsigned int count() const { return _count; }
    unsigned int capacity() const { return _capacity; }

    /// The entry at a position in the order of the keys.
    Entry& operator[](unsigned int position) { return _entries[order()[position]]; }
    const Entry& operator[](unsigned int position) const { return _entries[order()[position]]; }

    /// The entry of a key; null if there is none.
    Entry* find(std::string_view key) const;

    /// Whether all keys are less.
    bool endsBefore(std::string_view key) const {
        return _count == 0 || (*this)[_count - 1U].key < key;
    }

    /// The position of the first key that is not less.
    unsigned int positionOf(std::string_view key) const;

    /// Inserts an entry at its position. The block must not be full.
    template <class Value>
    Value& insert(unsigned int position, std::string_view key, Value value);

    void erase(unsigned int position);

    /// Moves all entries of a smaller block to this one, which is empty.
    void take(Block& smaller) noexcept;

    /// Moves the entries from `position` on to `upper`, which is empty and has room for them.
    void split(unsigned int position, Block& upper) noexcept;

    /// The block with the next greater keys. deleteAll() links other blocks by it, too.
    alignas(Entry) Block* _next = nullptr;

    // Of the whole record; used in its first block only.
    std::unique_ptr<std::map<std::string, Block*, std::less<>>> _index;  // null: never split
    std::uint32_t _size = 0;

  private:
    explicit Block(unsigned int capacity) noexcept;
    ~Block();
    static std::size_t sizeOfBytes(std::size_t capacity);
    std::uint8_t* hashes() const {  // in the order of the entries
        return reinterpret_cast<std::uint8_t*>(const_cast<Block*>(this) + 1);
    }
    std::uint8_t* order() const { return hashes() + _capacity; }
    void addToOrder(unsigned int position, std::uint8_t hash) noexcept;
    void unlinkNested(Block*& list);

    Entry* const _entries;
    std::uint8_t _count = 0;
    const std::uint8_t _capacity;
};

/// The operations on the entries of a record. They throw std::bad_alloc only; put() then leaves the
/// entries unchanged.
class Dictionary::Entries {
  public:
    class Walk;

    explicit Entries(Dictionary& record) : _blocks(record._blocks) {}

    /// The entry of a key; null if there is none.
    static const Entry* find(const Dictionary& record, std::string_view key);

    /// Returns a copy of the key's value; an empty value if it is of another type or absent.
    template <class Value>
    static Value get(const Dictionary& record, std::string_view key);

    /// Stores a value and replaces the one that the key held. The result is valid until the next
    /// change of the record.
    template <class Value>
    Value& put(std::string_view key, Value value);

    void erase(std::string_view key);

    /// Copies the entries of another record into this one, which is empty.
    void copy(const Dictionary& from);

  private:
    struct Position {
        Block* block;
        unsigned int inBlock;
    };
    /// Nested records that are still to be copied, and their copies.
    using Pending = std::vector<std::pair<const Dictionary*, Dictionary*>>;

    static Block* blockOf(const Dictionary::Blocks& blocks, std::string_view key);
    Block* blockForNew(std::string_view key);
    Position makeRoom(Position position, std::string_view key);
    Block* grow();
    Position split(Position position, std::string_view key);
    void removeBlock(std::string_view key);
    void copyFlat(const Dictionary& from, Pending& pending);
    static void copyEntry(const Entry& entry, const Position& to, Pending& pending);

    Dictionary::Blocks& _blocks;
};

/// Visits the entries of a record in the order of allKeys(), in one pass for each type that occurs.
/// The record must not change meanwhile.
class Dictionary::Entries::Walk {
  public:
    explicit Walk(const Dictionary& record) : _first(record._blocks.get()), _block(_first) {}

    /// The next entry; null after the last.
    const Entry* next();

  private:
    static constexpr std::size_t kTypes = std::variant_size_v<Entry::Value>;

    const Block* const _first;
    const Block* _block;
    unsigned int _position = 0;
    std::size_t _type = 0;
    std::size_t _nextType = kTypes;  // the least type above _type that this pass has met
};

/// A hash of one byte, of the key's length and up to eight bytes at either end.
std::uint8_t hashOf(std::string_view key);

template <class Value>
Value& Dictionary::Block::insert(unsigned int position, std::string_view key, Value value) {
    Entry* const entry = new (_entries + _count)
        Entry{std::string(key), Entry::Value(std::in_place_type<Value>, std::move(value))};
    addToOrder(position, hashOf(key));
    return *std::get_if<Value>(&entry->value);
}

template <class Value>
Value Dictionary::Entries::get(const Dictionary& record, std::string_view key) {
    const Entry* const entry = find(record, key);
    const Value* const value = entry != nullptr ? std::get_if<Value>(&entry->value) : nullptr;
    return value != nullptr ? *value : Value();
}

template <class Value>
Value& Dictionary::Entries::put(std::string_view key, Value value) {
    Block* const block = blockForNew(key);
    const bool isLast = block->_next == nullptr && block->endsBefore(key);
    if (Entry* const entry = isLast ? nullptr : block->find(key)) {
        return entry->value.emplace<Value>(std::move(value));
    }
    const Position position =
        makeRoom({block, isLast ? block->count() : block->positionOf(key)}, key);
    Value& stored = position.block->insert(position.inBlock, key, std::move(value));
    ++_blocks->_size;
    return stored;
}

}  // namespace NIVUR

#endif
