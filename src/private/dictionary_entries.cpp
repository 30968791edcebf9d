#include "private/dictionary_entries.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <type_traits>

namespace NIVUR {

namespace {

constexpr unsigned int kFew = 3;  // entries that a record first has room for

template <class Word>
std::uint64_t load(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

template <class Entry>
void relocate(Entry& from, Entry* to) noexcept {
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

void* Dictionary::Block::operator new(std::size_t size, unsigned int capacity) {
    static_assert(alignof(Entry) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    static_assert(std::is_nothrow_move_constructible_v<Entry>);
    return ::operator new(size + sizeOfBytes(capacity) + capacity * sizeof(Entry));
}

std::size_t Dictionary::Block::sizeOfBytes(std::size_t capacity) {
    return (2 * capacity + alignof(Entry) - 1) / alignof(Entry) * alignof(Entry);
}

Dictionary::Block::Block(unsigned int capacity) noexcept
    : _entries(reinterpret_cast<Entry*>(hashes() + sizeOfBytes(capacity))),
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

unsigned int Dictionary::Block::placeOf(std::string_view key) const {
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

void Dictionary::Block::addToOrder(unsigned int place, std::uint8_t hash) noexcept {
    std::uint8_t* const order = this->order();
    if (place < _count) {
        std::memmove(order + place + 1, order + place, _count - place);
    }
    hashes()[_count] = hash;
    order[place] = _count++;
}

void Dictionary::Block::erase(unsigned int place) {
    std::uint8_t* const order = this->order();
    const std::uint8_t slot = order[place];
    const std::uint8_t last = --_count;
    std::memmove(order + place, order + place + 1, last - place);
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

void Dictionary::Block::split(unsigned int place, Block& upper) noexcept {
    std::uint8_t* const order = this->order();
    for (unsigned int moved = place; moved < _count; ++moved) {
        relocate((*this)[moved], upper._entries + upper._count);
        upper.addToOrder(upper._count, hashes()[order[moved]]);
    }
    _count = static_cast<std::uint8_t>(place);
    const std::uint8_t* hole = order + place;
    for (std::uint8_t* slot = order; slot < order + place; ++slot) {
        if (*slot >= place) {
            while (*hole >= place) {
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

// Nested records are destroyed one after the other, not each inside its parent's destructor: the
// depth of nesting would cost stack, and has no limit.
void Dictionary::Drop::operator()(Block* blocks) const noexcept {
    while (blocks != nullptr) {
        const std::unique_ptr<Block> current(blocks);
        blocks = current->_next;
        current->unlinkNested(blocks);
    }
}

/// The block where a key is, or would be; null if the record has none.
Dictionary::Block* Dictionary::blockOf(std::string_view key) const {
    Block* const first = _blocks.get();
    if (first == nullptr || !first->_index) {
        return first;
    }
    const auto next = first->_index->upper_bound(key);
    return next != first->_index->begin() ? std::prev(next)->second : first;
}

Dictionary::Entry* Dictionary::find(std::string_view key) const {
    const Block* const block = blockOf(key);
    return block != nullptr ? block->find(key) : nullptr;
}

/// Makes room for a new key, whose block that is.
Dictionary::Place Dictionary::makeRoom(Block* block, std::string_view key) {
    if (block == nullptr) {
        _blocks.reset(new (kFew) Block(kFew));
        return {_blocks.get(), 0};
    }
    return makeRoomAt({block, block->placeOf(key)}, key);
}

Dictionary::Place Dictionary::makeRoomAt(Place place, std::string_view key) {
    if (place.block->count() == Block::kMost) {
        return split(place, key);
    }
    if (place.block->count() == place.block->capacity()) {
        return {grow(), place.place};
    }
    return place;
}

/// Doubles the capacity of the only block.
Dictionary::Block* Dictionary::grow() {
    const unsigned int capacity = std::min(2 * _blocks->capacity(), Block::kMost);
    std::unique_ptr<Block, Drop> larger(new (capacity) Block(capacity));
    larger->_size = _blocks->_size;
    larger->take(*_blocks);
    _blocks = std::move(larger);
    return _blocks.get();
}

/// Puts a new block behind a full one, with half of its entries unless the key comes after all.
Dictionary::Place Dictionary::split(Place place, std::string_view key) {
    Block& full = *place.block;
    const bool isLast = full._next == nullptr && place.place == Block::kMost;
    const unsigned int kept = isLast ? Block::kMost : Block::kMost / 2;
    std::unique_ptr<Block, Drop> owned(new (Block::kMost) Block(Block::kMost));
    if (!_blocks->_index) {
        _blocks->_index = std::make_unique<std::map<std::string, Block*, std::less<>>>();
    }
    _blocks->_index->emplace(isLast ? key : full[kept].key, owned.get());
    Block* const upper = owned.release();
    upper->_next = std::exchange(full._next, upper);
    full.split(kept, *upper);
    return isLast || place.place > kept ? Place{upper, place.place - kept} : place;
}

void Dictionary::eraseKey(std::string_view key) {
    Block* const block = blockOf(key);
    if (block == nullptr || block->find(key) == nullptr) {
        return;
    }
    if (_blocks->_size == 1) {
        return clear();
    }
    --_blocks->_size;
    block->erase(block->placeOf(key));
    if (block->count() == 0 && block != _blocks.get()) {
        removeBlock(key);
    }
}

/// Removes the empty block, not the first, where that key would be.
void Dictionary::removeBlock(std::string_view key) {
    auto& index = *_blocks->_index;
    const auto entry = std::prev(index.upper_bound(key));
    const std::unique_ptr<Block> block(entry->second);
    Block* const before = entry != index.begin() ? std::prev(entry)->second : _blocks.get();
    before->_next = block->_next;
    index.erase(entry);
}

/// Copies the entries of a record to this one, which is empty, but for what nested records hold.
void Dictionary::copyEntries(const Dictionary& from, NestedCopies& pending) {
    if (from.size() == 0) {
        return;
    }
    const unsigned int capacity = std::min(from.size(), Block::kMost);
    _blocks.reset(new (capacity) Block(capacity));
    Place end{_blocks.get(), 0};
    for (const Block* block = from._blocks.get(); block != nullptr; block = block->_next) {
        for (unsigned int place = 0; place < block->count(); ++place) {
            const Entry& entry = (*block)[place];
            end = makeRoomAt(end, entry.key);
            copyEntry(entry, end, pending);
            ++_blocks->_size;
            ++end.place;
        }
    }
}

void Dictionary::copyEntry(const Entry& entry, const Place& to, NestedCopies& pending) {
    const auto copy = [&](const auto& value) {
        using Value = std::decay_t<decltype(value)>;
        const auto add = [&](Value&& added) -> Value& {
            return to.block->insert(to.place, entry.key, std::move(added));
        };
        if constexpr (std::is_same_v<Value, Dictionary>) {
            pending.emplace_back(&value, &add(Dictionary()));
        } else if constexpr (std::is_same_v<Value, std::vector<Dictionary>>) {
            Value& copies = add(Value(value.size()));
            for (std::size_t i = 0; i < value.size(); ++i) {
                pending.emplace_back(&value[i], &copies[i]);
            }
        } else {
            add(Value(value));
        }
    };
    std::visit(copy, entry.value);
}

const Dictionary::Entry* Dictionary::Walk::next() {
    while (_type < kTypes) {
        for (; _block != nullptr; _block = _block->_next, _place = 0) {
            while (_place < _block->count()) {
                const Entry& entry = (*_block)[_place++];
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
