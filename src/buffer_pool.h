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

/// The lists that a BufferPool is to have.
struct BufferPool_Config {
    std::vector<BufferList_Config> listConfigs;  ///< one element for each list, in any order
};

/// Hands out buffers from lists of several sizes. When no list can serve a request, the pool
/// allocates a buffer, so that it refuses only when memory is exhausted. Callers need not know
/// which of the two they got.
///
/// Any thread may call any operation. The pool may be destroyed before its buffers, like a
/// BufferList.
/// REQUIRES for destruction: no operation of the pool is under way.
class NIVUR_EXPORT BufferPool : public NoCopyable {
  public:
    /// Makes the lists. If `config` is null there are none, and every request is served by an
    /// allocation. `config` is not kept.
    BufferPool(const BufferPool_Config* config, std::string name);
    virtual ~BufferPool();

    /// Returns a buffer of at least `size` bytes: a free one from the first list, by ascending
    /// size, that has a large enough one; otherwise the result of getBuffer(). Only getBuffer()
    /// takes ownership of `param`. If the result is a list's buffer, which has an owner(), the
    /// caller keeps `param`, and parameter() still holds what the last holder stored.
    SharedPtr<Buffer> getPoolBuffer(unsigned int size, BaseBufferParam* param);

    /// Returns a new buffer of exactly `size` bytes without an owner, which is deleted at its last
    /// reference. It owns `param`, which may be null. If the memory for the bytes cannot be
    /// allocated, `param` is deleted and the result is empty; if allocating the Buffer object
    /// itself fails, `param` is deleted and std::bad_alloc is thrown.
    static SharedPtr<Buffer> getBuffer(unsigned int size, BaseBufferParam* param);

    /// Switches the guard check of all lists, see BufferList::setGuardCheckEnabled(). Allocated
    /// buffers are always checked.
    void setGuardCheckEnabled(bool enabled);

    /// The number of calls of getPoolBuffer() so far that no list could serve.
    uint64_t fallbackCount() const { return _fallbacks; }

    /// The name that was passed to the constructor.
    const std::string& name() const { return _name; }

  private:
    const std::string _name;
    std::vector<std::unique_ptr<BufferList>> _lists;  // by ascending size, constant once made
    std::atomic<uint64_t> _fallbacks{0};
};

/// Returns true if the buffers of `a` are smaller than those of `b`.
NIVUR_EXPORT bool sortBufferList(BufferList* a, BufferList* b);

}  // namespace NIVUR

#endif
