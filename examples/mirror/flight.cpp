#include "flight.h"

#include <algorithm>
#include <utility>

#include "wire.h"

namespace mirror {

/// After a pause restarts the rate measurement, as if a packet had arrived one round trip ago.
void Flight::sent(uint64_t number, uint64_t bytes, uint64_t nowUs, uint64_t minRoundTripUs) {
    if (this->bytes() == 0) {
        _firstSentUs = nowUs;
        _deliveredAtUs = nowUs + static_cast<uint64_t>(_wayUs) - minRoundTripUs;
    }
    if (_packets.empty()) {
        _first = number;
    }
    _sentBytes += bytes;
    _roundPeak = std::max(_roundPeak, this->bytes());
    _packets.push_back(
        {nowUs, _sentBytes, _firstSentUs, _delivered, _deliveredAtUs, _limitedUntil > _delivered});
}

std::optional<Flight::Report> Flight::arrived(const Feedback& feedback, uint64_t nowUs,
                                              uint64_t minRoundTripUs) {
    if (feedback.newest < _first || feedback.newest >= next()) {
        return std::nullopt;
    }
    const auto index = static_cast<std::ptrdiff_t>(feedback.newest - _first);
    const Entry entry = _packets[static_cast<size_t>(index)];
    if (nowUs < entry.sentUs + feedback.heldUs) {
        return std::nullopt;  // invalid: held longer than since it was sent
    }
    _arrivedPackets = nearest(_arrivedPackets, feedback.packets, 32);
    _arrivedBytes = nearest(_arrivedBytes, feedback.bytes, 32);
    _delivered = _arrivedBytes + kWireOverhead * _arrivedPackets;
    Report report{nowUs - entry.sentUs - feedback.heldUs, entry.sentUs};
    report.rate = rateOf(entry, feedback, minRoundTripUs);
    report.wasLimited = entry.limited;
    _packets.erase(_packets.begin(), _packets.begin() + index + 1);
    _first = feedback.newest + 1;
    _passedBytes = entry.sentBytes;
    _firstSentUs = entry.sentUs;
    _deliveredAtUs = feedback.arrivedUs;
    _wayUs = static_cast<int64_t>(feedback.arrivedUs - entry.sentUs);
    if (entry.delivered >= _roundEnd) {
        endRound(report);
    }
    return report;
}

/// The lower of the sending and the arrival rate, since the network may bunch packets. Intervals
/// shorter than a round trip give no reliable rate.
uint64_t Flight::rateOf(const Entry& entry, const Feedback& feedback,
                        uint64_t minRoundTripUs) const {
    const uint64_t sendingUs = entry.sentUs - entry.firstSentUs;
    const uint64_t arrivingUs = feedback.arrivedUs - entry.deliveredAtUs;
    const uint64_t us = std::max(sendingUs, arrivingUs);
    const bool isValid = _delivered > entry.delivered && us > 0 && us < UINT64_MAX / 2;
    return isValid && us >= minRoundTripUs ? (_delivered - entry.delivered) * 1'000'000 / us : 0;
}

void Flight::endRound(Report& report) {
    report.roundOver = true;
    report.roundPackets = _first - _roundFirst;
    report.roundLost = lost() > _roundLost ? lost() - _roundLost : 0;
    report.roundPeak = std::exchange(_roundPeak, bytes());
    _roundEnd = _delivered;
    _roundFirst = _first;
    _roundLost = lost();
}

}  // namespace mirror
