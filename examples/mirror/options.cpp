#include "options.h"

#include <algorithm>

#include "number.h"

namespace mirror {

const char kUsage[] =
    "usage: mirror send FILE --to HOST:PORT [--dump]\n"
    "       mirror receive DESTINATION --listen HOST:PORT [--drop PERCENT] [--dump]\n"
    "       mirror SOURCE DESTINATION [--drop PERCENT] [--dump]\n"
    "\n"
    "Copies a file over the network. The last form runs both ends, over the loopback interface.\n"
    "\n"
    "  HOST:PORT       a numeric address, such as 127.0.0.1:7000 or [::1]:7000; a receiver that\n"
    "                  listens on port 0 takes a free one, and says which\n"
    "  --drop PERCENT  the receiver drops 0 to 99 percent of the datagrams unseen, for trials\n"
    "  --dump          SIGUSR1 prints what the run loops are doing\n"
    "\n"
    "The exit code is 0 when the file has arrived, 1 when not, 2 for wrong usage.\n";

namespace {

using Arguments = std::vector<std::string>;

/// Takes a flag out of the arguments; false when it is not there.
bool takeFlag(Arguments& arguments, const std::string& flag) {
    const auto found = std::find(arguments.begin(), arguments.end(), flag);
    if (found == arguments.end()) {
        return false;
    }
    arguments.erase(found);
    return true;
}

/// Takes an option and its value out of the arguments.
std::optional<std::string> takeValue(Arguments& arguments, const std::string& option) {
    const auto found = std::find(arguments.begin(), arguments.end(), option);
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    std::string value = found[1];
    arguments.erase(found, found + 2);
    return value;
}

}  // namespace

std::optional<Options> Options::parse(Arguments arguments) {
    Options options;
    options.dump = takeFlag(arguments, "--dump");
    const bool sendOnly = !arguments.empty() && arguments[0] == "send";
    const bool receiveOnly = !arguments.empty() && arguments[0] == "receive";
    if (sendOnly || receiveOnly) {
        arguments.erase(arguments.begin());
        const auto text = takeValue(arguments, sendOnly ? "--to" : "--listen");
        const auto address = text ? Address::parse(*text) : std::nullopt;
        if (!address || (sendOnly && address->port == 0)) {
            return std::nullopt;
        }
        options.address = *address;
    }
    const auto drop = toNumber(sendOnly ? "0" : takeValue(arguments, "--drop").value_or("0"));
    const bool bothEnds = !sendOnly && !receiveOnly;
    const auto isNoName = [](const std::string& text) {
        return text.empty() || text.compare(0, 2, "--") == 0;
    };
    if (!drop || *drop > 99 || arguments.size() != (bothEnds ? 2U : 1U) ||
        std::any_of(arguments.begin(), arguments.end(), isNoName)) {
        return std::nullopt;
    }
    options.dropPercent = static_cast<unsigned int>(*drop);
    options.source = receiveOnly ? "" : arguments.front();
    options.destination = sendOnly ? "" : arguments.back();
    return options;
}

}  // namespace mirror
