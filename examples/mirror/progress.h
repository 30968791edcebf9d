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

/// The progress of a transfer, which is the parameter of each event about it.
struct Standing : NIVUR::ParameterValue {
    Standing(uint64_t doneBytes, uint64_t sizeBytes, std::string detailLines = "")
        : done(doneBytes), size(sizeBytes), details(std::move(detailLines)) {}
    const uint64_t done;
    const uint64_t size;
    const std::string details;  // lines to print when it has begun or finished

    /// Sends the event `name`: "begun", "moved" or "finished".
    void send(NIVUR::EventCenter& events, const std::string& name) const;
};

/// Prints the progress of one end: a line during the transfer, rewritten in place on a terminal,
/// and a summary at the end.
class Progress : public NIVUR::EventHandler {
  public:
    /// `deed` is the verb of the messages: "sent" or "received". If `quiet`, prints only the
    /// summary.
    Progress(NIVUR::EventCenter& events, std::string deed, bool quiet);
    ~Progress() override;

    /// Called on the end's loop.
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
