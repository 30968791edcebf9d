#include <gtest/gtest.h>
#include <nivur/event_center.h>

#include <functional>
#include <thread>

#include "support/log_capture.h"

namespace NIVUR {
namespace {

// Adds its name to the calls and does once what a test asks for.
struct Handler : EventHandler {
    explicit Handler(const char* itsName) : name(itsName) {}
    void onEvent(const Event& event, Parameter* given) override {
        calls += event.id() + name;
        EXPECT_EQ(given, &parameter());
        if (const auto once = std::exchange(action, nullptr)) once();
    }
    const char* name;
    std::function<void()> action;
    static inline std::string calls;
    static Parameter& parameter() {
        static Parameter instance;
        return instance;
    }
};

struct Scene {
    EventCenter center;
    Handler a{"a"}, b{"b"}, c{"c"}, d{"d"};

    void add(Handler& handler) { center.registerEventHandler("x", &handler); }
    void remove(Handler& handler) { center.unregisterEventHandler("x", &handler); }
    std::string send() {
        EXPECT_TRUE(center.sendEvent(Event("x"), &Handler::parameter()));
        return std::exchange(Handler::calls, "");
    }
};

TEST(EventCenter, CallsEachHandlerOnceInOrderWhateverTheyDoMeanwhile) {
    const std::tuple<std::function<void(Scene&)>, std::string, std::string> cases[] = {
        {[](Scene& s) { s.remove(s.c); }, "xaxb", "xaxb"},
        {[](Scene& s) { s.remove(s.a), s.add(s.d), s.add(s.a); }, "xaxbxcxd", "xbxcxdxa"},
        {[](Scene& s) { s.remove(s.b), s.add(s.d), s.add(s.b); }, "xaxcxdxb", "xaxcxdxb"},
        {[](Scene& s) { s.center.unregisterAllEventHandlers(); }, "xa", ""},
        {[](Scene& s) { s.center.unregisterAllEventHandlers("x"), s.add(s.c); }, "xaxc", "xc"},
        {[](Scene& s) { s.center.sendEvent(Event("x"), &Handler::parameter()); }, "xaxaxbxcxbxc",
         "xaxbxc"},
        {[](Scene& s) { std::thread([&] { s.remove(s.b); }).join(); }, "xaxc", "xaxc"},
    };
    LogCapture log;
    for (const auto& [whileACalled, calls, nextCalls] : cases) {
        Scene scene;
        for (Handler* const handler : {&scene.a, &scene.b, &scene.c, &scene.a}) {
            scene.add(*handler);
        }
        scene.a.action = [&scene, &act = whileACalled] { act(scene); };
        EXPECT_EQ(scene.send(), calls);
        EXPECT_EQ(scene.send(), nextCalls);
    }
    EXPECT_EQ(log.take(), Lines{});
}

TEST(EventCenter, WarnsOfANameThatNeverHadAHandlerWithNoLockHeld) {
    static Scene scene;
    static Lines lines;
    Log::setCB([](int level, const char* fmt, va_list /*args*/) {
        lines.push_back(std::to_string(level) + " " + fmt);
        scene.center.unregisterAllEventHandlers();
    });
    scene.remove(scene.a);
    scene.center.unregisterAllEventHandlers("x");
    EXPECT_EQ(scene.send(), "");
    scene.add(scene.a);
    scene.remove(scene.a);
    EXPECT_EQ(scene.send(), "");
    EXPECT_EQ(lines, Lines{"4 event %s has no handler"});
    Log::setCB(nullptr);
    const char* const report = "src/event_center.cpp:.*registerEventHandler\\(.*`handler' failed";
    EXPECT_DEATH(scene.center.registerEventHandler("x", nullptr), report);
    EXPECT_DEATH(scene.center.unregisterEventHandler("x", nullptr), report);
}

}  // namespace
}  // namespace NIVUR
