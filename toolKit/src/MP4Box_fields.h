#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "Brisa/BrisaFileIO.h"

// Fields that boxes of several kinds share; for the box sources only.

namespace MP4 {

/// The first four bytes of a full box (ISO/IEC 14496-12, 4.2).
inline void readVersionAndFlags(BinFile& file, uint8_t& version, std::array<uint8_t, 3>& flags) {
    version = file.read8();
    file.readBytes(flags.data(), flags.size());
}

/// The next `claimed` bytes of a box, as far as they may be kept; zeros where the limit cuts them off or
/// the file ends.
template <class Contents>
void readContents(BinFile& file, uint64_t claimed, Contents& contents) {
    contents.resize(file.allowance.takeContents(claimed, file.available()));
    if (file.fits(claimed)) {
        file.readAll(contents.data(), std::min<uint64_t>(contents.size(), file.available()));
    }
}

} // namespace MP4
