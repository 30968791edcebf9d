#ifndef NIVUR_PRIVATE_WATCH_LIST_H
#define NIVUR_PRIVATE_WATCH_LIST_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

#include "no_copyable.h"
#include "private/common/poller.h"
#include "private/source.h"

namespace NIVUR {

/// The watches of a loop, by id and by descriptor, and their registrations with the poller.
///
///     _byId:          id -> watch, in the order of adding
///     _byDescriptor:  descriptor -> registration -> watch -> watch   linked, oldest first
///
/// All watches of a descriptor share one registration, for the union of what they wait for. The
/// poller stores a tag with each registration and returns it with each event. The tag changes
/// whenever a watch of the descriptor is added or removed, so that an event that was fetched before
/// the change runs no watch. The list does not own the watches. Not thread-safe.
class WatchList : public NoCopyable {
  public:
    explicit WatchList(std::unique_ptr<platform::Poller> poller) : _poller(std::move(poller)) {}

    bool empty() const { return _byId.empty(); }
    size_t size() const { return _byId.size(); }

    platform::Poller& poller() const { return *_poller; }

    /// Gives the watch an id and registers it. Returns 0, or the error number if it cannot be
    /// watched. If memory is exhausted, std::bad_alloc is thrown and no watch is changed.
    int add(Watch& watch);

    /// The watch with this id, or null.
    Watch* find(long id) const;

    void remove(Watch& watch);

    /// Removes the watches for which `wanted` returns true and passes each to `take`, in the order
    /// of adding.
    template <class Predicate, class Taker>
    void removeIf(Predicate wanted, Taker take) {
        for (auto entry = _byId.begin(); entry != _byId.end();) {
            Watch& watch = *(entry++)->second;
            if (wanted(watch)) {
                remove(watch);
                take(watch);
            }
        }
    }

    /// Holds the watches that an event makes ready and adds them to `ready`. Returns false, and
    /// adds none, if the descriptor's watches have changed since the event was fetched.
    bool collect(const platform::Poller::Event& event, Batch<Watch>& ready) const;

    template <class Visitor>
    void forEach(Visitor visit) const {
        for (const auto& entry : _byId) {
            visit(*entry.second);
        }
    }

  private:
    /// All watches of one descriptor.
    struct Registration {
        void append(Watch& watch);
        void remove(const Watch& watch);
        unsigned int readiness() const;

        Watch* oldest = nullptr;
        Watch* newest = nullptr;
        size_t readers = 0;
        size_t writers = 0;
        uint32_t tag = 0;
    };

    void forget(Watch& watch);

    const std::unique_ptr<platform::Poller> _poller;
    std::map<long, Watch*> _byId;
    std::unordered_map<int, Registration> _byDescriptor;
    long _lastId = 0;
    uint32_t _lastTag = 0;
};

}  // namespace NIVUR

#endif
