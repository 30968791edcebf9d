#include "private/watch_list.h"

#include <cerrno>
#include <climits>

namespace NIVUR {

using platform::Poller;

namespace {

/// What all watches of a descriptor wait for.
unsigned int readinessOf(const Watch* oldest) {
    unsigned int all = 0;
    for (const Watch* watch = oldest; watch != nullptr; watch = watch->_nextOfDescriptor) {
        all |= watch->_readiness;
    }
    return all;
}

}  // namespace

int WatchList::add(Watch& watch) {
    if (_lastId == LONG_MAX) {
        return EOVERFLOW;
    }
    const int descriptor = watch._descriptor;
    watch._id = _lastId + 1;
    Registration& registration = _byDescriptor[descriptor];
    _byId.emplace(watch._id, &watch);
    const bool known = registration.oldest != nullptr;
    append(registration.oldest, watch);
    registration.tag = ++_lastTag;
    const unsigned int readiness = readinessOf(registration.oldest);
    if (known ? _poller->change(descriptor, readiness, registration.tag)
              : _poller->add(descriptor, readiness, registration.tag)) {
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
        _poller->change(descriptor, readinessOf(registration.oldest), registration.tag);
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

void WatchList::append(Watch*& oldest, Watch& watch) {
    Watch** link = &oldest;
    while (*link != nullptr) {
        link = &(*link)->_nextOfDescriptor;
    }
    *link = &watch;
}

void WatchList::unlink(Watch*& oldest, const Watch& watch) {
    Watch** link = &oldest;
    while (*link != &watch) {
        link = &(*link)->_nextOfDescriptor;
    }
    *link = watch._nextOfDescriptor;
}

/// Takes the watch out of both indexes.
void WatchList::forget(Watch& watch) {
    const auto entry = _byDescriptor.find(watch._descriptor);
    unlink(entry->second.oldest, watch);
    if (entry->second.oldest == nullptr) {
        _byDescriptor.erase(entry);
    }
    _byId.erase(watch._id);
}

}  // namespace NIVUR
