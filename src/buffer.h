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

/// Base of what a caller may attach to a Buffer, which deletes it through this class.
class NIVUR_EXPORT BaseBufferParam {
  public:
    virtual ~BaseBufferParam() = default;
};

/// Where buffers go when their last reference drops. An owner makes its buffers with itself as
/// their owner and hands them out in SharedPtr<Buffer> with Buffer::_disposer. It must outlive
/// them; only a BufferList need not.
class NIVUR_EXPORT BufferOwner {
  public:
    virtual ~BufferOwner() = default;

    /// Takes `buffer` back, on whichever thread dropped the last reference and with no lock held.
    virtual void returnFreeBuffer(Buffer* buffer) = 0;
};

/// Where a buffer stands in its life.
enum BufferState : unsigned int {
    BUFFER_STATE_INVALID = 0,  ///< without memory
    BUFFER_STATE_FREE = 1,     ///< waiting at its owner
    BUFFER_STATE_IN_USE = 2    ///< with a holder, as an unowned buffer is from the start
};

/// A byte area of fixed capacity with four guard bytes behind its used part. They are checked when
/// the buffer is deleted: a stray write behind the used size ends the process there, with a report.
/// A buffer that goes back to its owner gets a new guard unchecked, unless its list is told to
/// check, see BufferList::setGuardCheckEnabled().
///
/// Holders get buffers from a BufferPool or a BufferList and share them in SharedPtr<Buffer>, which
/// they may copy and drop on any threads. A buffer has no lock of its own: one holder at a time
/// uses it, as in
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

    /// The one object of it, there before an application's first static object and after its last.
    static SharedBufferDisposer _disposer;

    /// The guard's value, stored in the byte order of the machine.
    NIVUR_LOCAL static constexpr uint32_t _checkByte = 0x0BADBADB;

    /// A key for callers who keep one value in a buffer's parameter().
    NIVUR_LOCAL static constexpr char _kParameterKey[] = "parameter";

    /// A buffer of `size` bytes that owns `param`, which may be null: free if there is an `owner`,
    /// which is not owned, and in use if that is null. When the memory cannot be had, or `size` and
    /// the guard exceed 32 bits, it is invalid: data() is null and the capacity 0.
    Buffer(unsigned int size, BaseBufferParam* param, BufferOwner* owner);

    /// Deletes the param and the values of the parameter as well.
    /// REQUIRES: the guard is intact.
    virtual ~Buffer();

    /// Makes the buffer free and empty again, for its owner, who calls it before anyone else can
    /// get the buffer. Param and parameter stay: what one holder of a pooled buffer stored reaches
    /// the next. An invalid buffer stays as it is.
    void reset();

    /// Ends one use: hands the buffer to its owner, or deletes it when it has none or when the list
    /// that it came from is gone. The disposer's way, on any thread: holders just drop their
    /// pointers.
    void release();

    /// Checks the guard now.
    /// REQUIRES: the guard is intact; an invalid buffer has none.
    void checkBufferOverflow();

    /// The area of capacity() bytes, or null.
    char* data() const { return _data; }

    /// The size asked for when the buffer was made, or the list's.
    unsigned int capacity() const { return _capacity; }

    /// How many bytes are in use, from the start of the area; 0 at first.
    unsigned int usedSize() const { return _usedSize; }

    /// Says how many bytes are in use and puts the guard behind them, over what is there; false,
    /// with nothing changed, above the capacity and for an invalid buffer.
    bool setUsedSize(unsigned int size);

    /// Where the buffer stands; in use as long as the caller holds it.
    BufferState state() const { return _state; }

    /// The object that the buffer was made with, lent, or null.
    BaseBufferParam* param() const { return _param; }

    /// What holders keep with the buffer. A list's buffer keeps it from one holder to the next.
    Parameter& parameter() { return _parameter; }

    /// Where the buffer returns to, or null: also once the list that it came from is gone.
    BufferOwner* owner() const;

  private:
    friend class BufferList;

    void placeGuard();
    bool goHome();  // false if the list is gone: the caller deletes the buffer

    BufferOwner* _owner;
    BufferState _state = BUFFER_STATE_INVALID;
    unsigned int _capacity = 0;
    unsigned int _usedSize = 0;
    char* _data = nullptr;
    BaseBufferParam* _param;
    Parameter _parameter;

    // Of a list's buffer only, and then in place of _owner, which the buffer may outlive.
    std::shared_ptr<BufferHome> _home;
    unsigned int _index = 0;
    SharedCount<Buffer> _count{this, &_disposer, SharedCount<Buffer>::IN_OBJECT};
};

}  // namespace NIVUR

#endif
