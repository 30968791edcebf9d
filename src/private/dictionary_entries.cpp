#include "private/dictionary_entries.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <type_traits>

namespace NIVUR {

namespace {

constexpr unsigned int kFew = 3;  // the capacity of the first block

template <class Word>
std::uint64_t load(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

template <class Entry>
void relocate(Entry& from, Entry* to) noexcept {  // a template, as Entry is private
    new (to) Entry(std::move(from));
    std::destroy_at(&from);
}

}  // namespace

std::uint8_t hashOf(std::string_view key) {
    const char* const end = key.data() + key.size();
    std::uint64_t hash = key.size();
    if (key.size() >= 8) {
        hash += load<std::uint64_t>(key.data()) * 3 + load<std::uint64_t>(end - 8);
    } else if (key.size() >= 4) {
        hash += load<std::uint32_t>(key.data()) * 3 + (load<std::uint32_t>(end - 4) << 32);
    } else {
        for (const char byte : key) {
            hash = (hash << 8) + static_cast<unsigned char>(byte);
        }
    }
    constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15;  // Fibonacci hashing, Knuth 6.4
    return static_cast<std::uint8_t>(hash * kGoldenRatio >> 56);
}

Dictionary::Blocks Dictionary::Block::make(unsigned int capacity) {
    static_assert(alignof(Block) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    static_assert(std::is_nothrow_move_constructible_v<Entry>);
    void* const memory =
        ::operator new(sizeof(Block) + sizeOfBytes(capacity) + capacity * sizeof(Entry));
    return Blocks(new (memory) Block(capacity));
}

// Nested records are destroyed one after the other, not each inside its parent's destructor: the
// depth of nesting is unlimited, and each level would cost stack.
void Dictionary::Block::deleteAll(Block* list) noexcept {
    while (list != nullptr) {
        Block* const block = list;
        list = block->_next;
        block->unlinkNested(list);
        block->~Block();
        ::operator delete(block);
    }
}

/// The size of the hashes and the order, rounded up so that the entries after them are aligned.
std::size_t Dictionary::Block::sizeOfBytes(std::size_t capacity) {
    return (2 * capacity + alignof(Entry) - 1) / alignof(Entry) * alignof(Entry);
}

Dictionary::Block::Block(unsigned int capacity) noexcept
    : _entries(static_cast<Entry*>(static_cast<void*>(hashes() + sizeOfBytes(capacity)))),
      _capacity(static_cast<std::uint8_t>(capacity)) {}

Dictionary::Block::~Block() {
    std::destroy_n(_entries, _count);
}

Dictionary::Entry* Dictionary::Block::find(std::string_view key) const {
    const std::uint8_t hash = hashOf(key);
    const std::uint8_t* next = hashes();
    const std::uint8_t* const end = next + _count;
    while (next < end) {
        const void* const found = std::memchr(next, hash, static_cast<std::size_t>(end - next));
        if (found == nullptr) {
            break;
        }
        next = static_cast<const std::uint8_t*>(found);
        Entry* const entry = _entries + (next++ - hashes());
        if (entry->key == key) {
            return entry;
        }
    }
    return nullptr;
}

unsigned int Dictionary::Block::positionOf(std::string_view key) const {
    unsigned int begin = 0;
    unsigned int end = _count;
    while (begin < end) {
        const unsigned int middle = (begin + end) / 2;
        if (key.compare((*this)[middle].key) <= 0) {
            end = middle;
        } else {
            begin = middle + 1;
        }
    }
    return begin;
}

void Dictionary::Block::addToOrder(unsigned int position, std::uint8_t hash) noexcept {
    std::uint8_t* const order = this->order();
    if (position < _count) {
        std::memmove(order + position + 1, order + position, _count - position);
    }
    hashes()[_count] = hash;
    order[position] = _count++;
}

void Dictionary::Block::erase(unsigned int position) {
    std::uint8_t* const order = this->order();
    const std::uint8_t slot = order[position];
    const std::uint8_t last = --_count;
    std::memmove(order + position, order + position + 1, last - position);
    std::destroy_at(_entries + slot);
    if (slot != last) {
        relocate(_entries[last], _entries + slot);
        hashes()[slot] = hashes()[last];
        *std::find(order, order + last, last) = slot;
    }
}

void Dictionary::Block::take(Block& smaller) noexcept {
    std::memcpy(hashes(), smaller.hashes(), smaller._count);
    std::memcpy(order(), smaller.order(), smaller._count);
    for (; _count < smaller._count; ++_count) {
        relocate(smaller._entries[_count], _entries + _count);
    }
    smaller._count = 0;
}

void Dictionary::Block::split(unsigned int position, Block& upper) noexcept {
    std::uint8_t* const order = this->order();
    for (unsigned int moved = position; moved < _count; ++moved) {
        relocate((*this)[moved], upper._entries + upper._count);
        upper.addToOrder(upper._count, hashes()[order[moved]]);
    }
    _count = static_cast<std::uint8_t>(position);
    const std::uint8_t* hole = order + position;
    for (std::uint8_t* slot = order; slot < order + position; ++slot) {
        if (*slot >= position) {
            while (*hole >= position) {
                ++hole;
            }
            relocate(_entries[*slot], _entries + *hole);
            hashes()[*hole] = hashes()[*slot];
            *slot = *hole++;
        }
    }
}

void Dictionary::Block::unlinkNested(Block*& list) {
    const auto unlink = [&list](Dictionary& nested) {
        if (Block* const first = nested._blocks.release()) {
            Block* last = first;
            while (last->_next != nullptr) {
                last = last->_next;
            }
            last->_next = list;
            list = first;
        }
    };
    for (Entry* entry = _entries; entry != _entries + _count; ++entry) {
        if (auto* const record = std::get_if<Dictionary>(&entry->value)) {
            unlink(*record);
        } else if (auto* const records = std::get_if<std::vector<Dictionary>>(&entry->value)) {
            std::for_each(records->begin(), records->end(), unlink);
        }
    }
}

void Dictionary::Drop::operator()(Block* blocks) const noexcept {
    Block::deleteAll(blocks);
}

/// The block that holds the key, if any does; null if there are no blocks.
Dictionary::Block* Dictionary::Entries::blockOf(const Blocks& blocks, std::string_view key) {
    Block* const first = blocks.get();
    if (first == nullptr || !first->_index) {
        return first;
    }
    const auto next = first->_index->upper_bound(key);
    return next != first->_index->begin() ? std::prev(next)->second : first;
}

const Dictionary::Entry* Dictionary::Entries::find(const Dictionary& record, std::string_view key) {
    const Block* const block = blockOf(record._blocks, key);
    return block != nullptr ? block->find(key) : nullptr;
}

/// The block that holds the key or, if none does, that a new entry of the key belongs to.
Dictionary::Block* Dictionary::Entries::blockForNew(std::string_view key) {
    if (!_blocks) {
        _blocks = Block::make(kFew);
    }
    return blockOf(_blocks, key);
}

/// Makes room for a new key at its position.
Dictionary::Entries::Position Dictionary::Entries::makeRoom(Position position,
                                                            std::string_view key) {
    if (position.block->count() == Block::kMost) {
        return split(position, key);
    }
    if (position.block->count() == position.block->capacity()) {
        return {grow(), position.inBlock};
    }
    return position;
}

/// Doubles the capacity of the only block.
Dictionary::Block* Dictionary::Entries::grow() {
    Blocks larger = Block::make(std::min(2 * _blocks->capacity(), Block::kMost));
    larger->_size = _blocks->_size;
    larger->take(*_blocks);
    _blocks = std::move(larger);
    return _blocks.get();
}

/// Inserts a block after a full one and moves half of the entries to it, or none if the key comes
/// after all others.
Dictionary::Entries::Position Dictionary::Entries::split(Position position, std::string_view key) {
    Block& full = *position.block;
    const bool isLast = full._next == nullptr && position.inBlock == Block::kMost;
    const unsigned int kept = isLast ? Block::kMost : Block::kMost / 2;
    Blocks owned = Block::make(Block::kMost);
    if (!_blocks->_index) {
        _blocks->_index = std::make_unique<std::map<std::string, Block*, std::less<>>>();
    }
    _blocks->_index->emplace(isLast ? key : full[kept].key, owned.get());
    Block* const upper = owned.release();
    upper->_next = std::exchange(full._next, upper);
    full.split(kept, *upper);
    return isLast || position.inBlock > kept ? Position{upper, position.inBlock - kept} : position;
}

void Dictionary::Entries::erase(std::string_view key) {
    Block* const block = blockOf(_blocks, key);
    if (block == nullptr || block->find(key) == nullptr) {
        return;
    }
    if (_blocks->_size == 1) {
        return _blocks.reset();
    }
    --_blocks->_size;
    block->erase(block->positionOf(key));
    if (block->count() == 0 && block != _blocks.get()) {
        removeBlock(key);
    }
}

/// Deletes the key's block, which is empty and not the first.
void Dictionary::Entries::removeBlock(std::string_view key) {
    auto& index = *_blocks->_index;
    const auto entry = std::prev(index.upper_bound(key));
    const Blocks block(entry->second);
    Block* const before = entry != index.begin() ? std::prev(entry)->second : _blocks.get();
    before->_next = std::exchange(block->_next, nullptr);
    index.erase(entry);
}

// Nested records are copied one after the other, not recursively: see deleteAll().
void Dictionary::Entries::copy(const Dictionary& from) {
    Pending pending;
    copyFlat(from, pending);
    while (!pending.empty()) {
        const auto [nested, copy] = pending.back();
        pending.pop_back();
        Entries(*copy).copyFlat(*nested, pending);
    }
}

/// Copies the entries of a record, with empty records in place of nested ones. No entry moves once
/// it is copied, since each is inserted at the end.
void Dictionary::Entries::copyFlat(const Dictionary& from, Pending& pending) {
    if (from.size() == 0) {
        return;
    }
    _blocks = Block::make(std::min(from.size(), Block::kMost));
    Position end{_blocks.get(), 0};
    for (const Block* block = from._blocks.get(); block != nullptr; block = block->_next) {
        for (unsigned int position = 0; position < block->count(); ++position) {
            const Entry& entry = (*block)[position];
            end = makeRoom(end, entry.key);
            copyEntry(entry, end, pending);
            ++_blocks->_size;
            ++end.inBlock;
        }
    }
}

void Dictionary::Entries::copyEntry(const Entry& entry, const Position& to, Pending& pending) {
    const auto copy = [&](const auto& value) {
        using Value = std::decay_t<decltype(value)>;
        const auto add = [&](Value added) -> Value& {
            return to.block->insert(to.inBlock, entry.key, std::move(added));
        };
        if constexpr (std::is_same_v<Value, Dictionary>) {
            pending.emplace_back(&value, &add(Dictionary()));
        } else if constexpr (std::is_same_v<Value, std::vector<Dictionary>>) {
            Value& copies = add(Value(value.size()));
            for (std::size_t i = 0; i < value.size(); ++i) {
                pending.emplace_back(&value[i], &copies[i]);
            }
        } else {
            add(value);
        }
    };
    std::visit(copy, entry.value);
}

const Dictionary::Entry* Dictionary::Entries::Walk::next() {
    while (_type < kTypes) {
        for (; _block != nullptr; _block = _block->_next, _position = 0) {
            while (_position < _block->count()) {
                const Entry& entry = (*_block)[_position++];
                const std::size_t type = entry.value.index();
                if (type == _type) {
                    return &entry;
                }
                _nextType = type > _type ? std::min(type, _nextType) : _nextType;
            }
        }
        _type = std::exchange(_nextType, kTypes);
        _block = _first;
    }
    return nullptr;
}

}  // namespace NIVUR
