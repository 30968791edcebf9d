// Hands out objects of its own and buffers of a list, which return by themselves.

#include <nivur/nivur.h>

#include <cstdio>

using NIVUR::Buffer;
using NIVUR::SharedPtr;

// Opened once, handed out many times. It embeds the count, so that lend() allocates nothing.
class Connection : public NIVUR::NoCopyable {
  public:
    SharedPtr<Connection> lend() { return SharedPtr<Connection>(_count); }

  private:
    struct Return : NIVUR::PtrDisposer<Connection> {
        void dispose(Connection* /*connection*/) override { std::puts("the connection is back"); }
    };
    static Return _return;
    NIVUR::SharedCount<Connection> _count{this, &_return,
                                          NIVUR::SharedCount<Connection>::IN_OBJECT};
};
Connection::Return Connection::_return;

struct Origin : NIVUR::BaseBufferParam {
    const char* const camera = "front camera";
};

int main() {
    Connection connection;
    for (int times = 0; times < 2; ++times) {
        const SharedPtr<Connection> lent = connection.lend();
    }

    const NIVUR::BufferList_Config config{1500, 2};  // size and count
    NIVUR::BufferList list(config);
    SharedPtr<Buffer> first = list.getBuffer(1500);
    const SharedPtr<Buffer> second = list.getBuffer(1500);
    std::printf("of %u buffers %u are free; a third: %s\n", list.bufferCount(), list.freeCount(),
                list.getBuffer(1500) ? "found" : "refused");
    const NIVUR::BufferOwner* const home = first->owner();
    first.reset();
    std::printf("one reference dropped: %u free, %s\n", list.freeCount(),
                home == &list ? "in its list" : "elsewhere");

    // Without a list: a buffer that owns an object, which is deleted with it.
    const SharedPtr<Buffer> frame = NIVUR::BufferPool::getBuffer(64, new Origin);
    std::printf("a frame of the %s\n", static_cast<Origin*>(frame->param())->camera);
    return 0;
}
