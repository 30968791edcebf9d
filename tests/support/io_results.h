#ifndef NIVUR_TESTS_SUPPORT_IO_RESULTS_H
#define NIVUR_TESTS_SUPPORT_IO_RESULTS_H

#include <nivur/io_result.h>

#include <ostream>

namespace NIVUR {

inline void PrintTo(const IoResult& result, std::ostream* stream) {
    *stream << result.status << ", " << result.count << ", error " << result.error;
}

inline bool operator==(const IoResult& one, const IoResult& other) {
    return one.status == other.status && one.count == other.count && one.error == other.error;
}

inline IoResult done(size_t count = 0) {
    return {IoResult::DONE, count};
}
inline IoResult failed(int error) {
    return {IoResult::FAILED, 0, error};
}
const IoResult kWouldBlock{IoResult::WOULD_BLOCK}, kClosed{IoResult::CLOSED};

}  // namespace NIVUR

#endif
