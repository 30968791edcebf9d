#ifndef NIVUR_BUFFER_LIST_H
#define NIVUR_BUFFER_LIST_H

#include <memory>
#include <vector>

#include "buffer.h"
#include "export.h"
#include "no_copyable.h"
#include "shared_ptr.h"

namespace NIVUR {

/// The contents of a BufferList.
struct BufferList_Config {
    unsigned int bufferSize;   ///< capacity of each buffer in bytes
    unsigned int bufferCount;  ///< number of buffers
};

/// Hands out a fixed number of buffers of one size, which it allocates at construction. A buffer
/// returns by itself when its last reference is dropped. Any thread may call any operation.
///
/// The list may be destroyed before its buffers, also while other threads drop them. Buffers that
/// are handed out stay valid but have no owner any more; when the last reference is dropped, the
/// guard is checked and the buffer deleted. Free buffers are deleted with the list.
/// REQUIRES for destruction: no operation of the list itself is under way.
class NIVUR_EXPORT BufferList : public BufferOwner, public NoCopyable {
  public:
    /// Allocates the buffers, without a param. If the data of one cannot be allocated, the list has
    /// only those before it. If other memory is exhausted, std::bad_alloc is thrown. Not explicit,
    /// so that a config can be passed as its list.
    BufferList(const BufferList_Config& config);
    ~BufferList() override;

    /// Returns the first free buffer in the order of allocation, in use and with used size 0; an
    /// empty pointer if none is free. While other threads take and return buffers, it may be a
    /// later one. Its parameter() still holds what its last holder stored. `size` is ignored.
    /// Finding a buffer needs no lock and no allocation, and its time hardly depends on the length
    /// of the list. Finding that none is free reads a word for every 62 buffers (30 on 32-bit
    /// machines).
    SharedPtr<Buffer> getBuffer(unsigned int size);

    /// Makes one of the list's buffers free again; does nothing if it is free. The pointers that
    /// the list hands out do this by themselves. A buffer that a caller constructed with this list
    /// as its owner is only reset; the caller keeps it.
    /// REQUIRES: buffer is not null.
    void returnFreeBuffer(Buffer* buffer) override;

    /// Makes the list check the guard of each buffer that returns, or not (the default). A stray
    /// write after the used part then ends the process on the thread that drops the last reference.
    /// For debug builds and tests of applications.
    void setGuardCheckEnabled(bool enabled);

    /// The capacity of each buffer in bytes.
    unsigned int bufferSize() const { return _bufferSize; }

    /// The number of buffers.
    unsigned int bufferCount() const;

    /// The number of buffers that are not handed out; exact while no other thread takes or returns
    /// one.
    unsigned int freeCount() const;

  private:
    // Constant after construction. Variable state is in _home, which handed-out buffers keep alive.
    const unsigned int _bufferSize;
    std::vector<std::unique_ptr<Buffer>> _buffers;
    std::shared_ptr<BufferHome> _home;
};

}  // namespace NIVUR

#endif
