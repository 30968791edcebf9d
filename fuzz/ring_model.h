#ifndef NIVUR_FUZZ_RING_MODEL_H
#define NIVUR_FUZZ_RING_MODEL_H

#include <nivur/ring_buffer.h>

#include "input.h"

namespace NIVUR {

/// Compares a ring with a string, while the operations of the input change both.
inline void checkRing(Input& input) {
    const unsigned size = input.below(70);
    RingBuffer ring(size, "model");
    std::string model;
    for (char step = 0; !input.empty(); ++step) {
        const unsigned length = input.below(size + 2), operation = input.below(16);
        std::string block(length, step);
        if (operation == 0) {
            ring.reset();
            model.clear();
        } else if (operation % 2 == 1) {
            const bool fits = length <= size - model.size();
            check(ring.write(block.data(), length) == (fits ? 0U : 2U), "what fits is written");
            model += fits ? block : "";
        } else {
            const bool there = length <= model.size();
            char* const data = there ? block.data() : nullptr;
            check(ring.read(data, length) == (there ? 0U : 1U), "what is there is read");
            check(!there || block == model.substr(0, length), "first in, first out");
            model.erase(0, there ? length : 0);
        }
        check(ring.getUnreadSize() == model.size(), "a ring counts its bytes");
    }
}

}  // namespace NIVUR

#endif
