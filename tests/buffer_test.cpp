#include <gtest/gtest.h>
#include <nivur/buffer_pool.h>

#include <climits>
#include <cstdlib>

#include "support/counted.h"

namespace NIVUR {
namespace {

TEST(Buffer, GoesBackToItsOwnerOnce) {
    struct Owner : BufferOwner {
        void returnFreeBuffer(Buffer* buffer) override { returned.push_back(buffer); }
        std::vector<Buffer*> returned;
    } owner;
    Buffer buffer(0, nullptr, &owner);
    EXPECT_EQ(buffer.state(), BUFFER_STATE_FREE);
    EXPECT_EQ(buffer.usedSize(), 0U);
    SharedPtr<Buffer> last(&buffer, &Buffer::_disposer);
    last.reset();
    EXPECT_EQ(owner.returned, std::vector<Buffer*>{&buffer});
    Buffer::_disposer.dispose(nullptr);
    int living = 0;
    SharedPtr<Buffer>(new Buffer(0, new Counted(living), nullptr), &Buffer::_disposer).reset();
    EXPECT_EQ(living, 0);  // without an owner it is deleted
}

TEST(Buffer, IsInvalidForTheDestructorsOfWhatItHolds) {
    struct Param : BaseBufferParam {
        ~Param() override {
            EXPECT_EQ(buffer->state(), BUFFER_STATE_INVALID);
            EXPECT_EQ(buffer->capacity(), 0U);
            EXPECT_EQ(buffer->usedSize(), 0U);
            EXPECT_EQ(buffer->data(), nullptr);
            *seen = true;
        }
        Buffer* buffer = nullptr;
        bool* seen = nullptr;
    };
    bool seen = false;
    auto* const param = new Param;
    SharedPtr<Buffer> buffer = BufferPool::getBuffer(8, param);
    param->buffer = buffer.get();
    param->seen = &seen;
    EXPECT_TRUE(buffer->setUsedSize(3));
    buffer.reset();
    EXPECT_TRUE(seen);
}

TEST(Buffers, SayWhenTheirSizeCannotBe) {
    int living = 0;
    for (const unsigned int size : {UINT_MAX, UINT_MAX - 3}) {
        EXPECT_FALSE(BufferPool::getBuffer(size, new Counted(living)));
        EXPECT_EQ(BufferList({size, UINT_MAX}).bufferCount(), 0U);
        Buffer invalid(size, nullptr, nullptr);
        invalid.reset();
        EXPECT_FALSE(invalid.setUsedSize(0));
        EXPECT_EQ(invalid.state(), BUFFER_STATE_INVALID);
    }
    EXPECT_EQ(living, 0);
}

TEST(BufferDeathTest, AnOverwrittenGuardIsReportedAtTheEndOfTheBuffer) {
    const auto overwrite = [](const SharedPtr<Buffer>& buffer) {
        buffer->setUsedSize(3);
        ++buffer->data()[6];
    };
    const char* const report =
        "src/buffer.cpp:[0-9]+: void NIVUR::Buffer::checkBufferOverflow\\(\\): Assertion "
        "`memcmp\\(_data \\+ _usedSize, &_checkByte, sizeof\\(_checkByte\\)\\) == 0' failed";
    EXPECT_DEATH(overwrite(BufferPool::getBuffer(8, nullptr)), report);
    const BufferPool_Config config{{{8, 1}}};
    static SharedPtr<Buffer> heldToTheEnd;  // destroyed with the static objects, after its pool
    static BufferPool endsFirst(&config, "");
    overwrite(endsFirst.getPoolBuffer(8, nullptr));  // it returns and gets a new guard
    endsFirst.setGuardCheckEnabled(true);
    EXPECT_DEATH(overwrite(endsFirst.getPoolBuffer(8, nullptr)), report);
    heldToTheEnd = endsFirst.getPoolBuffer(8, nullptr);
    EXPECT_DEATH((overwrite(heldToTheEnd), std::exit(0)), report);
}

}  // namespace
}  // namespace NIVUR
