#ifndef MIRROR_PROGRESS_H
#define MIRROR_PROGRESS_H

#include <nivur/event.h>
#include <nivur/event_center.h>
#include <nivur/event_handler.h>
#include <nivur/parameter.h>
#include <nivur/stop_watch.h>

#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// How far a transfer is, which every event about it carries.
struct Standing : NIVUR::ParameterValue {
    Standing(uint64_t doneBytes, uint64_t sizeBytes, std::string detailLines = "")
        : done(doneBytes), size(sizeBytes), details(std::move(detailLines)) {}
    const uint64_t done;
    const uint64_t size;
    const std::string details;  // lines to print when it has begun or finished

    /// Sends the event `name`: "begun", "moved" or "finished".
    void send(NIVUR::EventCenter& events, const std::string& name) const;
};

/// What the person at the terminal sees of one end: a line while the file moves, rewritten in place
/// where that is possible, and a summary when all is done.
class Progress : public NIVUR::EventHandler {
  public:
    /// `deed` is what this end does with the file: "sent" or "received". The summary is all that a
    /// `quiet` one prints.
    Progress(NIVUR::EventCenter& events, std::string deed, bool quiet);
    ~Progress() override;

    /// On the loop of the end.
    void onEvent(const NIVUR::Event& event, NIVUR::Parameter* parameter) override;

  private:
    void printLine(const Standing& standing);
    void printSummary(const Standing& standing);
    double seconds();

    NIVUR::EventCenter& _events;
    const std::string _deed;
    const bool _quiet;
    const bool _onTerminal;
    std::optional<NIVUR::StopWatch> _watch;
    double _printed = 0;
};

}  // namespace mirror

#endif
