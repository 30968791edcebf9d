#ifndef NIVUR_RUNNABLE_H
#define NIVUR_RUNNABLE_H

#include <string>
#include <type_traits>
#include <utility>

#include "export.h"
#include "shared_ptr.h"

namespace NIVUR {

/// A task. Whoever is handed a Runnable* by an operation of this library owns it from then on, also
/// when the operation refuses it, and deletes it through this class.
class NIVUR_EXPORT Runnable {
  public:
    Runnable() = default;
    virtual ~Runnable();

    ///@{
    /// A copy is queued nowhere, and a task that is assigned to stays where it is queued.
    Runnable(const Runnable& /*other*/) {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): it assigns nothing
    Runnable& operator=(const Runnable& /*other*/) { return *this; }
    ///@}

    /// Performs the task.
    virtual void run() = 0;

    /// The object that the task acts on, by which it can be cancelled; null when there is none. As
    /// dump(), it may be called while run() runs on another thread, and with locks of a run loop
    /// held: it must not call the loop.
    virtual void* getObject();

    /// Describes the task in diagnostics. It may be called while run() runs on another thread, and
    /// with locks of a run loop held: it must not call the loop.
    virtual std::string dump() = 0;

  private:
    friend class TaskLink;

    Runnable* _next = nullptr;  // in the queue of the run loop that owns it
};

/// Spells the string type in a compiler's function text without the standard library's inline
/// namespace, so that the text does not change with the library's version.
NIVUR_EXPORT std::string plainFunctionText(std::string text);

/// The task of calling a member function on an object, which is not owned and must live until the
/// task has run or is gone.
template <class TClass, class Func>
class Functor0 : public Runnable {
  public:
    /// Will call `func` on `object`, by which the task can be cancelled.
    Functor0(TClass* object, Func func) : _object(object), _func(func) {}

    void run() override { (_object->*_func)(); }
    void* getObject() override { return _object; }

    /// The compiler's text for this function, which names the class and the type of the function.
    std::string dump() override { return plainFunctionText(__PRETTY_FUNCTION__); }

  private:
    TClass* _object;
    Func _func;
};

/// The task of calling a copy of anything that can be called without arguments.
template <class Callable>
class CallableRunnable : public Runnable {
  public:
    /// Keeps `callable`; `object`, which is what getObject() gives, is not owned.
    CallableRunnable(Callable callable, void* object)
        : _callable(std::move(callable)), _object(object) {}

    void run() override { _callable(); }
    void* getObject() override { return _object; }

    /// As Functor0's: the compiler's text, which names the callable's type.
    std::string dump() override { return plainFunctionText(__PRETTY_FUNCTION__); }

  private:
    Callable _callable;
    void* _object;
};

/// A new task, the caller's, that calls `callable`; getObject() gives `object`, which is not owned.
/// Without an object RunLoop::cancelTasksForObject() cannot find the task. When memory is exhausted
/// std::bad_alloc passes through.
template <class Callable>
Runnable* makeRunnable(Callable&& callable, void* object = nullptr) {
    return new CallableRunnable<std::decay_t<Callable>>(std::forward<Callable>(callable), object);
}

extern template class NIVUR_EXPORT SharedCount<Runnable>;
extern template class NIVUR_EXPORT SharedPtr<Runnable>;

}  // namespace NIVUR

#endif
