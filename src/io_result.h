#ifndef NIVUR_IO_RESULT_H
#define NIVUR_IO_RESULT_H

#include <cstddef>

namespace NIVUR {

/// What came of one call that creates, connects, accepts, sends or receives. These calls write no
/// log lines, since the result tells the caller all of it, and a signal does not interrupt them.
struct IoResult {
    /// The kinds of outcomes.
    enum Status {
        DONE,         ///< the call did what it is for
        WOULD_BLOCK,  ///< on a non-blocking socket: nothing was done; try again once it is ready
        CLOSED,       ///< the connection has ended: no more will come, or nothing can be sent
        FAILED        ///< `error` tells why
    };

    Status status = DONE;  ///< which of them it was
    size_t count = 0;      ///< what was transferred, in the call's unit; 0 unless DONE
    int error = 0;         ///< the platform's error number; 0 unless FAILED

    /// Whether the status is DONE.
    explicit operator bool() const { return status == DONE; }
};

}  // namespace NIVUR

#endif
