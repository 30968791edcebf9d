#ifndef NIVUR_EVENT_H
#define NIVUR_EVENT_H

#include <string>

#include "export.h"
#include "no_copyable.h"
#include "parameter.h"

namespace NIVUR {

/// Something named that happened, with values that tell more. An EventCenter takes it to those who
/// asked for its name.
///
/// It has no lock: fill it before it is sent. Handlers, which may run on several threads at once if
/// it is sent on several, only read it.
class NIVUR_EXPORT Event : public NoCopyable {
  public:
    /// An event whose id is "", which handlers can register for as for any other.
    Event();

    /// An event of that name. Not explicit: a name may be sent in its place.
    Event(const std::string& id);

    /// Deletes the values as well.
    virtual ~Event();

    /// The event's name, which never changes.
    std::string id() const;

    /// The event's values, which it owns. They are apart from the parameter that is sent with it.
    Parameter& parameter() { return _parameter; }

    /// For handlers, who get the event to read.
    const Parameter& parameter() const { return _parameter; }

  private:
    friend class EventCenter;  // which needs no copy of the id

    Parameter _parameter;
    const std::string _id;
};

}  // namespace NIVUR

#endif
