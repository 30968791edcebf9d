#ifndef NIVUR_BUFFER_H
#define NIVUR_BUFFER_H

#include <cstdint>
#include <memory>

#include "export.h"
#include "no_copyable.h"
#include "parameter.h"
#include "shared_ptr.h"

namespace NIVUR {

class Buffer;
struct BufferHome;

extern template class NIVUR_EXPORT SharedCount<Buffer>;
extern template class NIVUR_EXPORT SharedPtr<Buffer>;

/// Base of the objects that a caller may attach to a Buffer. The buffer deletes them through this
/// class.
class NIVUR_EXPORT BaseBufferParam {
  public:
    virtual ~BaseBufferParam() = default;
};

/// Receives buffers when their last reference is dropped. An owner passes itself to the constructor
/// of its buffers and hands them out in SharedPtr<Buffer> with the disposer Buffer::_disposer. It
/// must outlive its buffers, unless it is a BufferList.
class NIVUR_EXPORT BufferOwner {
  public:
    virtual ~BufferOwner() = default;

    /// Takes `buffer` back. Called with no lock held, on the thread that dropped the last
    /// reference.
    virtual void returnFreeBuffer(Buffer* buffer) = 0;
};

/// The state of a buffer.
enum BufferState : unsigned int {
    BUFFER_STATE_INVALID = 0,  ///< it has no memory
    BUFFER_STATE_FREE = 1,     ///< its owner may hand it out
    BUFFER_STATE_IN_USE = 2    ///< handed out; a buffer without an owner always is
};

/// A byte area of fixed capacity with four guard bytes after its used part. The destructor checks
/// the guard: if a stray write has changed it, the process ends with a report. A buffer that
/// returns to its owner gets a new guard without a check, unless BufferList::setGuardCheckEnabled()
/// asks for one.
///
/// Callers get buffers from a BufferPool or a BufferList and share them in SharedPtr<Buffer>, which
/// may be copied and dropped on any thread. The buffer itself is not thread-safe: one thread at a
/// time may use it. What one holder did with it is visible to the next one.
///
///     SharedPtr<Buffer> frame = pool.getPoolBuffer(size, nullptr);
///     memcpy(frame->data(), bytes, size);
///     frame->setUsedSize(size);
class NIVUR_EXPORT Buffer : public NoCopyable {
  public:
    /// The disposer of pointers to owned buffers: calls release(), and does nothing for null.
    class NIVUR_EXPORT SharedBufferDisposer final : public PtrDisposer<Buffer> {
      public:
        constexpr SharedBufferDisposer() = default;
        void dispose(Buffer* buffer) override;
    };

    /// The only instance. It is usable before any static object is constructed and after all are
    /// destroyed.
    static SharedBufferDisposer _disposer;

    /// The guard's value, stored in the byte order of the machine.
    NIVUR_LOCAL static constexpr uint32_t _checkByte = 0x0BADBADB;

    /// A key for callers who keep one value in a buffer's parameter().
    NIVUR_LOCAL static constexpr char _kParameterKey[] = "parameter";

    /// Makes a buffer of `size` bytes. It owns `param` but not `owner`; both may be null. Its state
    /// is free if it has an owner, otherwise in use. It is invalid, with null data() and capacity
    /// 0, if memory is exhausted or `size` plus the guard exceeds 32 bits.
    Buffer(unsigned int size, BaseBufferParam* param, BufferOwner* owner);

    /// Also deletes param() and the values of parameter().
    /// REQUIRES: the guard is intact.
    virtual ~Buffer();

    /// Makes the buffer free and empty again and gives it a new guard. An owner calls this before
    /// another thread can get the buffer. param() and parameter() stay: what one holder of a pooled
    /// buffer stored reaches the next. Does nothing to an invalid buffer.
    void reset();

    /// Returns the buffer to its owner; deletes it if it has no owner or if its list was destroyed.
    /// The disposer calls this, on any thread. Holders do not call it: they drop their pointers.
    void release();

    /// Checks the guard now. An invalid buffer has no guard.
    /// REQUIRES: the guard is intact.
    void checkBufferOverflow();

    /// The memory of capacity() bytes; null if the buffer is invalid.
    char* data() const { return _data; }

    /// The size in bytes that was passed to the constructor; 0 if the buffer is invalid.
    unsigned int capacity() const { return _capacity; }

    /// The number of bytes in use, from the start of data(); initially 0.
    unsigned int usedSize() const { return _usedSize; }

    /// Sets the number of bytes in use and writes the guard after them, overwriting what is there.
    /// Returns false and changes nothing if `size` exceeds the capacity or the buffer is invalid.
    bool setUsedSize(unsigned int size);

    /// The state; BUFFER_STATE_IN_USE while a caller holds the buffer.
    BufferState state() const { return _state; }

    /// The object that was passed to the constructor, or null. The buffer still owns it.
    BaseBufferParam* param() const { return _param; }

    /// Values that callers keep with the buffer. In a list's buffer they stay from one holder to
    /// the next.
    Parameter& parameter() { return _parameter; }

    /// The owner, or null. Also null once the buffer's list is destroyed.
    BufferOwner* owner() const;

  private:
    friend class BufferList;

    void placeGuard();
    bool goHome();  // false if the list was destroyed: the caller then deletes the buffer

    BufferOwner* _owner;
    BufferState _state = BUFFER_STATE_INVALID;
    unsigned int _capacity = 0;
    unsigned int _usedSize = 0;
    char* _data = nullptr;
    BaseBufferParam* _param;
    Parameter _parameter;

    // Set for a list's buffer, which may outlive the list; _owner is then not used.
    std::shared_ptr<BufferHome> _home;
    unsigned int _index = 0;
    SharedCount<Buffer> _count{this, &_disposer, SharedCount<Buffer>::IN_OBJECT};
};

}  // namespace NIVUR

#endif
