#ifndef NIVUR_PRIVATE_TASK_QUEUE_H
#define NIVUR_PRIVATE_TASK_QUEUE_H

#include <cstddef>
#include <memory>
#include <utility>

#include "no_copyable.h"
#include "runnable.h"

namespace NIVUR {

/// Access to the link in a task, for the queues that own tasks.
class TaskLink {
  public:
    static Runnable*& of(Runnable& task) { return task._next; }
};

/// A first-in, first-out queue that owns its tasks. They are linked through a pointer in each task,
/// so that queueing and moving them allocates nothing. Not thread-safe.
class TaskQueue : public NoCopyable {
  public:
    TaskQueue() = default;

    /// Deletes the tasks, first to last.
    ~TaskQueue() {
        while (!empty()) {
            pop();
        }
    }

    bool empty() const { return _first == nullptr; }
    size_t size() const { return _size; }

    void push(std::unique_ptr<Runnable> task) {
        Runnable* const last = task.release();
        TaskLink::of(*last) = nullptr;
        append(last, last, 1);
    }

    /// Removes the first task and returns it; null if the queue is empty.
    std::unique_ptr<Runnable> pop() {
        std::unique_ptr<Runnable> task(_first);
        if (task != nullptr) {
            _first = TaskLink::of(*task);
            _end = _first == nullptr ? &_first : _end;
            --_size;
        }
        return task;
    }

    /// Moves the tasks of `other` for which `wanted` returns true to the end of this queue, in
    /// their order.
    template <class Predicate>
    void takeIf(TaskQueue& other, Predicate wanted) {
        Runnable** link = &other._first;
        while (*link != nullptr) {
            Runnable& task = **link;
            if (wanted(task)) {
                *link = TaskLink::of(task);
                --other._size;
                push(std::unique_ptr<Runnable>(&task));
            } else {
                link = &TaskLink::of(task);
            }
        }
        other._end = link;
    }

    /// Moves all of `other` to the end of this queue.
    void append(TaskQueue& other) {
        if (!other.empty()) {
            *_end = std::exchange(other._first, nullptr);
            _end = std::exchange(other._end, &other._first);
            _size += std::exchange(other._size, 0);
        }
    }

    /// Appends a chain of tasks whose links lead from the newest to the oldest, and takes ownership
    /// of them. The oldest becomes the first of them.
    void appendReversed(Runnable* newest) {
        Runnable* oldest = nullptr;
        size_t count = 0;
        for (Runnable* task = newest; task != nullptr; ++count) {
            Runnable* const older = std::exchange(TaskLink::of(*task), oldest);
            oldest = std::exchange(task, older);
        }
        if (newest != nullptr) {
            append(oldest, newest, count);
        }
    }

    template <class Visitor>
    void forEach(Visitor visit) const {
        for (Runnable* task = _first; task != nullptr; task = TaskLink::of(*task)) {
            visit(*task);
        }
    }

  private:
    void append(Runnable* first, Runnable* last, size_t count) {
        *_end = first;
        _end = &TaskLink::of(*last);
        _size += count;
    }

    Runnable* _first = nullptr;
    Runnable** _end = &_first;  // the link that the next task is stored in
    size_t _size = 0;
};

}  // namespace NIVUR

#endif
