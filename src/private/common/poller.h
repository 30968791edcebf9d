#ifndef NIVUR_PRIVATE_COMMON_POLLER_H
#define NIVUR_PRIVATE_COMMON_POLLER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "no_copyable.h"

namespace NIVUR::platform {

/// Waits for any of many descriptors to become ready, or for a signal. One thread waits and reads
/// the events. Any thread may change what is watched, also during a wait, and signal.
///
/// A port to another platform supplies this class: level-triggered, for any number of descriptors
/// of any value, with a wait whose time is proportional to the number of ready ones, and with a tag
/// that each event returns.
class Poller : public NoCopyable {
  public:
    /// Kinds of readiness, as bits. A hang-up or an error counts as both; end of stream from the
    /// peer as READABLE only.
    enum Readiness : unsigned int { READABLE = 1, WRITABLE = 2 };

    /// A ready descriptor, and the tag of its registration.
    struct Event {
        int descriptor;
        uint32_t tag;
        unsigned int readiness;
    };

    static constexpr int kNoLimit = -1;
    static constexpr size_t kMostEvents = 256;  // in one wait; the next wait returns more

    /// Returns null, with the reason in errno, if the platform has no descriptors for the poller
    /// itself.
    static std::unique_ptr<Poller> create();

    virtual ~Poller() = default;

    /// Registers a descriptor for `readiness`, a combination of bits. Returns false, with the
    /// reason in errno, if it cannot be watched.
    virtual bool add(int descriptor, unsigned int readiness, uint32_t tag) = 0;

    /// Changes the bits and the tag of a registered descriptor. Registers it again if the platform
    /// has dropped it because it was closed. Otherwise like add().
    virtual bool change(int descriptor, unsigned int readiness, uint32_t tag) = 0;

    virtual void remove(int descriptor) = 0;

    /// Waits until a descriptor is ready, a signal has come or `timeoutMs` milliseconds have
    /// passed. Returns the number of events, which event() returns until the next wait.
    virtual size_t wait(int timeoutMs) = 0;
    virtual Event event(size_t index) const = 0;

    /// Ends the current or the next wait; every wait returns at once until takeSignal() has removed
    /// the signal.
    virtual void signal() = 0;

    /// Waits for a signal and removes it.
    virtual void takeSignal() = 0;
};

}  // namespace NIVUR::platform

#endif
