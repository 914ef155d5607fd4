#pragma once

#include "MP4Box.h"

namespace MP4 {

/// AVC configuration box (`avcC`, ISO/IEC 14496-15 5.4.2.1): the decoder configuration record.
class AVCC : public BOX {
public:
    using BOX::BOX;

    ByteArray payload; ///< the body, as it stands in the file

    void parseBox(BinFile& file, uint64_t limit) override;
};

} // namespace MP4
