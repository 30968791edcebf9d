/// mirror: copies a file over the network and says whether it arrived whole. See options.cpp for
/// its usage and texts.h for what the two ends tell each other.

#include <nivur/event_center.h>
#include <nivur/log.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "log_to_stderr.h"
#include "options.h"
#include "progress.h"
#include "receiver.h"
#include "sender.h"
#include "signals.h"

namespace {

using mirror::Address;
using mirror::Options;

/// One end, with the events that it sends and who shows them.
template <class End>
struct Side {
    template <class... Arguments>
    Side(const char* deed, bool quiet, Arguments... arguments)
        : progress(events, deed, quiet), end(arguments..., events) {}

    NIVUR::EventCenter events;
    mirror::Progress progress;
    End end;
};

/// Starts the ends that are asked for and waits for them; an error message, or "".
std::string run(const Options& options, const sigset_t& signalSet) {
    std::optional<Side<mirror::Receiver>> receiver;
    std::optional<Side<mirror::Sender>> sender;
    std::vector<mirror::Endpoint*> ends;
    std::optional<Address> address = options.address;
    if (options.receives()) {
        receiver.emplace("received", options.sends(), options.destination, options.dropPercent);
        ends.push_back(&receiver->end);
        address = receiver->end.start(*address);
    }
    if (options.sends() && address) {
        sender.emplace("sent", false, options.source);
        ends.push_back(&sender->end);
        sender->end.start(*address);
    } else if (address) {
        std::printf("listening on %s\n", address->text().c_str());
        std::fflush(stdout);
    }
    const mirror::Signals signals(signalSet, [&ends](int number) {
        for (mirror::Endpoint* end : ends) {
            number == SIGUSR1 ? end->dump() : end->interrupt();
        }
    });
    const std::string error = sender ? sender->end.wait() : "";
    if (!error.empty() && receiver) {
        receiver->end.interrupt();
    }
    // Where the copy is whole, that counts, even if the sender has not heard of it.
    const std::string receiverError = receiver ? receiver->end.wait() : error;
    return receiverError.empty() || error.empty() ? receiverError : error;
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = Options::parse({argv + 1, argv + argc});
    if (!options) {
        std::fputs(mirror::kUsage, stderr);
        return 2;
    }
    std::error_code ignored;
    std::string error = "source and destination are the same file";
    if (!std::filesystem::equivalent(options->source, options->destination, ignored)) {
        NIVUR::Log::setCB(mirror::logToStderr);
        error = run(*options, mirror::blockSignals(options->dump));
    }
    if (!error.empty()) {
        std::fprintf(stderr, "mirror: %s\n", error.c_str());
    }
    return error.empty() ? 0 : 1;
}
