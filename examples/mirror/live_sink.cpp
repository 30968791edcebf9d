#include "live_sink.h"

#include <unistd.h>

#include <cstring>
#include <utility>

#include "limits.h"
#include "texts.h"

using NIVUR::Dictionary;

namespace mirror {

namespace {

constexpr uint64_t kReaderMs = 5000;

}  // namespace

LiveSink::LiveSink(NIVUR::RunLoop& loop, Owner& owner) : _loop(loop), _owner(owner) {}

bool LiveSink::take(const Dictionary& offer) {
    const auto latencyUs = getNumber(offer, "latencyUs");
    if (offer.getString("mode") != "live" || !latencyUs || *latencyUs > kMaxLatencyMs * 1000) {
        return false;
    }
    _latencyUs = *latencyUs;
    _owner.onReady();
    return true;
}

void LiveSink::start(ChunkWindow& chunks) {
    _output.emplace(_loop, STDOUT_FILENO);
    _playout.emplace(_loop, chunks, _latencyUs,
                     [this](ChunkWindow::Body body) { output(std::move(body)); });
}

void LiveSink::output(ChunkWindow::Body body) {
    _output->write(std::move(body), kDataHeaderSize);
    if (_output->error() != 0) {
        _owner.onFailed("cannot write the stream: " + std::string(std::strerror(_output->error())));
    }
    _owner.onMoved();
}

void LiveSink::beforeChunks() {
    _playout->handOut();
}

void LiveSink::onChunks() {
    _playout->schedule();
}

void LiveSink::onTiming(const Timing& timing) {
    _playout->learn(timing);
}

bool LiveSink::finish(const Dictionary& text) {
    _end = getNumber(text, "chunks");
    return _end.has_value();
}

/// The stream is complete when its last chunk was handed out, or when the chunks that are still
/// missing at the end have become too late.
void LiveSink::checkComplete() {
    const bool isOver = _end && _playout->isOver(*_end);
    if (isOver && _output->isEmpty() && !std::exchange(_complete, true)) {
        _owner.onArrived();
        _owner.onComplete(summary());
    }
}

/// Until the stream has ended, a reader may pause for any time.
std::string LiveSink::obstacle() const {
    return _end && _output->isStuckFor(kReaderMs) ? "nobody reads the standard output" : "";
}

std::vector<Statistics::Figure> LiveSink::figures() {
    const Latencies recent = _playout->takeRecent();
    return {{"skipped", "", Statistics::PER_SECOND, _playout->skipped()},
            {"overflowed", "", Statistics::PER_SECOND, _output->dropped()},
            {"p50", "us", Statistics::NOW, recent.percentile(50)},
            {"p99", "us", Statistics::NOW, recent.percentile(99)}};
}

std::string LiveSink::summary() const {
    const Latencies& latencies = _playout->latencies();
    return "handed out " + std::to_string(latencies.count()) + " chunks, skipped " +
           std::to_string(_playout->skipped()) + ", dropped " + std::to_string(_output->dropped()) +
           " that the reader did not take\n  latency: p50 " +
           Statistics::milliseconds(latencies.percentile(50)) + ", p99 " +
           Statistics::milliseconds(latencies.percentile(99)) + "\n";
}

}  // namespace mirror
