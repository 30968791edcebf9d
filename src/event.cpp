#include "event.h"

namespace NIVUR {

Event::Event() = default;

Event::Event(const std::string& id) : _id(id) {}

Event::~Event() = default;

std::string Event::id() const {
    return _id;
}

}  // namespace NIVUR
