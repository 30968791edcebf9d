// Sends events with values to those who asked for their name.

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

    // Enough because all events are sent on this thread. A call under way on another one would not
    // be waited for, and could come in after the object is gone.
    ~Display() override { _events.unregisterEventHandler("volume", this); }

    // On the thread that sends.
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
    sendVolume(events, 0);  // to nobody
    std::puts("done");
}
