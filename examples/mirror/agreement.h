#ifndef MIRROR_AGREEMENT_H
#define MIRROR_AGREEMENT_H

#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// What the source offers before the first frame. Travels as a JSON text.
struct Offer {
    std::string name;
    uint64_t size;
    unsigned int frameSize;
    std::string time;  // when the mirroring began

    std::string toJson() const;
    static std::optional<Offer> fromJson(const std::string& text);
};

/// What an end has seen of the file when all is done. Travels as a JSON text.
struct Result {
    uint64_t size;
    std::string checksum;

    std::string toJson() const;
    static std::optional<Result> fromJson(const std::string& text);
    bool operator==(const Result& other) const {
        return size == other.size && checksum == other.checksum;
    }
};

}  // namespace mirror

#endif
