#include "event_center.h"

#include <algorithm>
#include <cstddef>

#include "log.h"
#include "private/assertion.h"

namespace NIVUR {

namespace {

template <class Registrations>
auto find(const Registrations& registrations, const EventHandler* handler) {
    return std::find_if(registrations.begin(), registrations.end(),
                        [handler](const auto& each) { return each.handler == handler; });
}

}  // namespace

/// One sendEvent() under way, with a copy of the list that holds as long as the list does not
/// change.
struct EventCenter::Dispatch {
    const HandlerList* list = nullptr;
    uint64_t began = 0;               // the newest change when the dispatch began
    uint64_t seen = 0;                // the newest change that `turns` reflects
    std::vector<Registration> turns;  // the handlers called, and from `next` on those to be called
    size_t next = 0;
};

EventCenter::EventCenter() = default;

EventCenter::~EventCenter() = default;

void EventCenter::registerEventHandler(const std::string& name, EventHandler* handler) {
    NIVUR_ASSERT(handler);
    AutoLock lock(_mutex);
    const auto entry = _handlers.find(name);
    if (entry == _handlers.end()) {
        _handlers.emplace(name, HandlerList{{{handler, 1}}, 1});  // never left without its handler
        return;
    }
    HandlerList& list = entry->second;
    if (!hasHandler(list.registrations, handler)) {
        list.registrations.push_back({handler, list.changes + 1});
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
    HandlerList& list = entry->second;
    const auto found = find(list.registrations, handler);
    if (found != list.registrations.end()) {
        list.registrations.erase(found);
        ++list.changes;
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

bool EventCenter::hasHandler(const std::vector<Registration>& handlers,
                             const EventHandler* handler) {
    return find(handlers, handler) != handlers.end();
}

void EventCenter::removeAll(HandlerList& list) {
    list.registrations.clear();
    ++list.changes;
}

bool EventCenter::sendEvent(const Event& event, Parameter* parameter) {
    Dispatch dispatch;
    if (!begin(dispatch, event.id())) {
        Log::log("NIVUR", LOG_WARN, "event %s has no handler", event.id().c_str());
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

EventHandler* EventCenter::getUninvokedHandler(Dispatch& dispatch) {
    // Locked for each handler: whoever unregisters one, and then sees that the one before it has
    // not returned, may rely on its not being called.
    AutoLock lock(_mutex);
    if (dispatch.list->changes != dispatch.seen) {
        update(dispatch);
    }
    return dispatch.next == dispatch.turns.size() ? nullptr
                                                  : dispatch.turns[dispatch.next++].handler;
}

// The list grows at its end only, so that all whose turn is still to come have a higher number than
// the last one called. One of them was called before only if it was removed and registered again
// since the dispatch began.
void EventCenter::update(Dispatch& dispatch) {
    std::vector<Registration>& turns = dispatch.turns;
    turns.resize(dispatch.next);
    const uint64_t last = turns.empty() ? 0 : turns.back().number;
    const std::vector<Registration>& registrations = dispatch.list->registrations;
    auto next = std::upper_bound(
        registrations.begin(), registrations.end(), last,
        [](uint64_t number, const Registration& each) { return number < each.number; });
    turns.reserve(turns.size() + static_cast<size_t>(registrations.end() - next));
    for (; next != registrations.end(); ++next) {
        if (next->number <= dispatch.began || !hasHandler(turns, next->handler)) {
            turns.push_back(*next);
        }
    }
    dispatch.seen = dispatch.list->changes;
}

}  // namespace NIVUR
