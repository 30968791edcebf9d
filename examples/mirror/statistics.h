#ifndef MIRROR_STATISTICS_H
#define MIRROR_STATISTICS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "options.h"

namespace mirror {

/// Prints figures about a transfer to standard error, as a line for people or as JSON.
class Statistics {
  public:
    enum Kind { NOW, PER_SECOND };

    /// `value` is the current value. For PER_SECOND its increase since the last report is printed,
    /// or 0 if it has decreased, as the number of lost packets does when some were only late.
    struct Figure {
        std::string name;
        std::string unit;
        Kind kind;
        uint64_t value;
    };

    explicit Statistics(StatsFormat format) : _format(format) {}

    bool isWanted() const { return _format != StatsFormat::NONE; }

    /// Prints the figures of one second.
    void report(const std::vector<Figure>& figures);

    /// Prints `text` unchanged.
    static void print(const std::string& text);

    /// A time for people, such as "20.1 ms".
    static std::string milliseconds(uint64_t us);

  private:
    const StatsFormat _format;
    std::map<std::string, uint64_t> _before;
};

}  // namespace mirror

#endif
