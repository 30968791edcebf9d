#ifndef MIRROR_OPTIONS_H
#define MIRROR_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "address.h"
#include "secrets.h"

namespace mirror {

enum class StatsFormat { NONE, TEXT, JSON };

/// The parsed command line.
struct Options {
    std::string source;       // "" when only receiving
    std::string destination;  // "" when only sending
    Address address{"127.0.0.1"};
    unsigned int dropPercent = 0;
    bool isLive = false;
    bool resumes = false;
    uint64_t latencyUs = 0;
    Key key{};  // zeros: everybody may take part
    StatsFormat stats = StatsFormat::NONE;
    bool dump = false;

    bool sends() const { return !source.empty(); }
    bool receives() const { return !destination.empty(); }

    /// Parses the arguments after the program's name. Returns nullopt if they do not follow kUsage;
    /// `error` then says what is wrong, or is empty if that is obvious.
    static std::optional<Options> parse(std::vector<std::string> arguments, std::string& error);
};

extern const char kUsage[];

}  // namespace mirror

#endif
