#ifndef NIVUR_IO_RESULT_H
#define NIVUR_IO_RESULT_H

#include <cstddef>

namespace NIVUR {

/// The result of one call that creates, connects, accepts, sends or receives. Such calls write no
/// log lines, since the result says all that a line could say, and continue after an interrupting
/// signal.
struct IoResult {
    /// The outcome of a call.
    enum Status {
        DONE,         ///< the call succeeded
        WOULD_BLOCK,  ///< nothing was done; on a non-blocking socket, try again once it is ready
        CLOSED,       ///< the connection has ended: nothing more can be received, or sent
        FAILED        ///< `error` has the reason
    };

    Status status = DONE;  ///< the outcome
    size_t count = 0;      ///< the amount transferred, in the unit of the call; 0 unless DONE
    int error = 0;         ///< the platform's error number; 0 unless FAILED

    /// Returns true if the status is DONE.
    explicit operator bool() const { return status == DONE; }
};

}  // namespace NIVUR

#endif
