#ifndef NIVUR_RUNNABLE_H
#define NIVUR_RUNNABLE_H

#include <string>
#include <type_traits>
#include <utility>

#include "export.h"
#include "shared_ptr.h"

namespace NIVUR {

/// A task. An operation of this library that is passed a Runnable* owns it from then on, even if it
/// refuses the task, and deletes it through this class.
class NIVUR_EXPORT Runnable {
  public:
    Runnable() = default;
    virtual ~Runnable();

    ///@{
    /// Copies are not queued; assigning to a queued task leaves it queued.
    Runnable(const Runnable& /*other*/) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): it assigns nothing
    Runnable& operator=(const Runnable& /*other*/) { return *this; }
    ///@}

    /// Performs the task.
    virtual void run() = 0;

    /// Returns the object that the task acts on, by which it can be cancelled; null if there is
    /// none. Like dump(), it may be called while run() runs on another thread, and with locks of a
    /// run loop held: it must not call the loop.
    virtual void* getObject();

    /// Returns a description of the task for diagnostics. It may be called while run() runs on
    /// another thread, and with locks of a run loop held: it must not call the loop.
    virtual std::string dump() = 0;

  private:
    friend class TaskLink;

    Runnable* _next = nullptr;  // in a queue of the run loop that owns the task
};

/// Removes the standard library's inline namespace from a __PRETTY_FUNCTION__ text, so that the
/// text does not depend on the ABI of its strings.
NIVUR_EXPORT std::string plainFunctionText(std::string text);

/// A task that calls a member function on an object. The task does not own the object, which must
/// live until the task has run or is deleted.
template <class TClass, class Func>
class Functor0 : public Runnable {
  public:
    /// Makes a task that calls `func` on `object`; getObject() returns `object`.
    Functor0(TClass* object, Func func) : _object(object), _func(func) {}

    void run() override { (_object->*_func)(); }
    void* getObject() override { return _object; }

    /// Returns the compiler's text for this function, which names the class and the type of the
    /// member function.
    std::string dump() override { return plainFunctionText(__PRETTY_FUNCTION__); }

  private:
    TClass* _object;
    Func _func;
};

/// A task that calls a copy of anything that can be called without arguments.
template <class Callable>
class CallableRunnable : public Runnable {
  public:
    /// Keeps `callable`; getObject() returns `object`, which the task does not own.
    CallableRunnable(Callable callable, void* object)
        : _callable(std::move(callable)), _object(object) {}

    void run() override { _callable(); }
    void* getObject() override { return _object; }

    /// Returns the compiler's text for this function, which names the callable's type.
    std::string dump() override { return plainFunctionText(__PRETTY_FUNCTION__); }

  private:
    Callable _callable;
    void* _object;
};

/// Returns a new task, owned by the caller, that calls `callable`. getObject() returns `object`,
/// which the task does not own; without an object RunLoop::cancelTasksForObject() does not find the
/// task. If memory is exhausted, std::bad_alloc is thrown.
template <class Callable>
Runnable* makeRunnable(Callable&& callable, void* object = nullptr) {
    return new CallableRunnable<std::decay_t<Callable>>(std::forward<Callable>(callable), object);
}

extern template class NIVUR_EXPORT SharedCount<Runnable>;
extern template class NIVUR_EXPORT SharedPtr<Runnable>;

}  // namespace NIVUR

#endif
