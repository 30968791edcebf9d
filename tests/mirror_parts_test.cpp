#include <gtest/gtest.h>
#include <nivur/buffer_pool.h>
#include <nivur/client_socket.h>
#include <nivur/event_center.h>
#include <nivur/run_loop.h>
#include <nivur/serialization.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <random>
#include <set>

#include "chunk_window.h"
#include "clock_fit.h"
#include "collector.h"
#include "congestion.h"
#include "datagram_path.h"
#include "flight.h"
#include "latencies.h"
#include "options.h"
#include "outbox.h"
#include "packets.h"
#include "playout.h"
#include "receiver.h"
#include "replay_window.h"
#include "secrets.h"
#include "texts.h"
#include "transmitter.h"
#include "wire.h"

namespace mirror {
namespace {

TEST(MirrorSecrets, OnlyTheSameKeyOpensAndOnlyWhatWasSealed) {
    const Key key{1};
    const KeyAgreement sender;
    const KeyAgreement receiver;
    const auto there = sender.finish(key, receiver.publicText(), true);
    const auto here = receiver.finish(key, sender.publicText(), false);
    const auto strange = receiver.finish(Key{2}, sender.publicText(), false);
    ASSERT_TRUE(there);
    ASSERT_TRUE(here);
    ASSERT_TRUE(strange);
    EXPECT_FALSE(sender.finish(key, std::string(64, '0'), true));
    EXPECT_FALSE(sender.finish(key, "abc", true));

    const std::string plain = "hello";
    std::string sealed(plain.size() + kTagSize, '\0');
    Cipher(there->sendDatagrams).seal(7, "h", 1, plain.data(), plain.size(), sealed.data());
    const auto opens = [&](const Key& with, uint64_t number, const char* header, std::string text) {
        std::string opened(text.size(), '\0');
        return Cipher(with).open(number, header, 1, text.data(), text.size(), opened.data()) &&
               opened.compare(0, plain.size(), plain) == 0;
    };
    EXPECT_TRUE(opens(here->receiveDatagrams, 7, "h", sealed));
    EXPECT_FALSE(opens(here->receiveDatagrams, 8, "h", sealed));
    EXPECT_FALSE(opens(here->receiveDatagrams, 7, "i", sealed));
    EXPECT_FALSE(opens(here->sendDatagrams, 7, "h", sealed)) << "it could be sent back";
    EXPECT_FALSE(opens(here->receiveTexts, 7, "h", sealed));
    EXPECT_FALSE(opens(strange->receiveDatagrams, 7, "h", sealed));
    EXPECT_FALSE(opens(here->receiveDatagrams, 7, "h", sealed.substr(0, 10)));
    for (char& byte : sealed) {
        byte ^= 1;
        EXPECT_FALSE(opens(here->receiveDatagrams, 7, "h", sealed));
        byte ^= 1;
    }
}

TEST(MirrorReplayWindow, TakesEachNumberOnceAndNoneThatIsOld) {
    std::mt19937 random(1);
    ReplayWindow window;
    std::set<uint64_t> taken;
    uint64_t newest = 0;
    for (int i = 0; i < 100000; ++i) {
        const uint64_t jump = random() % 1000 == 0 ? 10000 : 3;
        const uint64_t ahead = random() % jump;
        const uint64_t number =
            newest + ahead - std::min(newest + ahead, uint64_t{random() % 6000});
        const bool isOld = number + 4096 < window.next();
        ASSERT_EQ(window.isNew(number), !isOld && taken.count(number) == 0) << number;
        if (window.isNew(number)) {
            window.add(number);
            taken.insert(number);
            newest = std::max(newest, number);
            ASSERT_EQ(window.next(), newest + 1);
        }
    }
}

TEST(MirrorPackets, WhatIsWrittenIsReadAndNoBytesDoHarm) {
    Feedback written;
    written.newest = 5;
    written.base = 100;
    written.arrivedUs = 0x123456789abc;
    written.reorderingUs = 2500;
    written.gaps = {{100, 101}, {103, 400}, {1000, 1001}};
    char bytes[1100];
    const auto read = Feedback::read(bytes, written.write(bytes, sizeof(bytes)));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->arrivedUs, written.arrivedUs);
    EXPECT_EQ(read->reorderingUs, 2500U);
    ASSERT_EQ(read->gaps.size(), 3U);
    EXPECT_EQ(read->gaps[2].begin, 900U);
    EXPECT_EQ(read->gaps[1].end, 300U);

    std::mt19937 random(2);
    for (int i = 0; i < 100000; ++i) {
        const size_t size = random() % 80;
        for (size_t j = 0; j < size; ++j) {
            bytes[j] = static_cast<char>(random());
        }
        const auto feedback = Feedback::read(bytes, size);
        uint64_t end = 0;
        for (const Feedback::Gap& gap : feedback ? feedback->gaps : std::vector<Feedback::Gap>()) {
            ASSERT_LE(end, gap.begin);
            ASSERT_LE(gap.begin, gap.end);
            ASSERT_LE(end = gap.end, UINT32_MAX);
        }
        if (size != 25) {
            ASSERT_FALSE(Timing::read(bytes, size));
        }
    }
    for (const uint64_t number : {uint64_t{0}, uint64_t{0xffffff}, uint64_t{1} << 40}) {
        for (const uint64_t expected :
             {number, number + 0x7fffff, number - std::min<uint64_t>(number, 0x7fffff)}) {
            EXPECT_EQ(nearest(expected, number & 0xffffff, 24), number) << expected;
        }
    }
}

TEST(MirrorOutbox, GivesWhatItSaysThatItHas) {
    std::mt19937 random(7);
    Outbox outbox;
    std::set<uint64_t> again;
    for (int i = 0; i < 20000; ++i) {
        const uint64_t index = outbox.base() + random() % 8;
        if (random() % 8 == 0) {
            outbox.add(NIVUR::BufferPool::getBuffer(1, nullptr), 0);
        } else if (random() % 16 == 0) {
            outbox.confirm(std::min(index, outbox.next()));
            again.erase(again.begin(), again.lower_bound(outbox.base()));
        } else if (index < outbox.next() && random() % 3 == 0) {
            outbox.sendAgain(index);
            again.insert(index);
        } else {
            const uint64_t next = outbox.next();
            const bool isNew = again.empty() && next < outbox.end();
            ASSERT_EQ(outbox.hasUnsent(), isNew || !again.empty());
            const auto taken = outbox.take();
            ASSERT_EQ(taken.has_value(), isNew || !again.empty());
            if (isNew) {
                ASSERT_EQ(*taken, next);
            } else if (taken) {
                ASSERT_EQ(again.erase(*taken), 1U);
            }
        }
    }
}

TEST(MirrorChunkWindow, KnowsWhatIsMissing) {
    std::mt19937 random(3);
    ChunkWindow window(64);
    std::set<uint64_t> here;
    uint64_t end = 0;
    for (int i = 0; i < 20000; ++i) {
        const uint64_t index = window.base() + random() % 64;
        if (random() % 3 == 0) {
            here.erase(window.base());
            window.pop();
            end = std::max(end, window.base());
        } else if (!window.has(index)) {
            window.add(index, NIVUR::BufferPool::getBuffer(1, nullptr), 1);
            here.insert(index);
            end = std::max(end, index + 1);
        }
        std::set<uint64_t> expected;
        for (uint64_t j = window.base(); j < end; ++j) {
            if (here.count(j) == 0) {
                expected.insert(j);
            }
        }
        std::set<uint64_t> missing;
        for (const Feedback::Gap& gap : window.gaps(64, 1)) {
            for (uint64_t j = gap.begin; j < gap.end; ++j) {
                missing.insert(j);
            }
        }
        ASSERT_EQ(missing, expected);
        ASSERT_EQ(window.firstMissing(), expected.empty() ? end : *expected.begin());
    }
}

TEST(MirrorClockFit, FindsOffsetAndDriftBehindJitter) {
    std::mt19937 random(4);
    for (const double drift : {80e-6, -30e-6, 0.0}) {
        ClockFit fit;
        const auto there = [&](uint64_t us) {
            return static_cast<uint64_t>(5e9 + static_cast<double>(us) * (1 + drift));
        };
        for (uint64_t now = 1'000'000; now < 40'000'000; now += 20'000) {
            const uint64_t out = 10'000 + random() % 10'000;
            const uint64_t back = 10'000 + random() % 10'000;
            fit.add(now, there(now + out), there(now + out + 500), now + out + 500 + back);
            const auto error = fit.offsetUs(now) - static_cast<int64_t>(there(now) - now);
            EXPECT_LT(std::abs(error), fit.exchanges() < 50 ? 5000 : 600) << now;
        }
    }
}

TEST(MirrorLatencies, APercentileIsNeverTooLowAndHardlyTooHigh) {
    std::mt19937 random(8);
    for (const uint64_t most : {1U, 1000U, 5000U, 500'000U, 60'000'000U}) {
        Latencies latencies;
        EXPECT_EQ(latencies.percentile(99), 0U);
        std::vector<uint64_t> all;
        for (int i = 0; i < 1000; ++i) {
            all.push_back(random() % (most + 1));
            latencies.add(all.back());
        }
        std::sort(all.begin(), all.end());
        for (const unsigned int percent : {1U, 50U, 99U, 100U}) {
            SCOPED_TRACE(std::to_string(most) + ", " + std::to_string(percent));
            const uint64_t exact = all[percent * 10 - 1];
            EXPECT_GE(latencies.percentile(percent), exact);
            EXPECT_LE(latencies.percentile(percent), exact + exact / 1000);
        }
    }
}

/// Simulates a sender that always has data, over a path with a queue.
struct Way {
    double rate;  // bytes per second
    uint64_t roundTripUs;
    size_t queue;  // packets
    double loss;
};

struct Outcome {
    double arrivedShare;  // of the capacity of the path
    double lostShare;     // of the sent packets, in the full queue
};

struct Arrival {
    uint64_t number;
    uint64_t atUs;
};

Outcome simulate(const Way& way, uint64_t seconds) {
    constexpr uint64_t kBytes = 1228;
    std::mt19937 random(5);
    Flight flight;
    Congestion congestion(0);
    RoundTrip roundTrip;
    std::deque<Arrival> arrivals;
    Feedback feedback;
    double freeUs = 0;  // when the link is idle again
    double dueUs = 0;
    uint64_t number = 0;
    uint64_t overflowed = 0;
    const uint64_t endUs = seconds * 1'000'000;
    for (uint64_t now = 1000; now < endUs; now += 100) {
        while (!arrivals.empty() && arrivals.front().atUs + way.roundTripUs / 2 <= now) {
            feedback.newest = arrivals.front().number;
            feedback.arrivedUs = arrivals.front().atUs;
            ++feedback.packets;
            feedback.bytes += static_cast<uint32_t>(kBytes - kWireOverhead);
            arrivals.pop_front();
            if (const auto report = flight.arrived(feedback, now, roundTrip.minUs())) {
                roundTrip.add(report->roundTripUs, now);
                congestion.update(*report, roundTrip, flight.bytes(), now);
            }
        }
        dueUs = std::max(dueUs, static_cast<double>(now) - 1000);
        while (flight.bytes() < congestion.window() && dueUs <= static_cast<double>(now)) {
            flight.sent(number, kBytes, now, roundTrip.minUs());
            dueUs += kBytes * 1e6 / static_cast<double>(congestion.rate());
            const double packetUs = kBytes * 1e6 / way.rate;
            freeUs = std::max(freeUs, static_cast<double>(now));
            if (freeUs - static_cast<double>(now) > packetUs * static_cast<double>(way.queue)) {
                ++overflowed;
            } else {
                freeUs += packetUs;
                if (static_cast<double>(random() % 1000) >= way.loss * 1000) {
                    arrivals.push_back(
                        {number, static_cast<uint64_t>(freeUs) + way.roundTripUs / 2});
                }
            }
            ++number;
        }
    }
    const double carried = way.rate * static_cast<double>(seconds) * (1 - way.loss);
    return {feedback.packets * static_cast<double>(kBytes) / carried,
            static_cast<double>(overflowed) / static_cast<double>(number)};
}

TEST(MirrorCongestion, FillsTheWayAndNoMore) {
    const struct {
        Way way;
        double share;
        double lost;
    } kRows[] = {
        {{12.5e6, 20'000, 200, 0}, 0.9, 0.02},  {{12.5e6, 20'000, 200, 0.05}, 0.85, 0.03},
        {{1.25e6, 20'000, 50, 0}, 0.9, 0.02},   {{125e3, 20'000, 30, 0}, 0.9, 0.02},
        {{2.5e6, 200'000, 400, 0}, 0.85, 0.06}, {{125e6, 1'000, 200, 0}, 0.85, 0.02},
        {{1.25e6, 20'000, 50, 0.1}, 0.8, 0.03},
    };
    for (const auto& row : kRows) {
        const Outcome outcome = simulate(row.way, 12);
        EXPECT_GT(outcome.arrivedShare, row.share) << row.way.rate << " " << row.way.loss;
        EXPECT_LT(outcome.lostShare, row.lost) << row.way.rate << " " << row.way.loss;
    }
}

TEST(MirrorCongestion, MakesRoomOnlyForALossInAStandingQueue) {
    for (const uint64_t roundTripUs : {20'000U, 40'000U}) {
        Congestion congestion(0);
        RoundTrip roundTrip;
        uint64_t now = 0;
        const auto endRound = [&](uint64_t us, uint64_t lost) {
            roundTrip.add(us, now += us);
            Flight::Report report{us, now - us, 12'500'000, false, true, 200, lost, 0};
            report.roundPeak = congestion.window();
            congestion.update(report, roundTrip, 0, now);
            return static_cast<double>(congestion.window());
        };
        double before = 0;
        for (int round = 0; round < 30; ++round) {
            before = endRound(round < 5 ? 20'000 : 40'000, 0);
        }
        const double after = endRound(roundTripUs, 1);
        EXPECT_NEAR(after / before, roundTripUs > 20'000 ? 0.7 : 1, 0.01);
    }
}

/// A session with a peer that holds the key and sends arbitrary data, on a loop that does not run.
class MirrorHostile : public testing::Test, public Transmitter::Owner {
  protected:
    MirrorHostile() {
        const KeyAgreement one;
        const KeyAgreement other;
        path.socket().create(NIVUR::SocketAddress("127.0.0.1", 0));
        path.socket().setBlocking(false);
        path.begin(*one.finish(Key{}, other.publicText(), true), path.socket().localAddress());
    }

    void onOpen() override {}
    void onRoom() override {}
    void onConfirmed() override {}
    void onDeaf() override {}

    Packet packet(PacketKind kind, const char* bytes, size_t size) {
        Packet result{kind, number++, path.makeBody()};
        std::memcpy(result.body->data(), bytes, size);
        result.body->setUsedSize(static_cast<unsigned int>(size));
        return result;
    }

    uint32_t any() { return static_cast<uint32_t>(random()); }

    NIVUR::RunLoop loop{"still"};
    DatagramPath path{loop, 0, [] {}};
    uint64_t number = 0;
    std::mt19937 random{6};
};

TEST_F(MirrorHostile, AReceiverCannotMakeTheSenderSendMoreThanItHas) {
    constexpr uint64_t kChunks = 3000;
    Transmitter transmitter(loop, path, *this, 0, 0);
    transmitter.open();
    for (uint64_t i = 0; i < kChunks; ++i) {
        auto body = path.makeBody();
        body->setUsedSize(kDataHeaderSize + 100);
        std::memset(body->data(), 'x', body->usedSize());
        transmitter.add(std::move(body), 1);
    }
    uint64_t most = 0;
    for (int i = 0; i < 30000; ++i) {
        Feedback feedback;
        feedback.newest = path.next() - 1 - random() % 4;
        feedback.base = random() % 50 == 0 ? random() : most;
        feedback.arrivedUs = random();
        feedback.heldUs = random() % 3 == 0 ? any() : 0;
        feedback.packets = random() % 3 == 0 ? any() : static_cast<uint32_t>(path.next());
        feedback.bytes = any();
        feedback.gaps = {{feedback.base, feedback.base + random() % 5},
                         {feedback.base + 5, feedback.base + random() + 5}};
        char bytes[200];
        const size_t size = feedback.write(bytes, sizeof(bytes));
        const uint64_t before = path.next();
        transmitter.take(packet(PacketKind::FEEDBACK, bytes, size));
        ASSERT_LE(path.next() - before, kChunks + 2);
        ASSERT_LE(transmitter.confirmed(), transmitter.added());
        most = std::max(most, transmitter.confirmed());
    }
    ASSERT_LE(transmitter.counts().again, transmitter.counts().packets);
}

TEST_F(MirrorHostile, ASenderGetsNoMoreDatagramsThanItSendsAndFillsNoMemory) {
    for (const bool isLive : {false, true}) {
        Collector collector(loop, path, 512, isLive);
        Playout playout(loop, collector.chunks(), 1000, [](const ChunkWindow::Body&) {});
        const uint64_t before = path.next();
        constexpr int kPackets = 30000;
        for (int i = 0; i < kPackets; ++i) {
            char bytes[40];
            for (char& byte : bytes) {
                byte = static_cast<char>(random() % 4 == 0 ? random() : 0);
            }
            const auto kind = static_cast<PacketKind>(random() % 6);
            collector.take(packet(kind, bytes, random() % 3 == 0 ? 25 : random() % sizeof(bytes)));
            collector.report();
            if (isLive) {
                playout.learn(collector.timing());
                playout.schedule();
            }
            ASSERT_LE(collector.chunks().end() - collector.chunks().base(), 512U);
        }
        EXPECT_LE(path.next() - before, static_cast<uint64_t>(kPackets));
        EXPECT_GT(path.next() - before, 0U);
    }
}

/// A sender that agrees on keys correctly and then sends arbitrary messages.
class Liar {
  public:
    explicit Liar(NIVUR::ClientSocket&& socket) : _socket(std::move(socket)) {}

    /// Agrees on the keys like a sender.
    void agree() {
        const KeyAgreement agreement;
        NIVUR::Dictionary hello = makeText("hello");
        hello.setString("public", agreement.publicText());
        const std::string mine = toLine(hello);
        _socket.send(mine.data(), mine.size());
        const auto others = NIVUR::Serialization::deserialize(readLine());
        _key = agreement.finish(Key{}, others.getString("public"), true)->sendTexts;
    }

    std::string seal(const std::string& text) {
        std::string sealed(text.size() + kTagSize, '\0');
        Cipher(_key).seal(_sealed++, nullptr, 0, text.data(), text.size(), sealed.data());
        return toBase64(sealed) + "\n";
    }

    void write(const std::string& lines) { _socket.send(lines.data(), lines.size()); }

    std::string readLine() {
        std::string line;
        char byte = 0;
        while (_socket.receive(&byte, 1) && byte != '\n') {
            line += byte;
        }
        return line;
    }

  private:
    NIVUR::ClientSocket _socket;
    Key _key{};
    uint64_t _sealed = 0;
};

TEST(MirrorLiar, AReceiverGivesUpASenderThatSaysWhatDoesNotBelong) {
    const struct {
        const char* text;  // "": repeats the encrypted offer
        const char* error;
    } kRows[] = {
        {"", "does not hold the same key"},
        {"{}", "cannot be understood"},
        {"[[[[[[", "cannot be understood"},
        {R"({"type": "offer"})", "does not belong here: offer"},
        {R"({"type": "\u202e\u0007"})", "does not belong here: ??"},
        {R"({"type": "finished", "size": "9", "checksum": "x"})", "does not belong here: finished"},
        {R"({"type": "finished", "size": "2", "checksum": "x"})", "closed the connection"},
        {R"({"type": "refuse", "reason": "\u001b[2J"})", "refused: ?[2J"},
    };
    for (const auto& row : kRows) {
        NIVUR::EventCenter events;
        Options options;
        options.destination = testing::TempDir() + "mirror_liar";
        Receiver receiver(options, events);
        const auto at = receiver.start(Address{"127.0.0.1"});
        ASSERT_TRUE(at);
        NIVUR::ClientSocket socket;
        ASSERT_TRUE(socket.create(NIVUR::SocketAddress("127.0.0.1", 0)));
        ASSERT_TRUE(socket.connect(NIVUR::SocketAddress(at->ip, at->port)));
        {
            Liar liar(std::move(socket));
            liar.agree();
            const std::string offer = liar.seal(
                R"({"type": "offer", "mode": "file", "name": "x", "size": "2", "chunkSize": "1"})");
            liar.write(offer);
            liar.readLine();
            liar.write(*row.text == '\0' ? offer : liar.seal(row.text));
        }
        const std::string error = receiver.wait();
        EXPECT_NE(error.find(row.error), std::string::npos) << row.text << ": " << error;
        ASSERT_TRUE(receiver.stop());
    }
}

TEST(MirrorTexts, WhatAPeerSaysCannotSteerATerminal) {
    const struct {
        const char* text;
        const char* shown;
    } kRows[] = {
        {"copy.ts", "copy.ts"},
        {"\x1b[2J", "?[2J"},
        {"gr\xc3\xbc\xc3\x9f", "gr\xc3\xbc\xc3\x9f"},
        {"\xc2\x9b"
         "2J",
         "?2J"},
        {"a\xe2\x80\xae"
         "b",
         "a?b"},
        {"\xff\xc3", "??"},
        {"\xed\xa0\x80", "?"},
        {"\xc0\xaf", "??"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(printable(row.text), row.shown);
    }
    EXPECT_LE(printable(std::string(10000, 'x')).size(), 300U);
}

}  // namespace
}  // namespace mirror
