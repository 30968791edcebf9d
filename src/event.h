#ifndef NIVUR_EVENT_H
#define NIVUR_EVENT_H

#include <string>

#include "export.h"
#include "no_copyable.h"
#include "parameter.h"

namespace NIVUR {

/// A named event with optional values. An EventCenter delivers it to the handlers that are
/// registered for its name.
///
/// Not thread-safe: set the values before sending it. Handlers may run on several threads at once
/// if several threads send it; they only read it.
class NIVUR_EXPORT Event : public NoCopyable {
  public:
    /// Makes an event with the id "". Handlers can register for that name too.
    Event();

    /// Makes an event of that name. Not explicit, so that a name can be sent as an event.
    Event(const std::string& id);

    /// Also deletes the values.
    virtual ~Event();

    /// The event's name, which does not change.
    std::string id() const;

    /// The event's values, which it owns. They are separate from the parameter that is passed to
    /// EventCenter::sendEvent().
    Parameter& parameter() { return _parameter; }

    /// The values, read-only, for handlers.
    const Parameter& parameter() const { return _parameter; }

  private:
    friend class EventCenter;  // reads _id without copying it

    Parameter _parameter;
    const std::string _id;
};

}  // namespace NIVUR

#endif
