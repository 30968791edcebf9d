#ifndef NIVUR_BENCH_LOOPS_H
#define NIVUR_BENCH_LOOPS_H

#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <event2/event.h>
#include <event2/thread.h>
#include <glib.h>
#include <nivur/run_loop.h>
#include <utils/Looper.h>
#include <uv.h>

#include <atomic>
#include <boost/asio.hpp>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench.h"

/// The run loops, each on a thread of its own and, with one exception, with the queue it comes
/// with:
///   post(task)             queues a task from any thread
///   postFirst(task)        the same, ahead of what is queued
///   call(task)             posts and waits until it has run
///   postCancellable(task)  what cancel() takes to remove the task; both on the loop's thread
///   addTimer(ms, action)   a timer that fires once; this and the rest on the loop's thread
///   resetTimer(timer), stopTimer(timer)
/// Where the peer has no such thing the adapter has none either. A posted task costs every peer but
/// libuv's an allocation, since they erase its type.
namespace bench {

using Action = std::function<void()>;
constexpr unsigned int kTimerInterval = 3600 * 1000;  // ms, of timers that are only pending

template <class Loop, class Task>
void callThroughPost(Loop& loop, Task task) {
    Signal done;
    loop.post([&] {
        task();
        done.set();
    });
    done.wait();
}

/// What a C library gets as the argument of runAndDelete().
template <class Task>
void* newTask(Task task) {
    return new Task(std::move(task));
}

template <class Task>
void runAndDelete(void* argument) {
    const std::unique_ptr<Task> task(static_cast<Task*>(argument));
    (*task)();
}

class NivurLoop {
  public:
    using Timer = long;
    using Handle = void*;
    static std::string name() { return "nivur"; }

    NivurLoop() { _loop.start(); }
    ~NivurLoop() { _loop.stop(); }

    template <class Task>
    void post(Task task) {
        _loop.postItem(NIVUR::makeRunnable(std::move(task)), false, false);
    }
    template <class Task>
    void postFirst(Task task) {
        _loop.postItem(NIVUR::makeRunnable(std::move(task)), true, false);
    }
    template <class Task>
    void call(Task task) {
        _loop.postItem(NIVUR::makeRunnable(std::move(task)), false, true);
    }
    template <class Task>
    Handle postCancellable(Task task) {
        NIVUR::Runnable* runnable = NIVUR::makeRunnable(std::move(task), ++_object);
        _loop.postItem(runnable, false, false);
        return _object;
    }
    void cancel(Handle object) { _loop.cancelTasksForObject(object); }

    Timer addTimer(unsigned int ms, Action action) {
        return _loop.addTimer(NIVUR::makeRunnable(std::move(action)), ms, false);
    }
    void resetTimer(Timer timer) { _loop.resetTimer(timer); }
    void stopTimer(Timer timer) { _loop.stopTimer(timer); }

  private:
    NIVUR::RunLoop _loop{"bench"};
    char* _object = nullptr;  // only told apart, never used
};

class AsioLoop {
  public:
    struct Timer {
        boost::asio::steady_timer timer;
        Action action;
        void arm(unsigned int ms) {
            timer.expires_after(std::chrono::milliseconds(ms));
            timer.async_wait([this](boost::system::error_code error) {
                if (!error) {
                    std::unique_ptr<Timer>(this)->action();
                }
            });
        }
    };
    static std::string name() { return "Asio"; }

    ~AsioLoop() {
        _work.reset();
        _io.stop();
        _thread.join();
    }

    template <class Task>
    void post(Task task) {
        boost::asio::post(_io, std::move(task));
    }
    template <class Task>
    void call(Task task) {
        boost::asio::post(_io, boost::asio::use_future(std::move(task))).wait();
    }

    Timer* addTimer(unsigned int ms, Action action) {
        auto* timer = new Timer{boost::asio::steady_timer(_io), std::move(action)};
        timer->arm(ms);
        return timer;
    }
    void resetTimer(Timer* timer) { timer->arm(kTimerInterval); }
    void stopTimer(Timer* timer) { delete timer; }

  private:
    boost::asio::io_context _io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> _work{
        _io.get_executor()};
    std::thread _thread{[this] { _io.run(); }};
};

/// The library has no queue, and so gets one that is emptied in batches.
class UvLoop {
  public:
    struct Timer {
        uv_timer_t handle;
        Action action;
    };
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

    Timer* addTimer(unsigned int ms, Action action) {
        auto* timer = new Timer{{}, std::move(action)};
        timer->handle.data = timer;
        uv_timer_init(&_loop, &timer->handle);
        start(timer, ms);
        return timer;
    }
    void resetTimer(Timer* timer) { start(timer, kTimerInterval); }
    static void stopTimer(Timer* timer) {
        uv_close(reinterpret_cast<uv_handle_t*>(&timer->handle),
                 [](uv_handle_t* handle) { delete static_cast<Timer*>(handle->data); });
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
    using Handle = std::pair<event*, void (*)(event*)>;
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
        return {activate(std::move(task), 1), deleteEvent<Task>};
    }
    static void cancel(const Handle& handle) { handle.second(handle.first); }

    Timer* addTimer(unsigned int ms, Action action) {
        auto* timer = new Timer{nullptr, std::move(action)};
        timer->handle = event_new(
            _base, -1, 0,
            [](evutil_socket_t, short, void* argument) {
                auto* fired = static_cast<Timer*>(argument);
                fired->action();
                stopTimer(fired);
            },
            timer);
        start(timer, ms);
        return timer;
    }
    static void resetTimer(Timer* timer) { start(timer, kTimerInterval); }
    static void stopTimer(Timer* timer) {
        event_free(timer->handle);
        delete timer;
    }

  private:
    template <class Task>
    struct OwnEvent {
        explicit OwnEvent(Task own) : task(std::move(own)) {}
        Task task;
        event* handle = nullptr;
    };

    template <class Task>
    static void deleteEvent(event* handle) {
        const std::unique_ptr<OwnEvent<Task>> own(
            static_cast<OwnEvent<Task>*>(event_get_callback_arg(handle)));
        event_free(handle);
    }

    template <class Task>
    event* activate(Task task, int priority) {
        auto* own = new OwnEvent<Task>(std::move(task));
        own->handle = event_new(
            _base, -1, 0,
            [](evutil_socket_t, short, void* argument) {
                auto* ran = static_cast<OwnEvent<Task>*>(argument);
                ran->task();
                deleteEvent<Task>(ran->handle);
            },
            own);
        event* handle = own->handle;
        event_priority_set(handle, priority);
        event_active(handle, EV_TIMEOUT, 1);
        return handle;
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
    using Timer = GSource*;
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
        g_source_unref(attach(g_idle_source_new(), std::move(task), G_PRIORITY_DEFAULT));
    }
    template <class Task>
    void postFirst(Task task) {
        g_source_unref(attach(g_idle_source_new(), std::move(task), G_PRIORITY_HIGH));
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        GSource* source = attach(g_idle_source_new(), std::move(task), G_PRIORITY_DEFAULT);
        g_source_unref(source);
        return source;
    }
    static void cancel(Handle source) { g_source_destroy(source); }

    Timer addTimer(unsigned int ms, Action action) {
        Timer timer = attach(g_timeout_source_new(ms), std::move(action), G_PRIORITY_DEFAULT);
        g_source_unref(timer);
        return timer;
    }
    static void resetTimer(Timer timer) {
        g_source_set_ready_time(timer, g_get_monotonic_time() + kTimerInterval * 1000LL);
    }
    static void stopTimer(Timer timer) { g_source_destroy(timer); }

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
        return source;
    }

    GMainContext* _context = g_main_context_new();
    GMainLoop* _loop = g_main_loop_new(_context, FALSE);
    std::thread _thread;
};

/// The queue of notifications and a thread that works it off.
class PocoLoop {
  public:
    using Handle = Poco::Notification::Ptr;
    static std::string name() { return "POCO"; }

    ~PocoLoop() {
        _queue.enqueueNotification(new Poco::Notification);
        _thread.join();
    }

    template <class Task>
    void post(Task task) {
        _queue.enqueueNotification(new Item<Task>(std::move(task)));
    }
    template <class Task>
    void postFirst(Task task) {
        _queue.enqueueUrgentNotification(new Item<Task>(std::move(task)));
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        Handle item = new Item<Task>(std::move(task));
        _queue.enqueueNotification(item);
        return item;
    }
    void cancel(const Handle& item) { _queue.remove(item); }

  private:
    struct Runnable : Poco::Notification {
        virtual void run() = 0;
    };
    template <class Task>
    struct Item : Runnable {
        explicit Item(Task own) : task(std::move(own)) {}
        void run() override { task(); }
        Task task;
    };

    void runLoop() {
        for (;;) {
            Poco::Notification::Ptr item = _queue.waitDequeueNotification();
            auto* runnable = dynamic_cast<Runnable*>(item.get());
            if (runnable == nullptr) {
                return;
            }
            runnable->run();
        }
    }

    Poco::NotificationQueue _queue;
    std::thread _thread{[this] { runLoop(); }};
};

class LooperLoop {
    struct Item : android::MessageHandler {};
    template <class Task>
    struct ItemOf : Item {
        explicit ItemOf(Task own) : task(std::move(own)) {}
        void handleMessage(const android::Message&) override { task(); }
        Task task;
    };

  public:
    using Timer = Item*;
    using Handle = Item*;
    static std::string name() { return "Looper"; }

    LooperLoop() {
        _thread = std::thread([this] {
            while (!_stopped) {
                _looper->pollOnce(-1);
            }
        });
    }
    ~LooperLoop() {
        _stopped = true;
        _looper->wake();
        _thread.join();
    }

    template <class Task>
    void post(Task task) {
        postCancellable(std::move(task));
    }
    template <class Task>
    void postFirst(Task task) {
        _looper->sendMessageAtTime(0, new ItemOf<Task>(std::move(task)), android::Message());
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        auto* item = new ItemOf<Task>(std::move(task));
        _looper->sendMessage(item, android::Message());
        return item;
    }
    void cancel(Handle item) { _looper->removeMessages(item); }

    Timer addTimer(unsigned int ms, Action action) {
        auto* item = new ItemOf<Action>(std::move(action));
        start(item, ms);
        return item;
    }
    void resetTimer(Timer timer) {
        const android::sp<Item> kept(timer);
        _looper->removeMessages(timer);
        start(timer, kTimerInterval);
    }
    void stopTimer(Timer timer) { _looper->removeMessages(timer); }

  private:
    void start(Item* item, unsigned int ms) {
        _looper->sendMessageDelayed(static_cast<nsecs_t>(ms) * 1000000, item, android::Message());
    }

    android::sp<android::Looper> _looper{new android::Looper(true)};
    std::atomic<bool> _stopped{false};
    std::thread _thread;
};

}  // namespace bench

#endif
