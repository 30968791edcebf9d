#ifndef NIVUR_PRIVATE_BUFFER_HOME_H
#define NIVUR_PRIVATE_BUFFER_HOME_H

#include <optional>
#include <utility>

#include "buffer.h"
#include "mutex.h"
#include "no_copyable.h"
#include "private/free_set.h"
#include "thread_annotations.h"

namespace NIVUR {

/// What a list shares with its buffers, and what lives until the last of them all is gone: which
/// buffers are free, and whether there still is a list to return to. To ask for the list and to go
/// back to it are one step under one lock, so that the list may end on one thread while others drop
/// its buffers. That lock is innermost, and no code of a caller runs while it is held.
class BufferHome : public NoCopyable {
  public:
    /// All of the `count` buffers are free at first.
    BufferHome(BufferOwner* list, unsigned int count) : _list(list), _free(count) {}

    /// The list, or null once it is gone.
    BufferOwner* list() const {
        AutoLock lock(_mutex);
        return _list;
    }

    /// How many buffers are free.
    unsigned int freeCount() const {
        AutoLock lock(_mutex);
        return _free.size();
    }

    /// The lowest index of a free buffer, which is the caller's from here on.
    std::optional<unsigned int> take() {
        AutoLock lock(_mutex);
        if (_free.size() == 0) {
            return std::nullopt;
        }
        return _free.takeLowest();
    }

    /// Makes the buffer free, and then it may be gone at once; false, with nothing done, when there
    /// is no list any more.
    bool takeBack(Buffer& buffer, unsigned int index) {
        AutoLock lock(_mutex);
        if (_list == nullptr) {
            return false;
        }
        buffer.reset();
        _free.insert(index);
        return true;
    }

    /// Ends the list: gives the free buffers, and all others now belong to their holders.
    FreeSet close() {
        AutoLock lock(_mutex);
        _list = nullptr;
        return std::move(_free);
    }

  private:
    mutable Mutex _mutex;
    BufferOwner* _list NIVUR_GUARDED_BY(_mutex);
    FreeSet _free NIVUR_GUARDED_BY(_mutex);
};

}  // namespace NIVUR

#endif
