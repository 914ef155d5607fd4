#include "MP4Box_avcc.h"

namespace MP4 {

void AVCC::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    const uint64_t bytes = boxSize > headerSize() ? boxSize - headerSize() : 0;
    if (file.takeMemory(bytes)) {
        payload.resize(bytes);
        file.readAll(payload.data(), bytes);
    }
}

} // namespace MP4
