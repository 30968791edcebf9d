#ifndef NIVUR_EVENT_HANDLER_H
#define NIVUR_EVENT_HANDLER_H

#include "event.h"
#include "export.h"
#include "parameter.h"

namespace NIVUR {

/// Base of objects that receive events. Callers implement it and register it with an EventCenter,
/// under any number of names. The center does not own it: it must live until it is unregistered and
/// every call of it has returned.
class NIVUR_EXPORT EventHandler {
  public:
    virtual ~EventHandler() = default;

    /// Receives `event`, which need not live longer than this call. It is called on the sending
    /// thread, and on several threads at once if several send, with no lock of the center held: it
    /// may send, register and unregister. `parameter` is what the sender passed, and may be null.
    /// An exception ends the dispatch and propagates to the sender.
    virtual void onEvent(const Event& event, Parameter* parameter) = 0;
};

}  // namespace NIVUR

#endif
