// Takes buffers from a pool and shares them; they return to the pool by themselves.

#include <nivur/nivur.h>

#include <cstdio>
#include <cstring>

using NIVUR::Buffer;
using NIVUR::SharedPtr;

struct Label : NIVUR::ParameterValue {
    explicit Label(const char* label) : text(label) {}
    const char* const text;
};

static const char* labelOf(Buffer& buffer) {
    const auto* label = dynamic_cast<Label*>(buffer.parameter().get("label"));
    return label != nullptr ? label->text : "none";
}

int main() {
    const NIVUR::BufferPool_Config config{{{1500, 1}, {65536, 1}}};  // sizes and counts
    NIVUR::BufferPool pool(&config, "packets");

    SharedPtr<Buffer> packet = pool.getPoolBuffer(5, nullptr);
    if (!packet) {
        return 1;  // only if memory is exhausted
    }
    std::memcpy(packet->data(), "hello", 5);
    packet->setUsedSize(5);  // the guard is now after these 5 bytes
    packet->parameter().set("label", new Label("of the first holder"));
    SharedPtr<Buffer> shared = packet;
    std::printf("%u of %u bytes used\n", shared->usedSize(), shared->capacity());

    // The list of 1,500-byte buffers is empty; after the next call the other list is, too.
    const SharedPtr<Buffer> larger = pool.getPoolBuffer(5, nullptr);
    const SharedPtr<Buffer> plain = pool.getPoolBuffer(5, nullptr);
    std::printf("the next two: %u bytes, and %u bytes of plain memory\n", larger->capacity(),
                plain->capacity());

    Buffer* const place = packet.get();
    packet.reset();
    std::printf("one reference dropped: used %u\n", shared->usedSize());
    shared.reset();
    packet = pool.getPoolBuffer(5, nullptr);
    std::printf("the other dropped: %s buffer again, used %u, label: %s\n",
                packet.get() == place ? "the same" : "another", packet->usedSize(),
                labelOf(*packet));
    packet->parameter().remove("label");  // each holder first removes what it does not expect
    return packet.get() == place ? 0 : 1;
}
