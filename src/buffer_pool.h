#ifndef NIVUR_BUFFER_POOL_H
#define NIVUR_BUFFER_POOL_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "buffer.h"
#include "buffer_list.h"
#include "export.h"
#include "no_copyable.h"
#include "shared_ptr.h"

namespace NIVUR {

/// What lists a BufferPool is to have.
struct BufferPool_Config {
    std::vector<BufferList_Config> listConfigs;  ///< one for each list, in any order
};

/// Lists of buffers of several sizes, and plain memory where they do not suffice: a pool refuses
/// only when there is no memory left. It saves allocations and nothing else, so that callers need
/// not know which of the two they got.
///
/// Any thread may call any operation. The pool may end before its buffers, as a BufferList may.
/// REQUIRES for destruction: no operation of the pool is under way.
class NIVUR_EXPORT BufferPool : public NoCopyable {
  public:
    /// Makes the lists; a pool without a config has none and serves every request all the same.
    BufferPool(const BufferPool_Config* config, std::string name);
    virtual ~BufferPool();

    /// A buffer of at least `size` bytes: a free one of the smallest list that is large enough and
    /// has one, or else what getBuffer() gives. Only getBuffer() takes `param` over: with a list's
    /// buffer, which has an owner(), it is not attached and stays the caller's. Such a buffer's
    /// parameter() still holds what its last holder stored. When the memory for either cannot be
    /// had, `param` is deleted, with the results of getBuffer().
    SharedPtr<Buffer> getPoolBuffer(unsigned int size, BaseBufferParam* param);

    /// A new unowned buffer of exactly `size` bytes that owns `param`, which may be null, and is
    /// deleted at its last reference. An empty pointer, with `param` deleted, when the memory for
    /// the bytes cannot be had; std::bad_alloc, with `param` deleted, when there is none for the
    /// rest.
    static SharedPtr<Buffer> getBuffer(unsigned int size, BaseBufferParam* param);

    /// Tells all lists to check guards, see BufferList::setGuardCheckEnabled(). Buffers of plain
    /// memory are checked in any case.
    void setGuardCheckEnabled(bool enabled);

    /// How many requests to getPoolBuffer() no list could serve so far.
    uint64_t fallbackCount() const { return _fallbacks; }

    /// What the pool was called when it was made.
    const std::string& name() const { return _name; }

  private:
    const std::string _name;
    std::vector<std::unique_ptr<BufferList>> _lists;  // by ascending size, constant once made
    std::atomic<uint64_t> _fallbacks{0};
};

/// True when the buffers of `a` are smaller than those of `b`.
NIVUR_EXPORT bool sortBufferList(BufferList* a, BufferList* b);

}  // namespace NIVUR

#endif
