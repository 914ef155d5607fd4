#pragma once

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

} // namespace MP4
