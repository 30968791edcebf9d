#ifndef NIVUR_BENCH_C_LOOPS_H
#define NIVUR_BENCH_C_LOOPS_H

#include <event2/event.h>
#include <event2/thread.h>
#include <glib-unix.h>
#include <glib.h>
#include <uv.h>

#include <memory>
#include <thread>
#include <utility>

#include "loop_support.h"

namespace bench {

/// The argument for runAndDelete() that is passed to a C library.
template <class Task>
void* newTask(Task task) {
    return new Task(std::move(task));
}

template <class Task>
void runAndDelete(void* argument) {
    const std::unique_ptr<Task> task(static_cast<Task*>(argument));
    (*task)();
}

/// libuv has no queue, so the adapter has one, which is emptied in batches.
class UvLoop {
  public:
    struct Timer {
        uv_timer_t handle;
        Action action;
    };
    using TimerHandle = Timer*;
    static std::string name() { return "libuv"; }

    UvLoop() {
        uv_loop_init(&_loop);
        _async.data = this;
        uv_async_init(&_loop, &_async,
                      [](uv_async_t* async) { static_cast<UvLoop*>(async->data)->runBatch(); });
        _thread = std::thread([this] { uv_run(&_loop, UV_RUN_DEFAULT); });
    }
    ~UvLoop() {
        post([this] { uv_close(reinterpret_cast<uv_handle_t*>(&_async), nullptr); });
        _thread.join();
        uv_loop_close(&_loop);
    }

    template <class Task>
    void post(Task task) {
        {
            const std::lock_guard lock(_mutex);
            _queue.emplace_back(std::move(task));
        }
        uv_async_send(&_async);
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }

    TimerHandle addTimer(unsigned int ms, Action action) {
        auto* timer = new Timer{{}, std::move(action)};
        timer->handle.data = timer;
        uv_timer_init(&_loop, &timer->handle);
        start(timer, ms);
        return timer;
    }
    void resetTimer(TimerHandle timer) { start(timer, kTimerInterval); }
    static void stopTimer(TimerHandle timer) {
        uv_close(reinterpret_cast<uv_handle_t*>(&timer->handle),
                 [](uv_handle_t* handle) { delete static_cast<Timer*>(handle->data); });
    }

    struct Watch {
        uv_poll_t handle;
        Action action;
    };
    using WatchHandle = Watch*;
    WatchHandle addWatch(int descriptor, Action action) {
        auto* watch = new Watch{{}, std::move(action)};
        watch->handle.data = watch;
        uv_poll_init(&_loop, &watch->handle, descriptor);
        uv_poll_start(&watch->handle, UV_READABLE, [](uv_poll_t* handle, int, int) {
            static_cast<Watch*>(handle->data)->action();
        });
        return watch;
    }
    static void removeWatch(WatchHandle watch) {
        uv_close(reinterpret_cast<uv_handle_t*>(&watch->handle),
                 [](uv_handle_t* handle) { delete static_cast<Watch*>(handle->data); });
    }

  private:
    void start(Timer* timer, unsigned int ms) {
        uv_update_time(&_loop);
        uv_timer_start(
            &timer->handle,
            [](uv_timer_t* handle) {
                auto* fired = static_cast<Timer*>(handle->data);
                fired->action();
                stopTimer(fired);
            },
            ms, 0);
    }

    void runBatch() {
        {
            const std::lock_guard lock(_mutex);
            _batch.swap(_queue);
        }
        for (const Action& task : _batch) {
            task();
        }
        _batch.clear();
    }

    uv_loop_t _loop;
    uv_async_t _async;
    std::mutex _mutex;
    std::vector<Action> _queue;
    std::vector<Action> _batch;
    std::thread _thread;
};

class EventLoop {
  public:
    struct Timer {
        event* handle;
        Action action;
    };
    using Handle = Timer*;
    using TimerHandle = Timer*;
    using WatchHandle = Timer*;
    static std::string name() { return "libevent"; }

    EventLoop() {
        evthread_use_pthreads();
        _base = event_base_new();
        event_base_priority_init(_base, 2);
        _thread = std::thread([this] { event_base_loop(_base, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    ~EventLoop() {
        event_base_loopbreak(_base);
        _thread.join();
        event_base_free(_base);
    }

    template <class Task>
    void post(Task task) {
        event_base_once(
            _base, -1, EV_TIMEOUT,
            [](evutil_socket_t, short, void* argument) { runAndDelete<Task>(argument); },
            newTask(std::move(task)), nullptr);
    }
    template <class Task>
    void postFirst(Task task) {
        activate(std::move(task), 0);
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        return activate(std::move(task), 1);
    }
    static void cancel(Handle handle) { stopTimer(handle); }

    TimerHandle addTimer(unsigned int ms, Action action) {
        Timer* timer = make(std::move(action));
        start(timer, ms);
        return timer;
    }
    static void resetTimer(TimerHandle timer) { start(timer, kTimerInterval); }
    static void stopTimer(TimerHandle timer) {
        event_free(timer->handle);
        delete timer;
    }

    WatchHandle addWatch(int descriptor, Action action) {
        auto* watch = new Timer{nullptr, std::move(action)};
        watch->handle = event_new(
            _base, descriptor, EV_READ | EV_PERSIST,
            [](evutil_socket_t, short, void* argument) { static_cast<Timer*>(argument)->action(); },
            watch);
        event_add(watch->handle, nullptr);
        return watch;
    }
    static void removeWatch(WatchHandle watch) { stopTimer(watch); }

  private:
    Timer* make(Action action) {
        auto* timer = new Timer{nullptr, std::move(action)};
        timer->handle = event_new(
            _base, -1, 0,
            [](evutil_socket_t, short, void* argument) {
                auto* fired = static_cast<Timer*>(argument);
                fired->action();
                stopTimer(fired);
            },
            timer);
        return timer;
    }

    Timer* activate(Action action, int priority) {
        Timer* timer = make(std::move(action));
        event_priority_set(timer->handle, priority);
        event_active(timer->handle, EV_TIMEOUT, 1);
        return timer;
    }

    static void start(Timer* timer, unsigned int ms) {
        const timeval interval = {ms / 1000, static_cast<suseconds_t>(ms % 1000) * 1000};
        event_add(timer->handle, &interval);
    }

    event_base* _base = nullptr;
    std::thread _thread;
};

class GlibLoop {
  public:
    using TimerHandle = GSource*;
    using WatchHandle = GSource*;
    using Handle = GSource*;
    static std::string name() { return "GLib"; }

    GlibLoop() {
        _thread = std::thread([this] { g_main_loop_run(_loop); });
    }
    ~GlibLoop() {
        call([this] { g_main_loop_quit(_loop); });
        _thread.join();
        g_main_loop_unref(_loop);
        g_main_context_unref(_context);
    }

    template <class Task>
    void post(Task task) {
        attach(g_idle_source_new(), std::move(task), G_PRIORITY_DEFAULT);
    }
    template <class Task>
    void postFirst(Task task) {
        attach(g_idle_source_new(), std::move(task), G_PRIORITY_HIGH);
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        return attach(g_idle_source_new(), std::move(task), G_PRIORITY_DEFAULT);
    }
    static void cancel(Handle source) { g_source_destroy(source); }

    TimerHandle addTimer(unsigned int ms, Action action) {
        return attach(g_timeout_source_new(ms), std::move(action), G_PRIORITY_DEFAULT);
    }
    static void resetTimer(TimerHandle timer) {
        g_source_set_ready_time(timer, g_get_monotonic_time() + kTimerInterval * 1000LL);
    }
    static void stopTimer(TimerHandle timer) { g_source_destroy(timer); }

    WatchHandle addWatch(int descriptor, Action action) {
        GSource* source = g_unix_fd_source_new(descriptor, G_IO_IN);
        const GUnixFDSourceFunc ready = [](gint, GIOCondition, void* argument) -> gboolean {
            (*static_cast<Action*>(argument))();
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(source, G_SOURCE_FUNC(ready), newTask(std::move(action)),
                              [](void* argument) { delete static_cast<Action*>(argument); });
        g_source_attach(source, _context);
        g_source_unref(source);
        return source;
    }
    static void removeWatch(WatchHandle source) { g_source_destroy(source); }

  private:
    template <class Task>
    GSource* attach(GSource* source, Task task, int priority) {
        g_source_set_priority(source, priority);
        g_source_set_callback(
            source,
            [](void* argument) -> gboolean {
                (*static_cast<Task*>(argument))();
                return G_SOURCE_REMOVE;
            },
            newTask(std::move(task)), [](void* argument) { delete static_cast<Task*>(argument); });
        g_source_attach(source, _context);
        g_source_unref(source);  // the context holds its own reference until the source is finished
        return source;
    }

    GMainContext* _context = g_main_context_new();
    GMainLoop* _loop = g_main_loop_new(_context, FALSE);
    std::thread _thread;
};

}  // namespace bench

#endif
