#include <nivur/nivur.h>

// Objects that gdb_test.sh shows. Global, so that the optimiser keeps them.
NIVUR::SharedPtr<NIVUR::Buffer> buffer;
NIVUR::SharedPtr<NIVUR::Buffer> empty;
NIVUR::Dictionary dictionary;

struct Normal : NIVUR::Runnable {
    void run() override {}
    std::string dump() override { return ""; }
};
struct Urgent : Normal {};
struct Handler : NIVUR::EventHandler {
    void onEvent(const NIVUR::Event& /*event*/, NIVUR::Parameter* /*parameter*/) override {}
};

extern "C" __attribute__((noinline)) void allIsSet() {
    asm volatile("");
}

int main() {
    static NIVUR::RunLoop loop("scene");
    const NIVUR::BufferPool_Config config{{{1500, 1}}};
    NIVUR::BufferPool pool(&config, "scene");
    buffer = pool.getPoolBuffer(5, nullptr);
    const NIVUR::SharedPtr<NIVUR::Buffer> shared = buffer;
    std::string("hello").copy(buffer->data(), 5);
    buffer->setUsedSize(5);

    NIVUR::Dictionary nested;
    nested.setInteger("width", 1920);
    dictionary.setObject("size", nested);
    dictionary.setString("name", "screen");
    dictionary.setIntegerArray("sizes", {1, 2});

    NIVUR::Semaphore begun;
    NIVUR::Semaphore seen;
    loop.start();
    loop.postItem(NIVUR::makeRunnable([&] { begun.notify(), seen.wait(); }), false, false);
    begun.wait();
    loop.postItem(new Normal, false, false);
    loop.postItem(new Urgent, true, false);
    loop.addTimer(new Urgent, 60000, false);
    NIVUR::UDPSocket socket;
    socket.create("127.0.0.1", 0);
    loop.addWatch(socket.descriptor(), NIVUR::RunLoop::READABLE, new Normal);
    NIVUR::RingBuffer ring(100, "ring");
    ring.write("abc", 3);
    NIVUR::Event event("opened");
    NIVUR::EventCenter center;
    Handler handler;
    center.registerEventHandler("opened", &handler);
    const NIVUR::SocketAddress address("fe80::1", 80);
    allIsSet();
    buffer->data()[6] = '!';  // a stray write
    allIsSet();
    buffer->setUsedSize(5);
    seen.notify();
    loop.stop();
}
