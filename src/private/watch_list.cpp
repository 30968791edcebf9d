#include "private/watch_list.h"

#include <cerrno>
#include <climits>

namespace NIVUR {

using platform::Poller;

void WatchList::Registration::append(Watch& watch) {
    (oldest == nullptr ? oldest : newest->_nextOfDescriptor) = &watch;
    newest = &watch;
    ++(watch._readiness == Poller::READABLE ? readers : writers);
}

void WatchList::Registration::remove(const Watch& watch) {
    Watch* before = nullptr;
    for (Watch* each = oldest; each != &watch; each = each->_nextOfDescriptor) {
        before = each;
    }
    (before == nullptr ? oldest : before->_nextOfDescriptor) = watch._nextOfDescriptor;
    newest = newest == &watch ? before : newest;
    --(watch._readiness == Poller::READABLE ? readers : writers);
}

/// Returns the union of what the watches wait for.
unsigned int WatchList::Registration::readiness() const {
    return (readers > 0 ? Poller::READABLE : 0U) | (writers > 0 ? Poller::WRITABLE : 0U);
}

int WatchList::add(Watch& watch) {
    if (_lastId == LONG_MAX) {
        return EOVERFLOW;
    }
    const int descriptor = watch._descriptor;
    watch._id = _lastId + 1;
    Registration& registration = _byDescriptor[descriptor];
    _byId.emplace(watch._id, &watch);
    const bool known = registration.oldest != nullptr;
    registration.append(watch);
    registration.tag = ++_lastTag;
    if (known ? _poller->change(descriptor, registration.readiness(), registration.tag)
              : _poller->add(descriptor, registration.readiness(), registration.tag)) {
        ++_lastId;
        return 0;
    }
    const int error = errno;
    forget(watch);
    return error;
}

Watch* WatchList::find(long id) const {
    const auto entry = _byId.find(id);
    return entry == _byId.end() ? nullptr : entry->second;
}

void WatchList::remove(Watch& watch) {
    const int descriptor = watch._descriptor;
    forget(watch);
    const auto entry = _byDescriptor.find(descriptor);
    if (entry == _byDescriptor.end()) {
        _poller->remove(descriptor);
    } else {
        Registration& registration = entry->second;
        registration.tag = ++_lastTag;
        _poller->change(descriptor, registration.readiness(), registration.tag);
    }
}

bool WatchList::collect(const Poller::Event& event, Batch<Watch>& ready) const {
    const auto entry = _byDescriptor.find(event.descriptor);
    if (entry == _byDescriptor.end() || entry->second.tag != event.tag) {
        return false;
    }
    for (Watch* watch = entry->second.oldest; watch != nullptr; watch = watch->_nextOfDescriptor) {
        if ((watch->_readiness & event.readiness) != 0U) {
            watch->hold();
            ready.add(*watch);
        }
    }
    return true;
}

/// Removes the watch from both indexes.
void WatchList::forget(Watch& watch) {
    const auto entry = _byDescriptor.find(watch._descriptor);
    entry->second.remove(watch);
    if (entry->second.oldest == nullptr) {
        _byDescriptor.erase(entry);
    }
    _byId.erase(watch._id);
}

}  // namespace NIVUR
