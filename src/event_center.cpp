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

/// A sendEvent() under way: a private copy of the handlers still to be called, so that a handler
/// runs with no lock held. The copy is updated only if the list has changed since.
///
///     turns: [ called ][ called ][ to be called ][ to be called ]
///                                ^ next                          ^ end
///     list:  registrations with increasing numbers, and `changes`, the number of the last change
///
/// Up to eight handlers need no allocation: a dispatch to 10 handlers takes 79 ns, where the best
/// peer takes 189 ns (docs/performance.md, "send to handlers: 10").
struct EventCenter::Dispatch {
    HandlerList* list = nullptr;
    uint64_t began = 0;  // `changes` when the dispatch began
    uint64_t seen = 0;   // `changes` when `turns` was last updated
    std::array<Registration, 8> few;
    std::vector<Registration> many;
    Registration* turns = few.data();  // in `few` or in `many`
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
        _handlers.try_emplace(name, handler);  // in one step: a failure leaves no empty list
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

/// Returns the next handler to be called, or null.
///
/// Memory ordering: `changes` is read by an atomic read-modify-write before each call but the
/// first, for which begin() has just read it. Either this read sees a change, or the thread that
/// makes the change later sees all that the last handler did. Therefore a handler that is
/// unregistered before the previous handler has returned is not called.
EventHandler* EventCenter::getUninvokedHandler(Dispatch& dispatch) {
    if (dispatch.next != 0 && dispatch.list->changes.fetch_add(0) != dispatch.seen) {
        AutoLock lock(_mutex);
        update(dispatch);
    }
    return dispatch.next == dispatch.end ? nullptr : dispatch.turns[dispatch.next++].handler;
}

/// Replaces the handlers still to be called by the list's registrations after the last handler
/// called: new registrations have higher numbers than all earlier ones. Leaves out handlers that
/// this dispatch has called already, which were removed and registered again meanwhile.
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
