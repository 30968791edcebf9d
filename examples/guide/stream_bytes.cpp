// Passes a stream of bytes from one thread to another through a ring.

#include <nivur/nivur.h>

#include <cstdio>
#include <string>

using NIVUR::AutoLock;
using NIVUR::Mutex;
using NIVUR::StringUtil;

// Two threads write to it.
class Journal {
  public:
    void add(const std::string& line) {
        const AutoLock lock(_mutex);
        _text += line + "\n";
    }
    std::string text() {
        const AutoLock lock(_mutex);
        return _text;
    }

  private:
    Mutex _mutex;
    std::string _text NIVUR_GUARDED_BY(_mutex);
};

int main() {
    const NIVUR::Date begin(0ULL);  // or Date::now()
    const std::string time = (begin + 1500).toString(0);
    Journal journal;
    NIVUR::RingBuffer ring(16, "bytes");
    NIVUR::Semaphore written;

    NIVUR::Thread producer;
    NIVUR::Runnable* const produce = NIVUR::makeRunnable([&] {
        for (long i = 1; i <= 3; ++i) {
            const std::string block = "block " + StringUtil::int2String(i);  // 7 bytes
            const bool fits = ring.write(block.data(), 7) == NIVUR::RING_BUFFER_OK;
            journal.add(block + (fits ? " fits" : " does not fit"));
        }
        written.notify();
    });
    if (!producer.start(produce, "producer", NIVUR::Thread::THREAD_PRIORITY_NORMAL)) {
        return 1;
    }
    written.wait();
    char bytes[14];
    const bool whole = ring.read(bytes, sizeof(bytes)) == NIVUR::RING_BUFFER_OK;
    journal.add(time + ": read " + (whole ? std::string(bytes, sizeof(bytes)) : "nothing"));
    producer.waitForStop();
    std::printf("%s", journal.text().c_str());
}
