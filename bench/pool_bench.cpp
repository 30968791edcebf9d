#include <nivur/buffer_pool.h>

#include <boost/pool/pool.hpp>
#include <cstdlib>
#include <memory>
#include <memory_resource>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("pool");
constexpr unsigned int kBufferSize = 1500;

/// A block of a pool, which returns to it by itself, as a buffer does.
template <class Pool>
struct GiveBack {
    Pool* pool;
    void operator()(char* data) const { pool->giveBack(data); }
};
template <class Pool>
using Piece = std::unique_ptr<char, GiveBack<Pool>>;

class NivurPool {
  public:
    using Taken = NIVUR::SharedPtr<NIVUR::Buffer>;
    static std::string name() { return "nivur"; }
    explicit NivurPool(unsigned int count) : _config{{{kBufferSize, count}}} {}
    Taken take() { return _pool.getPoolBuffer(kBufferSize, nullptr); }
    static void use(const Taken& buffer) {
        *buffer->data() = 1;
        buffer->setUsedSize(1);
    }

  private:
    NIVUR::BufferPool_Config _config;
    NIVUR::BufferPool _pool{&_config, "bench"};
};

template <class Memory>
class PlainPool : public Memory {
  public:
    using Taken = Piece<Memory>;
    explicit PlainPool(unsigned int) {}
    Taken take() { return Taken(Memory::get(), {this}); }
    static void use(const Taken& piece) { *piece = 1; }
};

struct Malloc {
    static std::string name() { return "malloc"; }
    static char* get() { return static_cast<char*>(std::malloc(kBufferSize)); }
    static void giveBack(char* data) { std::free(data); }
};

struct PmrPool {
    static std::string name() { return "std::pmr"; }
    char* get() { return static_cast<char*>(resource.allocate(kBufferSize)); }
    void giveBack(char* data) { resource.deallocate(data, kBufferSize); }
    std::pmr::synchronized_pool_resource resource;
};

struct BoostPool {
    static std::string name() { return "boost::pool"; }
    char* get() {
        const std::lock_guard lock(mutex);
        return static_cast<char*>(pool.malloc());
    }
    void giveBack(char* data) {
        const std::lock_guard lock(mutex);
        pool.free(data);
    }
    std::mutex mutex;
    boost::pool<> pool{kBufferSize};
};

/// Takes a block and returns it, with half of the pool in use.
template <class Pool>
void measure(State& state, Peer<Pool>, unsigned int count) {
    // They stay until the next measurement: the pool of std::pmr must not be destroyed before its
    // threads have ended.
    static std::unique_ptr<Pool> pool;
    static std::vector<typename Pool::Taken> inUse;
    if (state.thread_index() == 0) {
        inUse.clear();
        pool = std::make_unique<Pool>(count);
        for (unsigned int i = 0; i < count / 2; ++i) {
            inUse.push_back(pool->take());
        }
    }
    repeat(state, 1000, [&] {
        const auto taken = pool->take();
        Pool::use(taken);
        benchmark::ClobberMemory();
    });
    setItems(state, 1000);
}

}  // namespace

void addPool() {
    const Peers<NivurPool, PlainPool<Malloc>, PlainPool<PmrPool>, PlainPool<BoostPool>> peers;
    for (const unsigned int count : {16U, 256U, 4096U}) {
        const std::string service = "take and return, " + std::to_string(count) + " buffers";
        const auto body = [=](State& state, auto peer) { measure(state, peer, count); };
        for (const int threads : {1, 2, 4}) {
            kFamily.addOnThreads(threads, service, peers, body);
        }
    }
}

}  // namespace bench
