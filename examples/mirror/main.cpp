/// mirror: sends a file or a live stream over the network. See options.cpp for its usage and
/// protocol.md for the protocol.

#include <nivur/event_center.h>
#include <nivur/log.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "log_to_stderr.h"
#include "options.h"
#include "progress.h"
#include "receiver.h"
#include "secrets.h"
#include "sender.h"
#include "signals.h"

namespace {

using mirror::Address;
using mirror::Options;

/// One end, with the events that it sends and the handler that prints them.
template <class End>
struct Side {
    Side(const char* verb, bool quiet, const Options& options)
        : progress(events, verb, quiet), end(options, events) {}

    NIVUR::EventCenter events;
    mirror::Progress progress;
    End end;
};

void sayWhere(const Address& address, bool isLive) {
    std::FILE* const output = isLive ? stderr : stdout;
    std::fprintf(output, "listening on %s\n", address.text().c_str());
    std::fflush(output);
}

/// Stops the receiver's other threads. If they cannot be stopped, ends the process at once, without
/// destructors.
void stop(mirror::Receiver& receiver, const std::string& error) {
    if (!receiver.stop()) {
        std::fprintf(stderr,
                     "mirror: %s; the destination does not answer, and may be left as it is\n",
                     error.c_str());
        std::_Exit(1);
    }
}

/// Starts the ends that the options request and waits for them. Returns an error message, or "".
std::string run(const Options& options, const sigset_t& signalSet) {
    std::optional<Side<mirror::Receiver>> receiver;
    std::optional<Side<mirror::Sender>> sender;
    std::vector<mirror::Endpoint*> ends;
    std::optional<Address> address = options.address;
    if (options.receives()) {
        receiver.emplace("received", options.sends(), options);
        ends.push_back(&receiver->end);
        address = receiver->end.start(*address);
    }
    if (options.sends() && address) {
        sender.emplace("sent", false, options);
        ends.push_back(&sender->end);
        sender->end.start(*address);
    } else if (address) {
        sayWhere(*address, options.isLive);
    }
    const mirror::Signals signals(signalSet, [&ends](int number) {
        if (number != SIGUSR1) {
            mirror::endSoon();
        }
        for (mirror::Endpoint* end : ends) {
            number == SIGUSR1 ? end->dump() : end->interrupt();
        }
    });
    const std::string error = sender ? sender->end.wait() : "";
    if (!error.empty() && receiver) {
        receiver->end.interrupt();
    }
    // A complete copy is a success, even if the sender has not learned of it.
    const std::string receiverError = receiver ? receiver->end.wait() : error;
    if (receiver) {
        stop(receiver->end, receiverError);
    }
    return receiverError.empty() || error.empty() ? receiverError : error;
}

}  // namespace

int main(int argc, char** argv) {
    if (!mirror::prepareSecrets()) {
        return 1;
    }
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "key") {
        std::puts(first == "key" ? mirror::toHex(mirror::makeKey()).c_str() : mirror::kUsage);
        return 0;
    }
    std::string error;
    const auto options = Options::parse({argv + 1, argv + argc}, error);
    if (!options) {
        std::fprintf(stderr, error.empty() ? "%s" : "mirror: %s\n",
                     error.empty() ? mirror::kUsage : error.c_str());
        return 2;
    }
    std::error_code ignored;
    error = "source and destination are the same file";
    if (!std::filesystem::equivalent(options->source, options->destination, ignored)) {
        NIVUR::Log::setCB(mirror::logToStderr);
        error = run(*options, mirror::blockSignals(options->dump));
    }
    if (!error.empty()) {
        std::fprintf(stderr, "mirror: %s\n", error.c_str());
    }
    return error.empty() ? 0 : 1;
}
