#include "MP4Box_avcc.h"

#include "MP4Box_fields.h"

namespace MP4 {

void AVCC::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.limit = end(); // the record is read whole, even where the parse ends within it
    readContents(file, boxSize > headerSize() ? boxSize - headerSize() : 0, payload);
}

} // namespace MP4
