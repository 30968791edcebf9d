#include "options.h"

#include <algorithm>
#include <utility>

#include "limits.h"
#include "number.h"

namespace mirror {

const char kUsage[] =
    "usage: mirror send FILE --to HOST:PORT [--key FILE | --open] [--stats[=json]] [--dump]\n"
    "       mirror receive DESTINATION --listen HOST:PORT [--key FILE | --open] [--drop PERCENT]\n"
    "                                  [--resume] [--stats[=json]] [--dump]\n"
    "       mirror send - --live [--latency MS] --to HOST:PORT ...\n"
    "       mirror receive - --live --listen HOST:PORT ...\n"
    "       mirror SOURCE DESTINATION [--drop PERCENT] [--resume] [--dump]\n"
    "       mirror key\n"
    "\n"
    "Sends a file over the network, or a live stream from standard input to standard output. The\n"
    "form without a command runs both ends, over the loopback interface.\n"
    "\n"
    "  HOST:PORT       a numeric address, such as 127.0.0.1:7000 or [::1]:7000; a receiver that\n"
    "                  listens on port 0 takes a free one, and says which\n"
    "  --live          hands out what is read at one end at the other after a fixed latency, or\n"
    "                  not at all; all messages go to standard error\n"
    "  --latency MS    that latency, 1 to 60000 milliseconds (default 120); the receiver holds up\n"
    "                  to 16384 chunks (21 seconds at 8 Mbit/s in chunks of 1316 bytes)\n"
    "  --key FILE      only peers that hold the same key may take part; FILE holds 32 bytes as\n"
    "                  hexadecimal text, as `mirror key` prints them\n"
    "  --open          everybody may take part; without this or a key only the loopback interface\n"
    "                  can be used\n"
    "  --resume        goes on with the DESTINATION.part that an earlier transfer has left, and\n"
    "                  leaves it there when this one fails too\n"
    "  --stats[=json]  says once a second on standard error how it goes\n"
    "  --drop PERCENT  the receiver drops 0 to 99 percent of the datagrams unseen, for trials\n"
    "  --dump          SIGUSR1 prints what the run loops are doing\n"
    "\n"
    "All that travels is encrypted and authenticated. With a key, nobody without it can read,\n"
    "change, replay or inject anything. With --open, who merely listens can read nothing, but\n"
    "somebody in the middle can pose as either end. In either case others see who talks to whom,\n"
    "when and how much, and can cut the connection.\n"
    "\n"
    "The exit code is 0 when everything has arrived, or the stream has ended, 1 when not, 2 for\n"
    "wrong usage.\n";

namespace {

constexpr uint64_t kDefaultLatencyMs = 120;

using Arguments = std::vector<std::string>;

/// Removes a flag from the arguments; false if it is not there.
bool takeFlag(Arguments& arguments, const std::string& flag) {
    const auto found = std::find(arguments.begin(), arguments.end(), flag);
    if (found == arguments.end()) {
        return false;
    }
    arguments.erase(found);
    return true;
}

/// Removes an option and its value from the arguments.
std::optional<std::string> takeValue(Arguments& arguments, const std::string& option) {
    const auto found = std::find(arguments.begin(), arguments.end(), option);
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    std::string value = found[1];
    arguments.erase(found, found + 2);
    return value;
}

/// Removes an option whose value is a number within a range; false if it is not. Keeps `number` if
/// the option is absent.
bool takeNumber(Arguments& arguments, const std::string& option, uint64_t least, uint64_t most,
                uint64_t& number) {
    const auto text = takeValue(arguments, option);
    const auto value = text ? toNumber(*text) : number;
    number = value.value_or(most + 1);
    return number >= least && number <= most;
}

bool takeAddress(Arguments& arguments, const std::string& option, Options& options,
                 std::string& error) {
    const auto text = takeValue(arguments, option);
    const auto address = text ? Address::parse(*text) : std::nullopt;
    if (text && !address) {
        error = *text + " is not a numeric address with a port";
    }
    options.address = address.value_or(Address{});
    return address && (options.receives() || address->port != 0);
}

/// Reads the key. Without one, requires `--open` or a loopback address.
bool takeKey(Arguments& arguments, Options& options, std::string& error) {
    const auto path = takeValue(arguments, "--key");
    const bool open = takeFlag(arguments, "--open");
    if (path) {
        const auto key = readKeyFile(*path);
        error = key ? "" : *path + " holds no key: `mirror key` makes one";
        options.key = key.value_or(Key{});
        return key && !open;
    }
    if (!open && !options.address.isLoopback()) {
        error =
            "beyond the loopback interface give --key FILE, or --open to let everybody take part";
        return false;
    }
    return true;
}

bool takeLive(Arguments& arguments, Options& options) {
    options.isLive = takeFlag(arguments, "--live");
    uint64_t latencyMs = kDefaultLatencyMs;
    const bool mayChoose = options.isLive && options.sends();
    if (mayChoose && !takeNumber(arguments, "--latency", 1, kMaxLatencyMs, latencyMs)) {
        return false;
    }
    options.latencyUs = options.isLive ? latencyMs * 1000 : 0;
    return true;
}

/// Takes the remaining arguments as file names.
bool takeNames(const Arguments& arguments, Options& options) {
    const auto isNoName = [](const std::string& text) {
        return text.empty() || text.compare(0, 2, "--") == 0;
    };
    const size_t count = (options.sends() ? 1U : 0U) + (options.receives() ? 1U : 0U);
    if (arguments.size() != count || std::any_of(arguments.begin(), arguments.end(), isNoName)) {
        return false;
    }
    options.source = options.sends() ? arguments.front() : "";
    options.destination = options.receives() ? arguments.back() : "";
    return !options.isLive || arguments.front() == "-";
}

void takeStats(Arguments& arguments, Options& options) {
    if (takeFlag(arguments, "--stats=json")) {
        options.stats = StatsFormat::JSON;
    } else if (takeFlag(arguments, "--stats")) {
        options.stats = StatsFormat::TEXT;
    }
}

}  // namespace

std::optional<Options> Options::parse(Arguments arguments, std::string& error) {
    Options options;
    options.dump = takeFlag(arguments, "--dump");
    takeStats(arguments, options);
    const std::string command = arguments.empty() ? "" : arguments[0];
    const bool isSingle = command == "send" || command == "receive";
    options.source = command == "receive" ? "" : "?";  // until takeNames()
    options.destination = command == "send" ? "" : "?";
    arguments.erase(arguments.begin(), arguments.begin() + (isSingle ? 1 : 0));
    if (isSingle &&
        (!takeAddress(arguments, options.sends() ? "--to" : "--listen", options, error) ||
         !takeKey(arguments, options, error) || !takeLive(arguments, options))) {
        return std::nullopt;
    }
    if (!isSingle) {
        options.key = makeKey();  // both ends are in this process
    }
    uint64_t drop = 0;
    if (options.receives() && !takeNumber(arguments, "--drop", 0, 99, drop)) {
        return std::nullopt;
    }
    options.dropPercent = static_cast<unsigned int>(drop);
    options.resumes = options.receives() && !options.isLive && takeFlag(arguments, "--resume");
    return takeNames(arguments, options) ? std::optional(options) : std::nullopt;
}

}  // namespace mirror
