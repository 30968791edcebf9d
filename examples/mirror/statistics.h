#ifndef MIRROR_STATISTICS_H
#define MIRROR_STATISTICS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "options.h"

namespace mirror {

/// Figures about a transfer on standard error, as a line for people or as JSON.
class Statistics {
  public:
    enum Kind { NOW, PER_SECOND };

    /// A figure as it is now; of PER_SECOND, what it has grown since the last report is told;
    /// 0 when it has become less, as the packets that are lost do when some were merely late.
    struct Figure {
        std::string name;
        std::string unit;
        Kind kind;
        uint64_t value;
    };

    explicit Statistics(StatsFormat format) : _format(format) {}

    bool isWanted() const { return _format != StatsFormat::NONE; }

    /// Tells of one second.
    void report(const std::vector<Figure>& figures);

    /// Prints text as it is.
    static void print(const std::string& text);

  private:
    const StatsFormat _format;
    std::map<std::string, uint64_t> _before;
};

}  // namespace mirror

#endif
