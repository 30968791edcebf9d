#ifndef NIVUR_SHARED_PTR_H
#define NIVUR_SHARED_PTR_H

#include <atomic>
#include <utility>

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// What happens to an object when its last SharedPtr goes. A disposer is not owned by the pointers
/// that use it and must outlive them: make it a static.
template <class T>
class PtrDisposer {
  public:
    /// Called once, with null for a pointer made from null, on the thread that drops the last
    /// reference and with no lock of the pointer held. It must not throw.
    virtual void dispose(T* object) = 0;

  protected:
    constexpr PtrDisposer() = default;
    ~PtrDisposer() = default;
};

/// The count that all SharedPtr to one object share.
template <class T>
class SharedCount : public NoCopyable {
  public:
    /// A block on the heap, which goes with the last reference, or a part of the object, which
    /// serves again when the object is lent anew.
    enum Place { ON_HEAP, IN_OBJECT };

    /// One reference to `object`, which `disposer` will end.
    SharedCount(T* object, PtrDisposer<T>* disposer, Place place = ON_HEAP)
        : _ptr(object), _disposer(disposer), _place(place) {}

    /// Adds one reference to those that are there.
    void incRefCount() { _refCount.fetch_add(1, std::memory_order_relaxed); }

    /// Drops one reference; the last one disposes of the object and frees this block.
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
/// default with delete. Pointers that share an object may be copied and dropped on any threads; one
/// pointer that several threads use needs a lock of theirs if any of them changes it.
template <class T>
class SharedPtr {
  public:
    /// The disposer of pointers that were given none: deletes the object.
    class DefaultPtrDisposer final : public PtrDisposer<T> {
      public:
        constexpr DefaultPtrDisposer() = default;
        void dispose(T* object) override { delete object; }
    };

    /// The one object of it, there before an application's first static object and after its last.
    static DefaultPtrDisposer _kDefaultPtrDisposer;

    /// An empty pointer.
    SharedPtr() noexcept = default;

    /// Takes over `object`, which may be null. Not explicit, so that a new object can be handed to
    /// whatever takes a pointer like this. When memory for the count is exhausted the object is
    /// disposed of and std::bad_alloc passes through. `disposer` must outlive every copy.
    SharedPtr(T* object, PtrDisposer<T>* disposer = &_kDefaultPtrDisposer) : _ptr(object) {
        if (object == nullptr && disposer == &_kDefaultPtrDisposer) {
            return;  // nothing to count, so that an empty pointer never needs memory
        }
        // Without try, which callers that do without exceptions could not compile.
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

    /// The first pointer to an object that holds its own `count`: it needs no memory.
    /// REQUIRES: there is no other pointer to the object.
    explicit SharedPtr(SharedCount<T>& count) noexcept : _ptr(count._ptr), _sharedCount(&count) {
        count._refCount.store(1, std::memory_order_relaxed);
    }

    /// One more reference to the same object.
    SharedPtr(const SharedPtr& other) : _ptr(other._ptr), _sharedCount(other._sharedCount) {
        if (_sharedCount != nullptr) {
            _sharedCount->incRefCount();
        }
    }

    /// Leaves `other` empty.
    SharedPtr(SharedPtr&& other) noexcept
        : _ptr(std::exchange(other._ptr, nullptr)),
          _sharedCount(std::exchange(other._sharedCount, nullptr)) {}

    /// The new object is held before the old one is let go, whose end may take `other` with it.
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

    /// The object, lent, or null.
    T* get() const { return _ptr; }

    ///@{
    /// The object, which must be there: nothing checks it.
    T* operator->() const { return _ptr; }
    T& operator*() const { return *_ptr; }
    ///@}

    /// True when there is an object.
    explicit operator bool() const { return _ptr != nullptr; }

    /// Drops the object: the pointer is empty when a disposer looks at it.
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

// Only here, so that the types whose pointers the library instantiates have theirs in the library.
template <class T>
NIVUR_LOCAL typename SharedPtr<T>::DefaultPtrDisposer SharedPtr<T>::_kDefaultPtrDisposer;

template <class T>
void SharedCount<T>::decRefCount() {
    // What the others did with the object is done before it goes. The only one that is left can
    // tell by looking.
    if (_refCount.load(std::memory_order_acquire) != 1 &&
        _refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
    }
    const Place place = _place;
    _disposer->dispose(_ptr);
    if (place == ON_HEAP) {
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): `place`, which it does not follow
        delete this;
    }
}

}  // namespace NIVUR

#endif
