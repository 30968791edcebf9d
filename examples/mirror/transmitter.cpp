#include "transmitter.h"

#include <nivur/system_util.h>

#include <algorithm>
#include <utility>

#include "wire.h"

using NIVUR::makeRunnable;
using NIVUR::SystemUtil;

namespace mirror {

namespace {

constexpr unsigned int kTickMs = 10;
constexpr uint64_t kFirstQuestionUs = 10'000;
constexpr unsigned int kMaxDoublings = 6;
constexpr uint64_t kTimingUs = 200'000;
constexpr uint64_t kSilenceUs = 1'000'000;
constexpr unsigned int kEnoughAnswers = 10;  // to know the clock offset
constexpr uint64_t kDoubt = 6;               // deviations, divided by the number of exchanges
constexpr uint64_t kMarginUs = 1000;
constexpr uint64_t kDeafAtFirstUs = 4'000'000;
constexpr uint64_t kDeafUs = 8'000'000;

}  // namespace

Transmitter::Transmitter(NIVUR::RunLoop& loop, DatagramPath& path, Owner& owner, uint64_t latencyUs,
                         uint64_t firstRate)
    : _loop(loop),
      _path(path),
      _owner(owner),
      _latencyUs(latencyUs),
      _pace(loop, [this] { pump(); }),
      _congestion(firstRate) {}

Transmitter::~Transmitter() {
    _loop.cancelTasksForObject(this);
}

/// A file starts at once, with the few packets of a slow start. A stream waits until the clock
/// offset is known.
void Transmitter::open() {
    sendTiming(true);
    if (_latencyUs == 0) {
        _open = true;
        _owner.onOpen();
    }
    pump();
}

void Transmitter::close() {
    _closed = true;
    _pace.cancel();
    _loop.cancelTasksForObject(this);
}

void Transmitter::add(NIVUR::SharedPtr<NIVUR::Buffer> body, uint64_t bornUs) {
    _counts.bytes += body->usedSize() - kDataHeaderSize;
    _outbox.add(std::move(body), bornUs);
}

void Transmitter::pump() {
    if (_closed) {
        return;
    }
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    dropStale(nowUs);
    while (_open && !_closed && mayTransmit(nowUs)) {
        transmit(*_outbox.take(), nowUs);
    }
    _path.flush();
    keepTicking();
}

bool Transmitter::mayTransmit(uint64_t nowUs) {
    if (_path.isBlocked() || _flight.bytes() >= _congestion.window()) {
        return false;
    }
    if (!_outbox.hasUnsent()) {
        _owner.onRoom();
    }
    if (!_outbox.hasUnsent()) {
        _flight.limit();
        return false;
    }
    if (_pacer.dueUs() > nowUs) {
        _pace.set(std::max(_pacer.dueUs(), nowUs + kMarginUs / 2));
        return false;
    }
    return true;
}

void Transmitter::transmit(uint64_t index, uint64_t nowUs) {
    Outbox::Chunk& chunk = *_outbox.find(index);
    DataHeader{index, chunk.bornUs}.write(chunk.body->data());
    const unsigned int size = chunk.body->usedSize();
    chunk.packet = _path.next();
    chunk.sentUs = nowUs;
    _path.queue(chunk.isSent ? PacketKind::DATA_AGAIN : PacketKind::DATA, chunk.body->data(), size);
    _counts.again += std::exchange(chunk.isSent, true) ? 1 : 0;
    ++_counts.packets;
    _questions = 0;
    count(size, nowUs);
}

/// Accounts for a packet that was queued.
void Transmitter::count(size_t bodySize, uint64_t nowUs) {
    const uint64_t bytes = bodySize + kHeaderSize + kTagSize + kWireOverhead;
    _flight.sent(_path.next() - 1, bytes, nowUs, _roundTrip.minUs());
    _pacer.sent(bytes, _congestion.rate(), _roundTrip.minUs(), nowUs);
    if (isAnswered() || nowUs - _sentUs > kDeafUs) {
        _askedUs = nowUs;
    }
    _sentUs = nowUs;
}

/// The fastest of n answers still contains about 1/n of the jitter, which makes the estimate too
/// low by half of that. The estimate is raised by more, so that no chunk is handed out early.
int64_t Transmitter::offsetUs(uint64_t nowUs) const {
    const uint64_t doubtUs =
        kDoubt * _roundTrip.deviationUs() / std::max<uint64_t>(1, _clock.exchanges());
    return _clock.offsetUs(nowUs) + static_cast<int64_t>(doubtUs);
}

void Transmitter::sendTiming(bool wantsAnswer) {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    Timing timing;
    timing.wantsAnswer = wantsAnswer;
    timing.next = _outbox.next();
    timing.sentUs = nowUs;
    timing.offsetUs = offsetUs(nowUs);
    timing.roundTripUs =
        static_cast<uint32_t>(std::min<uint64_t>(_roundTrip.smoothedUs(), UINT32_MAX));
    char body[64];
    const size_t size = timing.write(body, sizeof(body));
    _path.queue(PacketKind::TIMING, body, size);
    count(size, nowUs);
    _timingUs = nowUs;
    _questions += wantsAnswer ? 1 : 0;
    _path.flush();
}

void Transmitter::take(const Packet& packet) {
    if (packet.kind == PacketKind::FEEDBACK) {
        if (auto feedback = Feedback::read(packet.body->data(), packet.body->usedSize())) {
            onFeedback(std::move(*feedback));
        }
    }
}

/// Ignores feedback that a newer one has overtaken.
void Transmitter::onFeedback(Feedback feedback) {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    feedback.newest = nearest(_flight.next(), feedback.newest, 32);
    feedback.base = nearest(_outbox.base(), feedback.base, 32);
    const auto report = _flight.arrived(feedback, nowUs, _roundTrip.minUs());
    if (!report || feedback.base > _outbox.next()) {
        return;
    }
    learn(feedback, *report, nowUs);
    repair(feedback, report->sentUs);
    if (feedback.base > _outbox.base()) {
        _outbox.confirm(feedback.base);
        _owner.onConfirmed();
    }
    checkOpen(nowUs);
    pump();
}

void Transmitter::learn(const Feedback& feedback, const Flight::Report& report, uint64_t nowUs) {
    if (_heardUs != 0 && nowUs - _heardUs > std::max(kSilenceUs, 4 * _roundTrip.timeoutUs()) &&
        report.sentUs < _heardUs + kSilenceUs) {
        _congestion.restart();
    }
    _heardUs = nowUs;
    _roundTrip.add(std::max<uint64_t>(1, report.roundTripUs), nowUs);
    _clock.add(report.sentUs, feedback.arrivedUs, feedback.arrivedUs + feedback.heldUs, nowUs);
    _congestion.update(report, _roundTrip, _flight.bytes(), nowUs);
}

/// Sends lost chunks again. A missing chunk is lost if it was last sent at least the reordering
/// time before `sentUs`, when the newest arrived packet was sent. So a chunk is not sent again
/// while its last packet may still be in flight.
void Transmitter::repair(const Feedback& feedback, uint64_t sentUs) {
    for (const Feedback::Gap& gap : feedback.gaps) {
        const uint64_t end = std::min(feedback.base + gap.end, _outbox.next());
        for (uint64_t i = std::max(feedback.base + gap.begin, _outbox.base()); i < end; ++i) {
            const Outbox::Chunk* const chunk = _outbox.find(i);
            if (chunk != nullptr && chunk->isSent && chunk->packet < feedback.newest &&
                chunk->sentUs + feedback.reorderingUs <= sentUs) {
                _outbox.sendAgain(i);
            }
        }
    }
}

void Transmitter::checkOpen(uint64_t nowUs) {
    if (_open) {
        return;
    }
    _firstAnswerUs = _answers++ == 0 ? nowUs : _firstAnswerUs;
    const bool isLong = nowUs - _firstAnswerUs > 2 * _roundTrip.timeoutUs() + 20 * kMarginUs;
    if (_answers >= kEnoughAnswers || isLong) {
        _open = true;
        sendTiming(true);
        _owner.onOpen();
    } else {
        _questions = 0;
    }
}

/// Drops chunks that would arrive too late. All queueing delay of the round trip is attributed to
/// the direction of the receiver. If nothing is left to send, a question per round trip detects
/// when the delay is short enough again.
void Transmitter::dropStale(uint64_t nowUs) {
    const uint64_t wayUs = _roundTrip.smoothedUs() - _roundTrip.minUs() / 2;
    if (_latencyUs != 0 && _roundTrip.isKnown()) {
        const uint64_t ageUs = _latencyUs - std::min(_latencyUs, wayUs);
        const uint64_t base = _outbox.base();
        _counts.dropped += _outbox.dropBefore(nowUs - std::min(nowUs, ageUs));
        if (_outbox.base() != base) {
            _owner.onConfirmed();
            if (isAnswered() || nowUs - _sentUs > kSilenceUs) {
                sendTiming(true);
            }
        }
    }
}

/// A pause in which nothing was sent does not count.
bool Transmitter::isDeaf(uint64_t nowUs) const {
    const uint64_t limitUs = _heardUs == 0 ? kDeafAtFirstUs : kDeafUs;
    return !isAnswered() && nowUs - _askedUs > limitUs && nowUs - _sentUs < limitUs;
}

void Transmitter::keepTicking() {
    if (_ticks == 0 && !_closed && (!_open || _outbox.size() > 0)) {
        _ticks = _loop.addTimer(makeRunnable([this] { tick(); }, this), kTickMs, true);
    }
}

/// Requests feedback at doubling intervals while chunks are unconfirmed and nothing is sent.
void Transmitter::tick() {
    const uint64_t nowUs = SystemUtil::getCPUTimeInMicroseconds();
    if (_open && _outbox.size() == 0) {
        _loop.stopTimer(std::exchange(_ticks, 0));
        return;
    }
    if (isDeaf(nowUs)) {
        _owner.onDeaf();
        return;
    }
    const unsigned int doublings = std::min(_questions, kMaxDoublings);
    if (nowUs - _sentUs >= kFirstQuestionUs << doublings) {
        sendTiming(true);
    } else if (_open && nowUs - _timingUs >= kTimingUs) {
        sendTiming(false);
    }
    pump();
}

}  // namespace mirror
