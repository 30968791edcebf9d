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

/// Delivers events to the handlers that are registered for their name, on the sending thread. Any
/// thread may call any operation, also from a handler: no lock is held while a handler runs, so
/// that it may send events, the same one too, and register and unregister handlers.
///
///     center.registerEventHandler("finished", &summary);
///     center.sendEvent(Event("finished"), nullptr);
///
/// The center does not own handlers. Unregistering does not wait: a dispatch on another thread may
/// have just picked the handler and still call it. The handler must live until that call has
/// returned.
///
/// REQUIRES for destruction: no operation is under way.
class NIVUR_EXPORT EventCenter : public NoCopyable {
  public:
    EventCenter();
    virtual ~EventCenter();

    /// Appends the handler to those of the name; registering it twice has no effect. A dispatch of
    /// the name that is under way calls it too, even if one of its handlers makes this call. If
    /// memory is exhausted, std::bad_alloc is thrown and nothing is added.
    /// REQUIRES: handler is not null.
    void registerEventHandler(const std::string& name, EventHandler* handler);

    /// Removes the handler from those of the name, if it is registered. It does not wait for a call
    /// of the handler that is under way on another thread.
    /// REQUIRES: handler is not null.
    void unregisterEventHandler(const std::string& name, EventHandler* handler);

    /// Removes all handlers of all names. It does not wait for calls under way, and handlers are
    /// not notified.
    void unregisterAllEventHandlers();

    /// Removes all handlers of the name, in the same way.
    void unregisterAllEventHandlers(const std::string& name);

    /// Calls each handler of the event's name once, in the order of registration, with the event
    /// and with `parameter`, which the caller keeps and which may be null. Always returns true.
    ///
    /// A handler that is unregistered before its turn is not called. A handler that is registered
    /// during the dispatch is called after the others, unless this dispatch has called it before. A
    /// dispatch that a handler starts is complete when that handler continues. Sending a name that
    /// never had a handler logs a warning; sending one whose handlers were all removed does not.
    bool sendEvent(const Event& event, Parameter* parameter);

  private:
    struct Registration {
        EventHandler* handler;
        uint64_t number;  // value of `changes` when it was registered
    };

    struct HandlerList {
        explicit HandlerList(EventHandler* first) : registrations{{first, 1}} {}

        std::vector<Registration> registrations;  // in the order of their numbers
        std::atomic<uint64_t> changes{1};         // the latest number; written with _mutex held
    };

    struct Dispatch;

    static void removeAll(HandlerList& list);
    void update(Dispatch& dispatch) NIVUR_REQUIRES(_mutex);
    bool begin(Dispatch& dispatch, const std::string& name);
    EventHandler* getUninvokedHandler(Dispatch& dispatch);

    // Never held while a handler or the log's sink is called.
    Mutex _mutex;

    // A list, once made, is never removed or moved, also when it is empty.
    std::map<std::string, HandlerList> _handlers NIVUR_GUARDED_BY(_mutex);
};

}  // namespace NIVUR

#endif
