#ifndef NIVUR_TESTS_SUPPORT_COUNTED_H
#define NIVUR_TESTS_SUPPORT_COUNTED_H

#include <nivur/buffer.h>

namespace NIVUR {

/// Counts its living objects, whoever owns and deletes them.
struct Counted : BaseBufferParam, ParameterValue {
    explicit Counted(int& counter) : living(counter) { ++living; }
    ~Counted() override { --living; }
    int& living;
};

}  // namespace NIVUR

#endif
