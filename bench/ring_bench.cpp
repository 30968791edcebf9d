#include <nivur/ring_buffer.h>

#include <boost/lockfree/spsc_queue.hpp>
#include <cstring>
#include <deque>
#include <memory>
#include <thread>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("ring");
constexpr unsigned int kCapacity = 256 * 1024;

struct NivurRing {
    static std::string name() { return "nivur"; }
    bool write(const char* data, unsigned int length) {
        return ring.write(data, length) == NIVUR::RING_BUFFER_OK;
    }
    bool read(char* data, unsigned int length) {
        return ring.read(data, length) == NIVUR::RING_BUFFER_OK;
    }
    NIVUR::RingBuffer ring{kCapacity, "bench"};
};

struct DequeRing {
    static std::string name() { return "mutex and std::deque"; }
    bool write(const char* data, unsigned int length) {
        const std::lock_guard lock(mutex);
        if (bytes.size() + length > kCapacity) {
            return false;
        }
        bytes.insert(bytes.end(), data, data + length);
        return true;
    }
    bool read(char* data, unsigned int length) {
        const std::lock_guard lock(mutex);
        if (bytes.size() < length) {
            return false;
        }
        const auto end = bytes.begin() + length;
        std::copy(bytes.begin(), end, data);
        bytes.erase(bytes.begin(), end);
        return true;
    }
    std::mutex mutex;
    std::deque<char> bytes;
};

/// For one producer and one consumer only.
struct SpscRing {
    static std::string name() { return "boost::spsc_queue"; }
    bool write(const char* data, unsigned int length) {
        return bytes.write_available() >= length && bytes.push(data, length) == length;
    }
    bool read(char* data, unsigned int length) {
        return bytes.read_available() >= length && bytes.pop(data, length) == length;
    }
    boost::lockfree::spsc_queue<char> bytes{kCapacity};
};

/// Copies the bytes only, without locks and counts.
struct Memcpy {
    static std::string name() { return "memcpy"; }
    bool write(const char* data, unsigned int length) {
        std::memcpy(storage.data(), data, length);
        benchmark::ClobberMemory();
        return true;
    }
    bool read(char* data, unsigned int length) {
        std::memcpy(data, storage.data(), length);
        benchmark::ClobberMemory();
        return true;
    }
    std::vector<char> storage = std::vector<char>(kCapacity);
};

template <class Ring>
void measureOneThread(State& state, Peer<Ring>, unsigned int length) {
    Ring ring;
    std::vector<char> block(length, 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(ring.write(block.data(), length));
        benchmark::DoNotOptimize(ring.read(block.data(), length));
    }
}

/// The time of a block ends when it is read. A thread that finds no room or no data yields. The
/// producer runs on `processor`.
template <class Ring>
void measureTwoThreads(State& state, Peer<Ring>, unsigned int length, int processor) {
    Ring ring;
    std::atomic<bool> stopped{false};
    std::thread producer([&] {
        const OneProcessor there(processor);
        const std::vector<char> block(length, 'x');
        while (!stopped) {
            if (!ring.write(block.data(), length)) {
                std::this_thread::yield();
            }
        }
    });
    std::vector<char> block(length);
    repeat(state, 2000, [&] {
        while (!ring.read(block.data(), length)) {
            std::this_thread::yield();
        }
    });
    setItems(state, 2000);
    stopped = true;
    producer.join();
}

}  // namespace

void addRing() {
    for (const unsigned int length : {16U, 188U, 1500U, 64U * 1024U}) {
        const std::string bytes = std::to_string(length) + " B, ";
        kFamily.add(bytes + "1 thread",
                    Peers<NivurRing, DequeRing, Other<SpscRing>, Limit<Memcpy>>(),
                    [=](State& state, auto peer) { measureOneThread(state, peer, length); });
        kFamily.addPlaced(bytes + "2 threads", Peers<NivurRing, DequeRing, Other<SpscRing>>(),
                          [=](State& state, auto peer, int processor) {
                              measureTwoThreads(state, peer, length, processor);
                          });
    }
}

}  // namespace bench
