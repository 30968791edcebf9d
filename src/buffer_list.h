#ifndef NIVUR_BUFFER_LIST_H
#define NIVUR_BUFFER_LIST_H

#include <memory>
#include <vector>

#include "buffer.h"
#include "export.h"
#include "no_copyable.h"
#include "shared_ptr.h"

namespace NIVUR {

/// What a BufferList is to hold.
struct BufferList_Config {
    unsigned int bufferSize;   ///< capacity of each buffer in bytes
    unsigned int bufferCount;  ///< how many there are
};

/// A fixed number of buffers of one size, all made at the start, that are handed out and come back
/// by themselves when their last reference drops. Any thread may call any operation.
///
/// The list may end before its buffers, also while other threads drop them: those that are out stay
/// valid for their holders, have no owner any more and are deleted, with their guard checked, at
/// their last reference. The others are deleted at once.
/// REQUIRES for destruction: no operation of the list itself is under way.
class NIVUR_EXPORT BufferList : public BufferOwner, public NoCopyable {
  public:
    /// Makes the buffers, without a param; fewer than asked for if the memory for another's data
    /// cannot be had, and std::bad_alloc when there is none for the rest. Not explicit: a config
    /// may stand for its list.
    BufferList(const BufferList_Config& config);
    ~BufferList() override;

    /// The free buffer that was made first, in use and with used size 0, or an empty pointer when
    /// none is free. Other threads at work may get in between: it is then one of the first. Its
    /// parameter() still holds what its last holder stored. Finding one takes no lock and no
    /// memory, and hardly longer in a long list than in a short one; finding that none is free
    /// reads a word for every 62 buffers (30 on 32-bit machines). `size` is ignored.
    SharedPtr<Buffer> getBuffer(unsigned int size);

    /// Makes one of the list's buffers free again; one that is free stays so. The pointers that the
    /// list hands out do the same by themselves, without this call. A buffer that someone else made
    /// with this list as its owner is reset and stays with its maker.
    /// REQUIRES: buffer is not null.
    void returnFreeBuffer(Buffer* buffer) override;

    /// Makes the list check the guard of each buffer that comes back, or not (the default): a stray
    /// write behind the used size then ends the process there, on the thread that dropped the last
    /// reference. For debug builds and tests of applications.
    void setGuardCheckEnabled(bool enabled);

    /// The capacity of each buffer in bytes.
    unsigned int bufferSize() const { return _bufferSize; }

    /// How many buffers there are.
    unsigned int bufferCount() const;

    /// How many of them are not handed out, exact while no other thread is at work.
    unsigned int freeCount() const;

  private:
    // Constant once made. What changes is in _home, which the buffers that are out keep alive.
    const unsigned int _bufferSize;
    std::vector<std::unique_ptr<Buffer>> _buffers;
    std::shared_ptr<BufferHome> _home;
};

}  // namespace NIVUR

#endif
