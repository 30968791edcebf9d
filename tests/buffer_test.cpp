#include <gtest/gtest.h>
#include <nivur/nivur.h>

#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <set>

namespace NIVUR {
namespace {

std::atomic<int> living{0};

struct Counted : BaseBufferParam, ParameterValue {
    Counted() { ++living; }
    ~Counted() override { --living; }
};

static_assert(!std::is_copy_constructible_v<Parameter> && !std::is_copy_assignable_v<Parameter>);

TEST(Parameter, OwnsItsValues) {
    Parameter parameter;
    auto* const value = new Counted;
    parameter.set("key", new Counted);
    parameter.set("key", value);
    parameter.set("key", value);
    EXPECT_TRUE(parameter.get("key") == value && living == 1);
    EXPECT_TRUE(parameter.remove("key") && !parameter.remove("key") && living == 0);
    parameter.set("key", new Counted);
    parameter.set("key", nullptr);
    EXPECT_TRUE(parameter.get("key") == nullptr && living == 0);
}

TEST(Parameter, MayBeAskedByTheValuesThatEndWithIt) {
    struct Asking : ParameterValue {
        ~Asking() override { ask(); }
        std::function<void()> ask;
    };
    Buffer buffer(0, nullptr, nullptr);
    size_t left = 3;
    for (const char* const key : {"a", "b", "c"}) {
        auto* const value = new Asking;
        value->ask = [&buffer, key, rest = --left] {
            EXPECT_EQ(buffer.parameter().get(key), nullptr);
            EXPECT_EQ(buffer.parameter().size(), rest);
        };
        buffer.parameter().set(key, value);
    }
}

TEST(Buffer, GoesBackToItsOwnerOnce) {
    struct Owner : BufferOwner {
        void returnFreeBuffer(Buffer* buffer) override { returned.push_back(buffer); }
        std::vector<Buffer*> returned;
    } owner;
    Buffer buffer(0, nullptr, &owner);
    EXPECT_TRUE(buffer.state() == BUFFER_STATE_FREE && buffer.usedSize() == 0);
    SharedPtr<Buffer> last(&buffer, &Buffer::_disposer);
    last.reset();
    EXPECT_EQ(owner.returned, std::vector<Buffer*>{&buffer});
    Buffer::_disposer.dispose(nullptr);
    SharedPtr<Buffer>(new Buffer(0, new Counted, nullptr), &Buffer::_disposer).reset();
    EXPECT_EQ(living, 0);  // without an owner it is deleted
}

TEST(Buffers, SayWhenTheirSizeCannotBe) {
    for (const unsigned int size : {UINT_MAX, UINT_MAX - 3}) {
        EXPECT_FALSE(BufferPool::getBuffer(size, new Counted));
        EXPECT_EQ(BufferList({size, UINT_MAX}).bufferCount(), 0U);
        Buffer invalid(size, nullptr, nullptr);
        invalid.reset();
        EXPECT_FALSE(invalid.setUsedSize(0));
        EXPECT_EQ(invalid.state(), BUFFER_STATE_INVALID);
    }
    EXPECT_EQ(living, 0);
}

SharedPtr<Buffer> heldToTheEnd;  // until static objects are destroyed

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
    static BufferPool endsFirst(&config, "");
    heldToTheEnd.reset();
    overwrite(endsFirst.getPoolBuffer(8, nullptr));  // it returns and gets a new guard
    endsFirst.setGuardCheckEnabled(true);
    EXPECT_DEATH(overwrite(endsFirst.getPoolBuffer(8, nullptr)), report);
    heldToTheEnd = endsFirst.getPoolBuffer(8, nullptr);
    EXPECT_DEATH((overwrite(heldToTheEnd), std::exit(0)), report);
}

TEST(BufferPool, ServesFromTheSmallestListThatCan) {
    const BufferPool_Config config{{{1024, 2}, {512, 0}, {256, 1}}};
    BufferPool pool(&config, "frames");
    std::vector<SharedPtr<Buffer>> held;
    const std::tuple<unsigned int, unsigned int, bool> requests[] = {
        {1025, 1025, false}, {100, 256, true},  {100, 1024, true},
        {1024, 1024, true},  {100, 100, false}, {0, 0, false}};
    for (const auto& [size, capacity, isPooled] : requests) {
        auto* const param = new Counted;
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
    last->parameter().set("key", new Counted);
    last.reset();
    EXPECT_EQ(living, 0);
}

TEST(BufferList, ReusesTheFirstFreeBufferEmptiedAndLeavesThoseThatAreOut) {
    for (const unsigned int count : {1U, 64U, 65U, 5000U}) {
        std::mt19937 random(count);
        auto list = std::make_unique<BufferList>(BufferList_Config{8, count});
        Buffer foreign(8, nullptr, list.get());
        for (Buffer* const buffer : {&foreign, list->getBuffer(8).get()}) {
            EXPECT_TRUE(buffer->setUsedSize(3));
            list->returnFreeBuffer(buffer);
            EXPECT_TRUE(buffer->usedSize() == 0 && list->freeCount() == count);
        }
        std::vector<SharedPtr<Buffer>> out(count);
        std::vector<Buffer*> buffers(count);
        std::set<size_t> free;
        for (size_t index = 0; index < count; ++index) {
            out[index] = list->getBuffer(8);
            buffers[index] = out[index].get();
            out[index]->parameter().set("key", new Counted);
        }
        for (int step = 0; step < 10000; ++step) {
            const size_t index = random() % count;
            if (out[index]) {
                const auto used = static_cast<unsigned int>(random() % 9);
                EXPECT_TRUE(out[index]->setUsedSize(used));
                EXPECT_FALSE(out[index]->setUsedSize(9) || out[index]->setUsedSize(UINT_MAX - 3));
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
