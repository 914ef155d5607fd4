// SPDX-License-Identifier: MIT
// Any bytes as a decoder configuration record: what is read and written again reads the same.

#include <algorithm>

#include "MP4Box_avcc.h"
#include "fuzz.h"

namespace {

/// The box with this record as its payload.
struct Record : MP4::AVCC {
    explicit Record(const ByteArray& record) : AVCC(0, 8 + record.size(), MP4::fourcc("avcC"), nullptr) {
        payload = record;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silenceConsole();
    ByteArray input;
    input.assign(data, size);
    Record(input).dump();
    ByteArray once;
    bool wasFull = false;
    bool wasSet = false;
    const bool wanted = size % 2 == 0;
    if (!Record(input).assign_fullRange_and_constrained_set1_flag(once, wanted, wasFull, wasSet)) {
        require(once.empty());
        return 0;
    }
    // The changed record says what was asked for, and changing it again changes nothing.
    ByteArray twice;
    require(Record(once).assign_fullRange_and_constrained_set1_flag(twice, wanted, wasFull, wasSet));
    require(wasFull == wanted && wasSet);
    require(std::equal(once.begin(), once.end(), twice.begin(), twice.end()));
    return 0;
}
