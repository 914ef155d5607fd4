// SPDX-License-Identifier: MIT
#include "H264Nal.h"

#include <algorithm>

namespace H264 {

namespace {

constexpr uint8_t emulationPreventionByte = 3;

} // namespace

ByteArray unescaped(const ByteArray& nalUnit) {
    ByteArray raw(nalUnit.size());
    size_t size = 0;
    size_t zeros = 0;
    for (const uint8_t byte : nalUnit) {
        if (zeros >= 2 && byte == emulationPreventionByte) {
            zeros = 0;
            continue;
        }
        raw[size++] = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    raw.resize(size);
    return raw;
}

ByteArray escaped(const ByteArray& raw) {
    ByteArray nalUnit(raw.size() + raw.size() / 2);
    size_t size = 0;
    size_t zeros = 0;
    for (const uint8_t byte : raw) {
        if (zeros >= 2 && byte <= emulationPreventionByte) {
            nalUnit[size++] = emulationPreventionByte;
            zeros = 0;
        }
        nalUnit[size++] = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    nalUnit.resize(size);
    return nalUnit;
}

bool isEscaped(const ByteArray& nalUnit) {
    size_t size = nalUnit.size();
    while (size != 0 && nalUnit[size - 1] == 0) {
        --size;
    }
    size_t zeros = 0;
    return std::all_of(nalUnit.begin(), nalUnit.begin() + size, [&zeros](uint8_t byte) {
        const bool startCode = zeros >= 2 && byte < emulationPreventionByte;
        zeros = byte == 0 ? zeros + 1 : 0;
        return !startCode;
    });
}

} // namespace H264
