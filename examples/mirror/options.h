#ifndef MIRROR_OPTIONS_H
#define MIRROR_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "address.h"

namespace mirror {

/// What the command line asks for.
struct Options {
    std::string source;       // "" when only receiving
    std::string destination;  // "" when only sending
    Address address{"127.0.0.1"};
    unsigned int dropPercent = 0;
    bool dump = false;

    bool sends() const { return !source.empty(); }
    bool receives() const { return !destination.empty(); }

    /// Reads the arguments behind the program's name; nothing when they are not as kUsage tells.
    static std::optional<Options> parse(std::vector<std::string> arguments);
};

extern const char kUsage[];

}  // namespace mirror

#endif
