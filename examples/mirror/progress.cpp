#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace mirror {

namespace {

const char kBytes[] = "bytes";

double mebibytes(uint64_t bytes) {
    return static_cast<double>(bytes) / (1024 * 1024);
}

}  // namespace

void BytesDone::send(NIVUR::EventCenter& events, const std::string& name, uint64_t size) {
    NIVUR::Parameter parameter;
    parameter.set(kBytes, new BytesDone(size));
    events.sendEvent(NIVUR::Event(name), &parameter);
}

Progress::Progress(NIVUR::EventCenter& events)
    : _events(events), _onTerminal(::isatty(STDOUT_FILENO) == 1) {
    _events.registerEventHandler("frame", this);
    _events.registerEventHandler("finished", this);
}

Progress::~Progress() {
    _events.unregisterEventHandler("frame", this);
    _events.unregisterEventHandler("finished", this);
}

void Progress::begin(uint64_t size) {
    _size = size;
    _watch.emplace();
}

void Progress::print() {
    const uint64_t done = _done;
    const double percent = _size == 0 ? 100 : 100 * mebibytes(done) / mebibytes(_size);
    std::printf("%s%5.1f %%  %8.1f MiB  %8.1f MiB/s%s", _onTerminal ? "\r" : "", percent,
                mebibytes(done), mebibytesPerSecond(done), _onTerminal ? "" : "\n");
    std::fflush(stdout);
}

void Progress::onEvent(const NIVUR::Event& event, NIVUR::Parameter* parameter) {
    const auto* const size = dynamic_cast<const BytesDone*>(parameter->get(kBytes));
    if (size == nullptr) {
        return;
    }
    if (event.id() == "frame") {
        _done += size->bytes;
        return;
    }
    std::printf("%smirrored %" PRIu64 " bytes at %.1f MiB/s; sizes and checksums agree\n",
                _onTerminal ? "\r\033[K" : "", size->bytes, mebibytesPerSecond(size->bytes));
}

double Progress::mebibytesPerSecond(uint64_t bytes) {
    return mebibytes(bytes) * 1000 / std::max(1U, _watch->record());
}

}  // namespace mirror
