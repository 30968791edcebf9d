#ifndef NIVUR_EVENT_HANDLER_H
#define NIVUR_EVENT_HANDLER_H

#include "event.h"
#include "export.h"
#include "parameter.h"

namespace NIVUR {

/// An object that is told of events: what callers implement and register with an EventCenter, for
/// as many names as they like. It is never owned by the center and must live until it is
/// unregistered and every call of it has returned.
class NIVUR_EXPORT EventHandler {
  public:
    virtual ~EventHandler() = default;

    /// Tells of `event`, which need not live any longer than the call. It is called on the thread
    /// that sends, also on several at once, with no lock of the center held: it may send, register
    /// and unregister. `parameter` is the sender's, as it was sent, and may be null. An exception
    /// ends the dispatch and reaches the sender.
    virtual void onEvent(const Event& event, Parameter* parameter) = 0;
};

}  // namespace NIVUR

#endif
