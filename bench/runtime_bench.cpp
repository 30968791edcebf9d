#include <nivur/mutex.h>
#include <nivur/semaphore.h>
#include <nivur/shared_ptr.h>
#include <pthread.h>
#include <semaphore.h>

#include <memory>
#include <thread>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("runtime");

struct Object {
    virtual ~Object() = default;
    long value = 0;
};

struct NivurPointer {
    using Pointer = NIVUR::SharedPtr<Object>;
    static std::string name() { return "nivur"; }
};

struct StdPointer {
    using Pointer = std::shared_ptr<Object>;
    static std::string name() { return "std::shared_ptr"; }
};

struct NivurMutex : NIVUR::Mutex {
    static std::string name() { return "nivur"; }
};

struct StdMutex : std::mutex {
    static std::string name() { return "std::mutex"; }
};

class PlainMutex {
  public:
    static std::string name() { return "pthread"; }
    ~PlainMutex() { ::pthread_mutex_destroy(&_mutex); }
    void lock() { ::pthread_mutex_lock(&_mutex); }
    void unlock() { ::pthread_mutex_unlock(&_mutex); }

  private:
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

struct NivurSemaphore : NIVUR::Semaphore {
    static std::string name() { return "nivur"; }
};

struct StdSemaphore : Signal {
    static std::string name() { return "std::condition_variable"; }
    void notify() { set(); }
};

class PlainSemaphore {
  public:
    static std::string name() { return "sem_t"; }
    PlainSemaphore() { ::sem_init(&_semaphore, 0, 0); }
    ~PlainSemaphore() { ::sem_destroy(&_semaphore); }
    void notify() { ::sem_post(&_semaphore); }
    void wait() { ::sem_wait(&_semaphore); }

  private:
    sem_t _semaphore;
};

template <class Pointers>
void measureMake(State& state, Peer<Pointers>) {
    for (auto _ : state) {
        const typename Pointers::Pointer pointer(new Object);
        benchmark::DoNotOptimize(pointer.get());
    }
}

template <class Pointers>
void measureCopy(State& state, Peer<Pointers>) {
    static const typename Pointers::Pointer original(new Object);
    for (auto _ : state) {
        const auto copy = original;
        benchmark::DoNotOptimize(copy.get());
    }
    setItems(state, 1);
}

template <class Mutex>
void measureLock(State& state, Peer<Mutex>) {
    Mutex mutex;
    long guarded = 0;
    for (auto _ : state) {
        mutex.lock();
        benchmark::DoNotOptimize(++guarded);
        mutex.unlock();
    }
}

template <class Semaphore>
void measureNotify(State& state, Peer<Semaphore>) {
    Semaphore semaphore;
    for (auto _ : state) {
        semaphore.notify();
        semaphore.wait();
    }
}

template <class Semaphore>
void measurePingPong(State& state, Peer<Semaphore>, int processor) {
    Semaphore ping;
    Semaphore pong;
    bool stopped = false;  // written before a signal, read after it
    std::thread partner([&] {
        const OneProcessor there(processor);
        for (ping.wait(); !stopped; ping.wait()) {
            pong.notify();
        }
    });
    repeat(state, 500, [&] {
        ping.notify();
        pong.wait();
    });
    setItems(state, 500);
    stopped = true;
    ping.notify();
    partner.join();
}

void addPointers() {
    const Peers<NivurPointer, StdPointer> peers;
    kFamily.add("SharedPtr, make and drop", peers,
                [](State& state, auto peer) { measureMake(state, peer); });
    for (const int threads : {1, 2}) {
        kFamily.addOnThreads(threads, "SharedPtr, copy and drop", peers,
                             [](State& state, auto peer) { measureCopy(state, peer); });
    }
}

void addLocks() {
    const Peers<NivurMutex, StdMutex, Limit<PlainMutex>> peers;
    kFamily.add("Mutex, lock and unlock", peers,
                [](State& state, auto peer) { measureLock(state, peer); });
    const Peers<NivurSemaphore, StdSemaphore, PlainSemaphore> semaphores;
    kFamily.add("Semaphore, notify and wait", semaphores,
                [](State& state, auto peer) { measureNotify(state, peer); });
    kFamily.addPlaced(
        "Semaphore, ping-pong", semaphores,
        [](State& state, auto peer, int processor) { measurePingPong(state, peer, processor); });
}

}  // namespace

void addRuntime() {
    addPointers();
    addLocks();
}

}  // namespace bench
