#include <gtest/gtest.h>
#include <nivur/run_loop.h>

#include <memory>

namespace NIVUR {
namespace {

struct Base {
    virtual ~Base() = default;
    virtual void call() { called = "base"; }
    std::string called;
};
struct Derived : Base {
    void call() override { called = "derived"; }
};

TEST(Runnable, CallsVirtuallyAndNamesTheObjectThatItDoesNotOwn) {
    Derived object;
    const std::unique_ptr<Runnable> tasks[] = {
        std::make_unique<Functor0<Base, void (Base::*)()>>(&object, &Base::call),
        std::unique_ptr<Runnable>(makeRunnable([] {}, &object))};
    for (const auto& task : tasks) {
        task->run();
        EXPECT_EQ(task->getObject(), &object);
    }
    EXPECT_EQ(object.called, "derived");
    EXPECT_EQ(std::unique_ptr<Runnable>(makeRunnable([] {}))->getObject(), nullptr);
}

TEST(Functor0, DumpIsTheCompilersTextWithPlainStringSpelling) {
    RunLoop loop("loop");
    Functor0<RunLoop, void (RunLoop::*)()> functor(&loop, &RunLoop::stop);
#if !defined(__clang__)
    EXPECT_EQ(
        functor.dump(),
        "std::string NIVUR::Functor0<TClass, Func>::dump() [with TClass = NIVUR::RunLoop; Func = "
        "void (NIVUR::RunLoop::*)(); std::string = std::basic_string<char>]");
#endif
    EXPECT_EQ(functor.dump().find("__cxx11"), std::string::npos);
    EXPECT_NE(functor.dump().find("NIVUR::RunLoop"), std::string::npos);
}

}  // namespace
}  // namespace NIVUR
