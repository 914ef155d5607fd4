// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "Brisa/BrisaFileIO.h"
#include "ByteOrder.h"
#include "MP4Box.h"

// Fields that boxes of several kinds share; for the box sources only.

namespace MP4 {

/// The first four bytes of a full box (ISO/IEC 14496-12, 4.2).
inline void readVersionAndFlags(BinFile& file, uint8_t& version, std::array<uint8_t, 3>& flags) {
    version = file.read8();
    file.readBytes(flags.data(), flags.size());
}

/// A number as it stands in a box.
template <std::unsigned_integral Integer>
ByteArray bytesOf(Integer number) {
    ByteArray bytes(sizeof number);
    storeBigEndian(bytes.data(), number);
    return bytes;
}

/// A box type as it stands there.
inline ByteArray typeBytes(uint32_t tag) {
    return bytesOf(inOrder<std::endian::big>(tag));
}

/// Where a movie, track or media header (ISO/IEC 14496-12 8.2.2, 8.3.2, 8.4.2) has its creation time, 64 bits
/// wide in version 1 and 32 bits in any other.
struct CreationTime {
    CreationTime(const BOX& header, uint8_t version)
        : offset(header.offset + header.headerSize() + 4), width(version == 1 ? 8 : 4) {}

    const uint64_t offset;
    const uint64_t width;

    /// What stands there for `time`, of which 32 bits keep the low ones.
    [[nodiscard]] ByteArray bytes(uint64_t time) const {
        return width == 8 ? bytesOf(time) : bytesOf(static_cast<uint32_t>(time & 0xFFFFFFFF));
    }
};

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
