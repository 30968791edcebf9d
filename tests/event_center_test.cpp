#include <gtest/gtest.h>
#include <nivur/event_center.h>

#include <algorithm>
#include <random>
#include <thread>

#include "support/log_capture.h"

namespace NIVUR {
namespace {

// Compares the center with a model: a dispatch calls the first handler of the list that it has not
// called yet, until none is left. Handlers change the list and send events at random.
class Script {
  public:
    explicit Script(unsigned seed) : _random(seed), _handlers(12, Handler(*this)) {}

    void send() {
        _called.emplace_back();
        EXPECT_TRUE(_center.sendEvent(_event, &_parameter));
        EXPECT_EQ(next(), nullptr);
        _called.pop_back();
    }

    void change() {
        Handler* const handler = &_handlers[_random() % _handlers.size()];
        const auto found = std::find(_list.begin(), _list.end(), handler);
        const auto what = _random() % 20;
        what == 0   ? _center.unregisterAllEventHandlers()
        : what == 1 ? _center.unregisterAllEventHandlers("x")
        : what < 8  ? _center.unregisterEventHandler("x", handler)
                    : _center.registerEventHandler("x", handler);
        if (what >= 8 && found == _list.end()) _list.push_back(handler);
        if (what >= 2 && what < 8 && found != _list.end()) _list.erase(found);
        if (what < 2) _list.clear();
    }

  private:
    struct Handler : EventHandler {
        explicit Handler(Script& script) : _script(script) {}
        void onEvent(const Event& event, Parameter* parameter) override {
            EXPECT_EQ(&event, &_script._event);
            EXPECT_EQ(parameter, &_script._parameter);
            _script.isCalled(this);
        }
        Script& _script;
    };

    Handler* next() {
        const std::vector<Handler*>& called = _called.back();
        const auto found = std::find_if(_list.begin(), _list.end(), [&](Handler* each) {
            return std::find(called.begin(), called.end(), each) == called.end();
        });
        return found == _list.end() ? nullptr : *found;
    }

    void isCalled(Handler* handler) {
        ASSERT_EQ(handler, next());
        _called.back().push_back(handler);
        for (auto changes = _random() % 4 / 2; changes > 0; --changes)
            _random() % 20 == 0 ? std::thread([this] { change(); }).join() : change();
        if (_called.size() < 3 && _random() % 10 == 0) send();
    }

    std::mt19937 _random;
    Event _event{"x"};
    Parameter _parameter;
    std::vector<Handler> _handlers;
    std::vector<Handler*> _list;
    std::vector<std::vector<Handler*>> _called;  // by each running dispatch
    EventCenter _center;
};

TEST(EventCenter, CallsEachHandlerOnceInOrderWhateverTheyDoMeanwhile) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        Script script(seed);
        for (unsigned i = 0; i < seed % 30; ++i)
            script.change();
        script.send();
        script.send();
        if (HasFailure()) FAIL() << "seed " << seed;
    }
}

TEST(EventCenter, WarnsOfANameThatNeverHadAHandlerWithNoLockHeld) {
    struct : EventHandler {
        void onEvent(const Event& /*event*/, Parameter* /*parameter*/) override { FAIL(); }
    } handler;
    static EventCenter center;  // static as `lines`: a sink has no argument to pass state
    static Lines lines;
    Log::setCB([](int level, const char* fmt, va_list /*args*/) {
        lines.push_back(std::to_string(level) + " " + fmt);
        center.unregisterAllEventHandlers();
    });
    center.unregisterEventHandler("x", &handler);
    center.unregisterAllEventHandlers("x");
    EXPECT_TRUE(center.sendEvent(Event("x"), nullptr));
    center.registerEventHandler("x", &handler);
    center.unregisterEventHandler("x", &handler);
    EXPECT_TRUE(center.sendEvent(Event("x"), nullptr));
    EXPECT_EQ(lines, Lines{"4 event %s has no handler"});
    Log::setCB(nullptr);
    const char* const report = "src/event_center.cpp:.*registerEventHandler\\(.*`handler' failed";
    EXPECT_DEATH(center.registerEventHandler("x", nullptr), report);
    EXPECT_DEATH(center.unregisterEventHandler("x", nullptr), report);
}

}  // namespace
}  // namespace NIVUR
