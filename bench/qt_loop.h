#ifndef NIVUR_BENCH_QT_LOOP_H
#define NIVUR_BENCH_QT_LOOP_H

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <deque>
#include <utility>

#include "loop_support.h"

namespace bench {

/// A thread with Qt Core's event loop, which needs a QCoreApplication. Tasks are events that are
/// posted to an object of that thread, and are cancelled by their object.
class QtLoop {
  public:
    class Receiver;
    using Handle = Receiver*;
    static std::string name() { return "Qt Core"; }

    QtLoop() {
        _receiver.moveToThread(&_thread);
        _thread.start();
    }
    ~QtLoop() {
        _thread.quit();
        _thread.wait();
    }

    template <class Task>
    void post(Task task) {
        QCoreApplication::postEvent(&_receiver, new Item<Runnable, Task>(std::move(task)));
    }
    template <class Task>
    void postFirst(Task task) {
        QCoreApplication::postEvent(&_receiver, new Item<Runnable, Task>(std::move(task)),
                                    Qt::HighEventPriority);
    }
    template <class Task>
    void call(Task task) {
        QMetaObject::invokeMethod(&_receiver, std::move(task), Qt::BlockingQueuedConnection);
    }
    template <class Task>
    Handle postCancellable(Task task) {
        if (_cancellable.size() < kCancellable) {
            _cancellable.emplace_back();
        }
        Receiver& receiver = _cancellable[_posted++ % kCancellable];
        QCoreApplication::postEvent(&receiver, new Item<Runnable, Task>(std::move(task)));
        return &receiver;
    }
    static void cancel(Handle receiver) { QCoreApplication::removePostedEvents(receiver); }

    class Receiver : public QObject {
      public:
        bool event(QEvent* event) override {
            auto* const item = dynamic_cast<Runnable*>(event);
            if (item == nullptr) {
                return QObject::event(event);
            }
            item->run();
            return true;
        }
    };

  private:
    struct Runnable : QEvent {
        Runnable() : QEvent(QEvent::User) {}
        virtual void run() = 0;
    };

    static constexpr size_t kCancellable = 10000;  // the most tasks that are queued at once

    QThread _thread;
    Receiver _receiver;
    std::deque<Receiver> _cancellable;
    size_t _posted = 0;
};

}  // namespace bench

#endif
