#include "statistics.h"

#include <nivur/dictionary.h>
#include <nivur/serialization.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace mirror {

namespace {

std::string textOf(uint64_t value, const std::string& unit) {
    return unit == "us" ? Statistics::milliseconds(value)
                        : std::to_string(value) + (unit.empty() ? "" : " ") + unit;
}

}  // namespace

void Statistics::report(const std::vector<Figure>& figures) {
    NIVUR::Dictionary record;
    std::string line;
    for (const Figure& figure : figures) {
        const uint64_t before =
            figure.kind == PER_SECOND ? std::exchange(_before[figure.name], figure.value) : 0;
        const uint64_t value = figure.value - std::min(figure.value, before);
        const std::string unit = figure.unit.empty() ? "" : " " + figure.unit;
        record.setDecimal(figure.name + unit, static_cast<long double>(value));
        line += (line.empty() ? "" : ", ") + figure.name + " " + textOf(value, figure.unit);
    }
    print((_format == StatsFormat::JSON ? NIVUR::Serialization::serialize(record) : line) + "\n");
}

std::string Statistics::milliseconds(uint64_t us) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f ms", static_cast<double>(us) / 1000);
    return text;
}

void Statistics::print(const std::string& text) {
    std::fputs(text.c_str(), stderr);
}

}  // namespace mirror
