#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <utility>

namespace mirror {

namespace {

constexpr double kIntervalSeconds = 0.2;
const char kKey[] = "standing";
const char* const kEvents[] = {"begun", "moved", "finished"};

double mebibytes(uint64_t bytes) {
    return static_cast<double>(bytes) / (1024 * 1024);
}

}  // namespace

void Standing::send(NIVUR::EventCenter& events, const std::string& name) const {
    NIVUR::Parameter parameter;
    parameter.set(kKey, new Standing(*this));
    events.sendEvent(NIVUR::Event(name), &parameter);
}

Progress::Progress(NIVUR::EventCenter& events, std::string deed, bool quiet)
    : _events(events),
      _deed(std::move(deed)),
      _quiet(quiet),
      _onTerminal(::isatty(STDOUT_FILENO) == 1) {
    for (const char* const event : kEvents) {
        _events.registerEventHandler(event, this);
    }
}

Progress::~Progress() {
    for (const char* const event : kEvents) {
        _events.unregisterEventHandler(event, this);
    }
}

void Progress::onEvent(const NIVUR::Event& event, NIVUR::Parameter* parameter) {
    const auto* const standing = dynamic_cast<const Standing*>(parameter->get(kKey));
    if (standing == nullptr) {
        return;
    }
    if (event.id() == "begun") {
        _watch.emplace();
        std::fputs(_quiet ? "" : standing->details.c_str(), stdout);
    } else if (event.id() == "finished") {
        printSummary(*standing);
    } else if (!_quiet && seconds() - _printed >= kIntervalSeconds) {
        _printed = seconds();
        printLine(*standing);
    }
    std::fflush(stdout);
}

void Progress::printLine(const Standing& standing) {
    std::printf("%s%s %5.1f %%  %8.1f MiB  %8.1f MiB/s%s", _onTerminal ? "\r" : "", _deed.c_str(),
                100 * mebibytes(standing.done) / mebibytes(standing.size), mebibytes(standing.done),
                mebibytes(standing.done) / seconds(), _onTerminal ? "" : "\n");
}

void Progress::printSummary(const Standing& standing) {
    std::printf("%s%s %" PRIu64 " bytes in %.2f s, %.1f MiB/s; sizes and checksums agree\n%s",
                _onTerminal && !_quiet ? "\r\033[K" : "", _deed.c_str(), standing.done, seconds(),
                mebibytes(standing.done) / seconds(), standing.details.c_str());
}

double Progress::seconds() {
    return std::max(1U, _watch->record()) / 1000.0;
}

}  // namespace mirror
