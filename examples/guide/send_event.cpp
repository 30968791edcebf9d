// Sends events with values to the handlers that are registered for their name.

#include <nivur/nivur.h>

#include <cstdio>

struct Volume : NIVUR::ParameterValue {
    explicit Volume(int volume) : percent(volume) {}
    const int percent;
};

class Display : public NIVUR::EventHandler {
  public:
    explicit Display(NIVUR::EventCenter& events) : _events(events) {
        _events.registerEventHandler("volume", this);
    }

    // This is enough because all events are sent on this thread. It does not wait for a call on
    // another thread, which could then use the destroyed object.
    ~Display() override { _events.unregisterEventHandler("volume", this); }

    // Runs on the thread that sends.
    void onEvent(const NIVUR::Event& event, NIVUR::Parameter*) override {
        const auto* volume = dynamic_cast<Volume*>(event.parameter().get("volume"));
        std::printf("display: %s %d%%\n", event.id().c_str(), volume->percent);
    }

  private:
    NIVUR::EventCenter& _events;
};

static void sendVolume(NIVUR::EventCenter& events, int percent) {
    NIVUR::Event event("volume");
    event.parameter().set("volume", new Volume(percent));
    events.sendEvent(event, nullptr);
}

int main() {
    NIVUR::EventCenter events;
    {
        Display display(events);
        sendVolume(events, 40);
        sendVolume(events, 100);
    }
    sendVolume(events, 0);  // there is no handler left
    std::puts("done");
}
