#include <Poco/BasicEvent.h>
#include <Poco/Delegate.h>
#include <nivur/event_center.h>

#include <boost/signals2.hpp>
#include <memory>

#include "bench.h"

namespace bench {

namespace {

const Family kFamily("events");

struct Handler : NIVUR::EventHandler {
    void onEvent(const NIVUR::Event&, NIVUR::Parameter*) override { ++calls; }
    void onPocoEvent(const void*, const NIVUR::Event*&) { ++calls; }
    long calls = 0;
};

class NivurCenter {
  public:
    static std::string name() { return "nivur"; }
    void add(Handler& handler) { _center.registerEventHandler("changed", &handler); }
    void send(const NIVUR::Event& event) { _center.sendEvent(event, nullptr); }

  private:
    NIVUR::EventCenter _center;
};

class BoostSignal {
  public:
    static std::string name() { return "boost::signals2"; }
    void add(Handler& handler) {
        _signal.connect([&handler](const NIVUR::Event& event, NIVUR::Parameter* parameter) {
            handler.onEvent(event, parameter);
        });
    }
    void send(const NIVUR::Event& event) { _signal(event, nullptr); }

  private:
    boost::signals2::signal<void(const NIVUR::Event&, NIVUR::Parameter*)> _signal;
};

class PocoEvent {
  public:
    static std::string name() { return "POCO"; }
    void add(Handler& handler) { _event += Poco::delegate(&handler, &Handler::onPocoEvent); }
    void send(const NIVUR::Event& event) {
        const NIVUR::Event* sent = &event;
        _event.notify(this, sent);
    }

  private:
    Poco::BasicEvent<const NIVUR::Event*> _event;
};

/// The calls alone, through the handlers' virtual function.
class PlainCalls {
  public:
    static std::string name() { return "the calls"; }
    void add(NIVUR::EventHandler& handler) { _handlers.push_back(&handler); }
    void send(const NIVUR::Event& event) {
        for (NIVUR::EventHandler* handler : _handlers) {
            handler->onEvent(event, nullptr);
            benchmark::ClobberMemory();
        }
    }

  private:
    std::vector<NIVUR::EventHandler*> _handlers;
};

template <class Center>
void measure(State& state, Peer<Center>, size_t count) {
    std::vector<std::unique_ptr<Handler>> handlers;
    Center center;
    for (size_t i = 0; i < count; ++i) {
        handlers.push_back(std::make_unique<Handler>());
        center.add(*handlers.back());
    }
    const NIVUR::Event event("changed");
    for (auto _ : state) {
        center.send(event);
    }
}

}  // namespace

void addEvents() {
    const Peers<NivurCenter, BoostSignal, Other<PocoEvent>, Limit<PlainCalls>> peers;
    for (const size_t count : {1, 10, 100, 1000}) {
        kFamily.add("send to handlers: " + std::to_string(count), peers,
                    [=](State& state, auto peer) { measure(state, peer, count); });
    }
}

}  // namespace bench
