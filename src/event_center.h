#ifndef NIVUR_EVENT_CENTER_H
#define NIVUR_EVENT_CENTER_H

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "event.h"
#include "event_handler.h"
#include "export.h"
#include "mutex.h"
#include "no_copyable.h"
#include "parameter.h"
#include "thread_annotations.h"

namespace NIVUR {

/// Delivers named events to the handlers that are registered for the name, on the thread that
/// sends. Any thread may call any operation, also from inside a handler: no lock is held while one
/// runs, so that handlers may send, the same event too, and register and unregister handlers.
///
///     center.registerEventHandler("finished", &summary);
///     center.sendEvent(Event("finished"), nullptr);
///
/// Handlers are not owned. Unregistering is no barrier: a dispatch under way on another thread may
/// have picked the handler just before, and is not waited for. The handler must live until that
/// call has returned.
///
/// REQUIRES for destruction: no operation is under way.
class NIVUR_EXPORT EventCenter : public NoCopyable {
  public:
    EventCenter();
    virtual ~EventCenter();

    /// Adds the handler behind the others of the name; one that is among them keeps its place. A
    /// dispatch of that name that is under way, also one that makes this call, calls it too. When
    /// memory is exhausted std::bad_alloc passes through and nothing was added.
    /// REQUIRES: handler is not null.
    void registerEventHandler(const std::string& name, EventHandler* handler);

    /// Removes the handler from those of the name; nothing happens when it is not among them. This
    /// is no barrier: a call of the handler under way on another thread is not waited for.
    /// REQUIRES: handler is not null.
    void unregisterEventHandler(const std::string& name, EventHandler* handler);

    /// Removes all handlers of all names. Nobody is told, and no call under way is waited for.
    void unregisterAllEventHandlers();

    /// Removes all handlers of the name, likewise.
    void unregisterAllEventHandlers(const std::string& name);

    /// Calls each handler of the event's name once, in the order of registration, with the event
    /// and with `parameter`, which stays the caller's and may be null. Always true.
    ///
    /// A handler that is unregistered before its turn is not called. One that is registered during
    /// the dispatch is called in it, after those before it, unless it was called already. A
    /// dispatch that a handler starts is complete when that handler goes on. A name that never had
    /// a handler costs a warning in the log; one that has none any more is sent silently.
    bool sendEvent(const Event& event, Parameter* parameter);

  private:
    struct Registration {
        EventHandler* handler;
        uint64_t number;  // of the change by which it came
    };

    struct HandlerList {
        explicit HandlerList(EventHandler* first) : registrations{{first, 1}} {}

        std::vector<Registration> registrations;  // in the order of their numbers
        std::atomic<uint64_t> changes{1};         // the newest number, changed with _mutex held
    };

    struct Dispatch;

    static void removeAll(HandlerList& list);
    void update(Dispatch& dispatch) NIVUR_REQUIRES(_mutex);
    bool begin(Dispatch& dispatch, const std::string& name);
    EventHandler* getUninvokedHandler(Dispatch& dispatch);

    // Never held while a handler or the log's sink is called.
    Mutex _mutex;

    // Guarded by _mutex. A list once made stays where it is, also when it is empty.
    std::map<std::string, HandlerList> _handlers NIVUR_GUARDED_BY(_mutex);
};

}  // namespace NIVUR

#endif
