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

/// What the command line asks for.
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

    /// Reads the arguments after the program's name. When they are not as kUsage tells, nothing,
    /// and `error` says what is wrong if that is not obvious.
    static std::optional<Options> parse(std::vector<std::string> arguments, std::string& error);
};

extern const char kUsage[];

}  // namespace mirror

#endif
