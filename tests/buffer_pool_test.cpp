#include <gtest/gtest.h>
#include <nivur/buffer_pool.h>

#include <climits>
#include <cstring>
#include <random>
#include <set>

#include "support/counted.h"

namespace NIVUR {
namespace {

TEST(BufferPool, ServesFromTheSmallestListThatCan) {
    const BufferPool_Config config{{{1024, 2}, {512, 0}, {256, 1}}};
    BufferPool pool(&config, "frames");
    int living = 0;
    std::vector<SharedPtr<Buffer>> held;
    const std::tuple<unsigned int, unsigned int, bool> requests[] = {
        {1025, 1025, false}, {100, 256, true},  {100, 1024, true},
        {1024, 1024, true},  {100, 100, false}, {0, 0, false}};
    for (const auto& [size, capacity, isPooled] : requests) {
        SCOPED_TRACE(size);
        auto* const param = new Counted(living);
        held.push_back(pool.getPoolBuffer(size, param));
        EXPECT_EQ(held.back()->capacity(), capacity);
        EXPECT_EQ(held.back()->state(), BUFFER_STATE_IN_USE);
        EXPECT_EQ(held.back()->owner() != nullptr, isPooled);
        EXPECT_EQ(held.back()->param(), isPooled ? nullptr : param);
        if (isPooled) delete param;
    }
    held.clear();
    EXPECT_EQ(living, 0);
    EXPECT_EQ(pool.fallbackCount(), 3U);
    EXPECT_EQ(BufferPool(nullptr, "").getPoolBuffer(7, nullptr)->capacity(), 7U);
    SharedPtr<Buffer> last = BufferPool(&config, "ends first").getPoolBuffer(7, nullptr);
    EXPECT_EQ(last->owner(), nullptr);
    last->parameter().set("key", new Counted(living));
    last.reset();
    EXPECT_EQ(living, 0);
}

TEST(BufferList, ReusesTheFirstFreeBufferEmptiedAndLeavesThoseThatAreOut) {
    int living = 0;
    for (const unsigned int count : {1U, 64U, 65U, 5000U}) {
        std::mt19937 random(count);
        auto list = std::make_unique<BufferList>(BufferList_Config{8, count});
        Buffer foreign(8, nullptr, list.get());
        for (Buffer* const buffer : {&foreign, list->getBuffer(8).get()}) {
            EXPECT_TRUE(buffer->setUsedSize(3));
            list->returnFreeBuffer(buffer);
            EXPECT_EQ(buffer->usedSize(), 0U);
            EXPECT_EQ(list->freeCount(), count);
        }
        std::vector<SharedPtr<Buffer>> out(count);
        std::vector<Buffer*> buffers(count);
        std::set<size_t> free;
        for (size_t index = 0; index < count; ++index) {
            out[index] = list->getBuffer(8);
            buffers[index] = out[index].get();
            out[index]->parameter().set("key", new Counted(living));
        }
        for (int step = 0; step < 10000; ++step) {
            const size_t index = random() % count;
            if (out[index]) {
                const auto used = static_cast<unsigned int>(random() % 9);
                EXPECT_TRUE(out[index]->setUsedSize(used));
                EXPECT_FALSE(out[index]->setUsedSize(9));
                EXPECT_FALSE(out[index]->setUsedSize(UINT_MAX - 3));
                EXPECT_EQ(out[index]->usedSize(), used);
                EXPECT_EQ(std::memcmp(out[index]->data() + used, &Buffer::_checkByte, 4), 0);
                out[index].reset();
                free.insert(index);
            } else {
                const size_t first = *free.begin();
                out[first] = list->getBuffer(8);
                ASSERT_EQ(out[first].get(), buffers[first]);
                free.erase(first);
            }
            ASSERT_EQ(list->freeCount(), free.size());
        }
        list.reset();
        EXPECT_EQ(living, static_cast<int>(count - free.size()));
        out.clear();
        EXPECT_EQ(living, 0);
    }
}

}  // namespace
}  // namespace NIVUR
