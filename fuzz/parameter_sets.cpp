// Any bytes as a decoder configuration record: what is read and written again reads the same.

#include "MP4Box_avcc.h"
#include "MemoryFile.h"

namespace {

/// The box with this record as its payload.
struct Record : MP4::AVCC {
    explicit Record(const ByteArray& record) : AVCC(0, 8 + record.size(), MP4::fourcc("avcC"), nullptr) {
        payload = record;
    }
};

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

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
    require(once.size() == twice.size() && std::equal(once.begin(), once.end(), twice.begin()));
    return 0;
}
