#ifndef MIRROR_FRAME_H
#define MIRROR_FRAME_H

#include <nivur/buffer.h>
#include <nivur/shared_ptr.h>

#include <cstdint>

namespace mirror {

constexpr unsigned int kFrameSize = 16 * 1024;

/// A piece of the file on its way from the source to the sink.
struct Frame {
    NIVUR::SharedPtr<NIVUR::Buffer> bytes;
    uint64_t offset;  // of its first byte in the file
};

}  // namespace mirror

#endif
