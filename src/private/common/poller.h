#ifndef NIVUR_PRIVATE_COMMON_POLLER_H
#define NIVUR_PRIVATE_COMMON_POLLER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "no_copyable.h"

namespace NIVUR::platform {

/// Waits for any of many descriptors to become ready, or for a signal. One thread waits and reads
/// the events; any thread may change what is watched, also meanwhile, and signal.
///
/// A port supplies this class: level-triggered, any number of descriptors of any value, a wait
/// whose time is in proportion to the ready ones, and a tag that comes back with each event.
class Poller : public NoCopyable {
  public:
    /// Kinds of readiness, as bits. The end of a descriptor and its errors are both kinds; that the
    /// peer will send no more is READABLE alone.
    enum Readiness : unsigned int { READABLE = 1, WRITABLE = 2 };

    /// A descriptor that is ready, and the tag with which it was registered.
    struct Event {
        int descriptor;
        uint32_t tag;
        unsigned int readiness;
    };

    static constexpr int kNoLimit = -1;
    static constexpr size_t kMostEvents = 256;  // of one wait; further ones are for the next

    /// Null, with the reason in errno, when the platform has no descriptors for it.
    static std::unique_ptr<Poller> create();

    virtual ~Poller() = default;

    /// Registers a descriptor for `readiness`, some bits; false, with the reason in errno, when it
    /// cannot be watched.
    virtual bool add(int descriptor, unsigned int readiness, uint32_t tag) = 0;

    /// Changes the bits and the tag of a registered descriptor, or registers it if the platform has
    /// forgotten it because it was closed. As add() otherwise.
    virtual bool change(int descriptor, unsigned int readiness, uint32_t tag) = 0;

    virtual void remove(int descriptor) = 0;

    /// Waits until a descriptor is ready, a signal has come or `timeoutMs` milliseconds have
    /// passed. Returns how many events there are now, which event() gives until the next wait.
    virtual size_t wait(int timeoutMs) = 0;
    virtual Event event(size_t index) const = 0;

    /// Ends the present or the next wait, until takeSignal() has taken the signal.
    virtual void signal() = 0;

    /// Takes one signal, waiting for it.
    virtual void takeSignal() = 0;
};

}  // namespace NIVUR::platform

#endif
