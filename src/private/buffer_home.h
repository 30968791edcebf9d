#ifndef NIVUR_PRIVATE_BUFFER_HOME_H
#define NIVUR_PRIVATE_BUFFER_HOME_H

#include <atomic>

#include "buffer.h"
#include "private/free_set.h"

namespace NIVUR {

/// What a list shares with its buffers, and what lives until the last of them all is deleted: the
/// list may be destroyed on one thread while others drop its buffers.
struct BufferHome {
    BufferHome(BufferOwner* itsList, unsigned int count) : list(itsList), free(count) {}

    std::atomic<BufferOwner*> list;  // null once it is gone
    std::atomic<bool> checksGuards{false};
    FreeSet free;
};

}  // namespace NIVUR

#endif
