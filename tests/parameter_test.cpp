#include <gtest/gtest.h>
#include <nivur/parameter.h>

#include <functional>

#include "support/counted.h"

namespace NIVUR {
namespace {

static_assert(!std::is_copy_constructible_v<Parameter> && !std::is_copy_assignable_v<Parameter>);

TEST(Parameter, OwnsItsValues) {
    int living = 0;
    Parameter parameter;
    auto* const value = new Counted(living);
    parameter.set("key", new Counted(living));
    parameter.set("key", value);
    parameter.set("key", value);
    EXPECT_EQ(parameter.get("key"), value);
    EXPECT_EQ(living, 1);
    EXPECT_TRUE(parameter.remove("key"));
    EXPECT_FALSE(parameter.remove("key"));
    EXPECT_EQ(living, 0);
    parameter.set("key", new Counted(living));
    parameter.set("key", nullptr);
    EXPECT_EQ(parameter.get("key"), nullptr);
    EXPECT_EQ(living, 0);
}

TEST(Parameter, MayBeAskedByTheValuesThatEndWithIt) {
    struct Asking : ParameterValue {
        ~Asking() override { ask(); }
        std::function<void()> ask;
    };
    Parameter parameter;
    size_t left = 3;
    for (const char* const key : {"a", "b", "c"}) {
        auto* const value = new Asking;
        value->ask = [&parameter, key, rest = --left] {
            EXPECT_EQ(parameter.get(key), nullptr);
            EXPECT_EQ(parameter.size(), rest);
        };
        parameter.set(key, value);
    }
}

}  // namespace
}  // namespace NIVUR
