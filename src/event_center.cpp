#include "event_center.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "log.h"
#include "private/assertion.h"

namespace NIVUR {

namespace {

template <class Iterator>
Iterator findHandler(Iterator begin, Iterator end, const EventHandler* handler) {
    return std::find_if(begin, end,
                        [handler](const auto& each) { return each.handler == handler; });
}

}  // namespace

/// One sendEvent() under way, with a copy of the list that holds as long as the list does not
/// change. Up to eight handlers take no memory.
struct EventCenter::Dispatch {
    HandlerList* list = nullptr;
    uint64_t began = 0;  // the newest change when the dispatch began
    uint64_t seen = 0;   // the newest change that `turns` reflects
    std::array<Registration, 8> few;
    std::vector<Registration> many;
    Registration* turns = few.data();  // the handlers called, and from `next` on those to be called
    size_t next = 0;
    size_t end = 0;

    void makeRoom(size_t count) {
        if (count > std::max(few.size(), many.size())) {
            if (many.empty()) {
                many.assign(few.data(), few.data() + next);
            }
            many.resize(count);
            turns = many.data();
        }
    }
};

EventCenter::EventCenter() = default;

EventCenter::~EventCenter() = default;

void EventCenter::registerEventHandler(const std::string& name, EventHandler* handler) {
    NIVUR_ASSERT(handler);
    AutoLock lock(_mutex);
    const auto entry = _handlers.find(name);
    if (entry == _handlers.end()) {
        _handlers.try_emplace(name, handler);  // never left without its handler
        return;
    }
    HandlerList& list = entry->second;
    auto& registrations = list.registrations;
    if (findHandler(registrations.begin(), registrations.end(), handler) == registrations.end()) {
        registrations.push_back({handler, list.changes + 1});
        ++list.changes;
    }
}

void EventCenter::unregisterEventHandler(const std::string& name, EventHandler* handler) {
    NIVUR_ASSERT(handler);
    AutoLock lock(_mutex);
    const auto entry = _handlers.find(name);
    if (entry == _handlers.end()) {
        return;
    }
    auto& registrations = entry->second.registrations;
    const auto found = findHandler(registrations.begin(), registrations.end(), handler);
    if (found != registrations.end()) {
        registrations.erase(found);
        ++entry->second.changes;
    }
}

void EventCenter::unregisterAllEventHandlers() {
    AutoLock lock(_mutex);
    for (auto& entry : _handlers) {
        removeAll(entry.second);
    }
}

void EventCenter::unregisterAllEventHandlers(const std::string& name) {
    AutoLock lock(_mutex);
    const auto entry = _handlers.find(name);
    if (entry != _handlers.end()) {
        removeAll(entry->second);
    }
}

void EventCenter::removeAll(HandlerList& list) {
    list.registrations.clear();
    ++list.changes;
}

bool EventCenter::sendEvent(const Event& event, Parameter* parameter) {
    Dispatch dispatch;
    if (!begin(dispatch, event._id)) {
        Log::log("NIVUR", LOG_WARN, "event %s has no handler", event._id.c_str());
        return true;
    }
    while (EventHandler* const handler = getUninvokedHandler(dispatch)) {
        handler->onEvent(event, parameter);
    }
    return true;
}

bool EventCenter::begin(Dispatch& dispatch, const std::string& name) {
    AutoLock lock(_mutex);
    const auto entry = _handlers.find(name);
    if (entry == _handlers.end()) {
        return false;
    }
    dispatch.list = &entry->second;
    dispatch.began = dispatch.list->changes;
    update(dispatch);
    return true;
}

// Before each call but the first, which begin() has just looked up, the number of changes is read
// by an exchange: either it sees a change made meanwhile, or whoever makes the change later sees
// all that the last handler did. A thread that unregisters a handler, and then finds that the one
// before it has not returned, may therefore rely on its not being called.
EventHandler* EventCenter::getUninvokedHandler(Dispatch& dispatch) {
    if (dispatch.next != 0 && dispatch.list->changes.fetch_add(0) != dispatch.seen) {
        AutoLock lock(_mutex);
        update(dispatch);
    }
    return dispatch.next == dispatch.end ? nullptr : dispatch.turns[dispatch.next++].handler;
}

// The list grows at its end only, so that all whose turn is still to come have a higher number than
// the last one called. One of them was called before only if it was removed and registered again
// since the dispatch began.
void EventCenter::update(Dispatch& dispatch) {
    const uint64_t last = dispatch.next == 0 ? 0 : dispatch.turns[dispatch.next - 1].number;
    const std::vector<Registration>& registrations = dispatch.list->registrations;
    auto next = std::upper_bound(
        registrations.begin(), registrations.end(), last,
        [](uint64_t number, const Registration& each) { return number < each.number; });
    dispatch.makeRoom(dispatch.next + static_cast<size_t>(registrations.end() - next));
    Registration* const called = dispatch.turns + dispatch.next;
    Registration* end = called;
    for (; next != registrations.end(); ++next) {
        if (next->number <= dispatch.began ||
            findHandler(dispatch.turns, called, next->handler) == called) {
            *end++ = *next;
        }
    }
    dispatch.end = static_cast<size_t>(end - dispatch.turns);
    dispatch.seen = dispatch.list->changes;
}

}  // namespace NIVUR
