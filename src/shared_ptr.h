#ifndef NIVUR_SHARED_PTR_H
#define NIVUR_SHARED_PTR_H

#include <atomic>
#include <utility>

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// Decides what happens when the last SharedPtr to an object is destroyed. The pointers do not own
/// their disposer, which must outlive them: make it a static object.
template <class T>
class PtrDisposer {
  public:
    /// Disposes of the object, or of null for a pointer made from null. Called once, on the thread
    /// that drops the last reference, with no lock of the pointer held. It must not throw.
    virtual void dispose(T* object) = 0;

  protected:
    constexpr PtrDisposer() = default;
    ~PtrDisposer() = default;
};

/// The reference count that all SharedPtr to one object share.
template <class T>
class SharedCount : public NoCopyable {
  public:
    /// Where the count is: in a block of its own, which is deleted with the last reference, or
    /// embedded in the object and reused each time the object is handed out.
    enum Place { ON_HEAP, IN_OBJECT };

    /// Counts one reference to `object`, which `disposer` will dispose of.
    SharedCount(T* object, PtrDisposer<T>* disposer, Place place = ON_HEAP)
        : _ptr(object), _disposer(disposer), _place(place) {}

    /// Adds a reference. REQUIRES: there is one already.
    void incRefCount() { _refCount.fetch_add(1, std::memory_order_relaxed); }

    /// Drops a reference. After the last one, disposes of the object and deletes this count if it
    /// is on the heap.
    void decRefCount();

  private:
    template <class>
    friend class SharedPtr;

    T* const _ptr;
    std::atomic<unsigned int> _refCount{1};
    PtrDisposer<T>* const _disposer;
    const Place _place;
};

/// A reference-counted pointer: the last of the pointers that share an object disposes of it, by
/// default with delete. Pointers that share an object may be copied and dropped on any thread; what
/// their owners did with the object is visible to the disposer. A single SharedPtr object that
/// several threads use needs external locking if any of them modifies it.
template <class T>
class SharedPtr {
  public:
    /// The disposer of pointers that were given no other: deletes the object.
    class DefaultPtrDisposer final : public PtrDisposer<T> {
      public:
        constexpr DefaultPtrDisposer() = default;
        void dispose(T* object) override { delete object; }
    };

    /// The only instance. It is usable before any static object is constructed and after all are
    /// destroyed.
    static DefaultPtrDisposer _kDefaultPtrDisposer;

    /// An empty pointer.
    SharedPtr() noexcept = default;

    /// Takes ownership of `object`, which may be null. `disposer` must outlive every copy. Not
    /// explicit, so that a new object can be passed wherever a pointer like this is expected. If
    /// memory for the count is exhausted, the object is disposed of and std::bad_alloc is thrown.
    SharedPtr(T* object, PtrDisposer<T>* disposer = &_kDefaultPtrDisposer) : _ptr(object) {
        if (object == nullptr && disposer == &_kDefaultPtrDisposer) {
            return;  // an empty pointer needs no count
        }
        // Instead of a try block, which callers that disable exceptions could not compile.
        struct Uncounted {
            ~Uncounted() {
                if (disposer != nullptr) {
                    disposer->dispose(object);
                }
            }
            T* object;
            PtrDisposer<T>* disposer;
        } uncounted{object, disposer};
        _sharedCount = new SharedCount<T>(object, disposer);
        uncounted.disposer = nullptr;
    }

    /// Makes the first pointer to an object that embeds its own `count`; this allocates nothing.
    /// REQUIRES: there is no other pointer to the object.
    explicit SharedPtr(SharedCount<T>& count) noexcept : _ptr(count._ptr), _sharedCount(&count) {
        count._refCount.store(1, std::memory_order_relaxed);
    }

    /// Adds a reference to the same object.
    SharedPtr(const SharedPtr& other) : _ptr(other._ptr), _sharedCount(other._sharedCount) {
        if (_sharedCount != nullptr) {
            _sharedCount->incRefCount();
        }
    }

    /// Leaves `other` empty.
    SharedPtr(SharedPtr&& other) noexcept
        : _ptr(std::exchange(other._ptr, nullptr)),
          _sharedCount(std::exchange(other._sharedCount, nullptr)) {}

    /// Acquires the new object before releasing the old one, because destroying the old one may
    /// destroy `other`.
    SharedPtr& operator=(const SharedPtr& other) {
        SharedPtr(other).swap(*this);
        return *this;
    }

    /// Leaves `other` empty, unless it is this pointer.
    SharedPtr& operator=(SharedPtr&& other) noexcept {
        SharedPtr(std::move(other)).swap(*this);
        return *this;
    }

    ~SharedPtr() {
        if (_sharedCount != nullptr) {
            _sharedCount->decRefCount();
        }
    }

    /// The object, or null.
    T* get() const { return _ptr; }

    ///@{
    /// The object. REQUIRES: it is not null. Nothing checks this.
    T* operator->() const { return _ptr; }
    T& operator*() const { return *_ptr; }
    ///@}

    /// Returns true if get() is not null.
    explicit operator bool() const { return _ptr != nullptr; }

    /// Drops the reference. The pointer is empty before the disposer is called.
    void reset() noexcept { SharedPtr().swap(*this); }

    /// Exchanges the objects of two pointers; no count changes.
    void swap(SharedPtr& other) noexcept {
        std::swap(_ptr, other._ptr);
        std::swap(_sharedCount, other._sharedCount);
    }

  private:
    T* _ptr = nullptr;
    SharedCount<T>* _sharedCount = nullptr;
};

/// Pointers are equal when they point to the same object.
template <class T>
bool operator==(const SharedPtr<T>& a, const SharedPtr<T>& b) {
    return a.get() == b.get();
}

template <class T>
bool operator!=(const SharedPtr<T>& a, const SharedPtr<T>& b) {
    return a.get() != b.get();
}

// Defined outside the class, so that the types whose pointers the library instantiates have theirs
// in the library.
template <class T>
NIVUR_LOCAL typename SharedPtr<T>::DefaultPtrDisposer SharedPtr<T>::_kDefaultPtrDisposer;

template <class T>
void SharedCount<T>::decRefCount() {
    // Orders the other owners' accesses before the disposal. At count 1 no other owner exists that
    // could copy the pointer, so a load suffices and saves an atomic read-modify-write.
    if (_refCount.load(std::memory_order_acquire) != 1 &&
        _refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
    }
    const Place place = _place;
    _disposer->dispose(_ptr);
    if (place == ON_HEAP) {
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): it does not follow `place`
        delete this;
    }
}

}  // namespace NIVUR

#endif
