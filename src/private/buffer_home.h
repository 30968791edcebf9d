#ifndef NIVUR_PRIVATE_BUFFER_HOME_H
#define NIVUR_PRIVATE_BUFFER_HOME_H

#include <atomic>

#include "buffer.h"
#include "private/free_set.h"

namespace NIVUR {

/// The state that a list shares with its buffers. Each of them holds a reference to it: the list
/// may be destroyed on one thread while others return buffers.
///
///     BufferList --_buffers--> Buffer ... Buffer      as long as the list exists
///         |                       |         |
///         +------- _home ---------+---------+-------> BufferHome { list, checksGuards, free }
struct BufferHome {
    BufferHome(BufferOwner* itsList, unsigned int count) : list(itsList), free(count) {}

    std::atomic<BufferOwner*> list;  // null once it is destroyed
    std::atomic<bool> checksGuards{false};
    FreeSet free;
};

}  // namespace NIVUR

#endif
