#ifndef NIVUR_BENCH_LOOPS_H
#define NIVUR_BENCH_LOOPS_H

#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <nivur/run_loop.h>
#include <utils/Looper.h>

#include <atomic>
#include <boost/asio.hpp>
#include <memory>
#include <thread>
#include <utility>

#include "c_loops.h"
#include "loop_support.h"

namespace bench {

class NivurLoop {
  public:
    using TimerHandle = long;
    using WatchHandle = long;
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

    TimerHandle addTimer(unsigned int ms, Action action) {
        return _loop.addTimer(NIVUR::makeRunnable(std::move(action)), ms, false);
    }
    void resetTimer(TimerHandle timer) { _loop.resetTimer(timer); }
    void stopTimer(TimerHandle timer) { _loop.stopTimer(timer); }

    WatchHandle addWatch(int descriptor, Action action) {
        return _loop.addWatch(descriptor, NIVUR::RunLoop::READABLE,
                              NIVUR::makeRunnable(std::move(action)));
    }
    void removeWatch(WatchHandle watch) { _loop.removeWatch(watch); }

  private:
    NIVUR::RunLoop _loop{"bench"};
    char* _object = nullptr;  // only compared, never used
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
    using TimerHandle = Timer*;
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

    TimerHandle addTimer(unsigned int ms, Action action) {
        auto* timer = new Timer{boost::asio::steady_timer(_io), std::move(action)};
        timer->arm(ms);
        return timer;
    }
    void resetTimer(TimerHandle timer) { timer->arm(kTimerInterval); }
    void stopTimer(TimerHandle timer) { delete timer; }

    /// Waits for one readiness event at a time.
    struct Watch {
        boost::asio::posix::stream_descriptor descriptor;
        Action action;
        void wait() {
            descriptor.async_wait(descriptor.wait_read, [this](boost::system::error_code error) {
                if (!error) {
                    action();
                    wait();
                }
            });
        }
    };
    using WatchHandle = Watch*;
    WatchHandle addWatch(int descriptor, Action action) {
        auto* watch =
            new Watch{boost::asio::posix::stream_descriptor(_io, descriptor), std::move(action)};
        watch->wait();
        return watch;
    }
    void removeWatch(WatchHandle watch) {
        watch->descriptor.release();
        post([watch] { delete watch; });  // after its handler was told of the cancellation
    }

  private:
    boost::asio::io_context _io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> _work{
        _io.get_executor()};
    std::thread _thread{[this] { _io.run(); }};
};

/// The notification queue and the thread that serves it.
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
        _queue.enqueueNotification(new Item<Runnable, Task>(std::move(task)));
    }
    template <class Task>
    void postFirst(Task task) {
        _queue.enqueueUrgentNotification(new Item<Runnable, Task>(std::move(task)));
    }
    template <class Task>
    void call(Task task) {
        callThroughPost(*this, std::move(task));
    }
    template <class Task>
    Handle postCancellable(Task task) {
        Handle item = new Item<Runnable, Task>(std::move(task));
        _queue.enqueueNotification(item);
        return item;
    }
    void cancel(const Handle& item) { _queue.remove(item); }

  private:
    struct Runnable : Poco::Notification {
        virtual void run() = 0;
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
    using TimerHandle = Item*;
    using WatchHandle = int;
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

    TimerHandle addTimer(unsigned int ms, Action action) {
        auto* item = new ItemOf<Action>(std::move(action));
        start(item, ms);
        return item;
    }
    void resetTimer(TimerHandle timer) {
        const android::sp<Item> kept(timer);
        _looper->removeMessages(timer);
        start(timer, kTimerInterval);
    }
    void stopTimer(TimerHandle timer) { _looper->removeMessages(timer); }

    WatchHandle addWatch(int descriptor, Action action) {
        struct Callback : android::LooperCallback {
            explicit Callback(Action own) : action(std::move(own)) {}
            int handleEvent(int, int, void*) override {
                action();
                return 1;
            }
            Action action;
        };
        _looper->addFd(descriptor, 0, android::Looper::EVENT_INPUT, new Callback(std::move(action)),
                       nullptr);
        return descriptor;
    }
    void removeWatch(WatchHandle descriptor) { _looper->removeFd(descriptor); }

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
