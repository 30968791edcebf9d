#ifndef MIRROR_FILE_LAYOUT_H
#define MIRROR_FILE_LAYOUT_H

#include <algorithm>
#include <cstdint>

#include "packets.h"

namespace mirror {

/// How a file is divided into chunks: all but the last have the same size.
struct FileLayout {
    uint64_t fileSize = 0;
    unsigned int chunkSize = kFileChunk;

    uint64_t chunks() const { return fileSize / chunkSize + (fileSize % chunkSize != 0 ? 1 : 0); }

    unsigned int sizeOf(uint64_t index) const {
        const uint64_t rest = fileSize - std::min(fileSize, index * chunkSize);
        return static_cast<unsigned int>(std::min<uint64_t>(chunkSize, rest));
    }

    /// Whether the chunks fit into datagrams, and their indexes into 32 bits.
    bool isValid() const {
        return chunkSize > 0 && chunkSize <= kMaxChunk && chunks() < UINT32_MAX;
    }
};

}  // namespace mirror

#endif
