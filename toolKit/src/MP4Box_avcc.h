// SPDX-License-Identifier: MIT
#pragma once

#include "MP4Box.h"

namespace MP4 {

/// AVC configuration box (`avcC`, ISO/IEC 14496-15 5.4.2.1): the decoder configuration record, whose
/// first sequence parameter set (ITU-T H.264 7.3.2.1.1) can be queried and changed.
///
/// The box keeps the record as it stands in the file; the operations work on copies. A record or
/// parameter set that does not parse makes an operation print one line,
/// "avcc.parse() failed: %ls\n" or "avcc.sps_parse() failed: %ls\n", with one of the texts
/// - "no more data", "bits existed" or "too log golomb sream" (see BitStream and GolombBitStream);
/// - "no sps": the record has no sequence parameter set;
/// - "bad trailing bits": the set does not end where its syntax ends, so it was not understood;
/// - "too long sps": the changed set is longer than the 65,535 bytes that a record can hold.
class AVCC : public BOX {
public:
    using BOX::BOX;

    /// The body; where the file ends before it does, zeros as far as a parse has any to give.
    ByteArray payload;

    /// Prints the line of every box and, when the record does not parse, the line above.
    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;

    /// Tells `profile_idc`, whether constraint_set1_flag is 1, and whether the video is marked full
    /// range: video_full_range_flag is there and 1. On failure the outputs keep their values.
    bool get_profile_idc_and_constrained_set1_flag(unsigned char& profile, bool& constrainedSet1,
                                                   bool& fullRange) const;

    /// Puts into `body` a record whose first set has constraint_set1_flag 1 and the wanted
    /// video_full_range_flag; where there was no video signal type, one is added (video_format 5,
    /// unspecified), and so is a VUI. The last two outputs tell what the flags were. Emulation
    /// prevention bytes (ITU-T H.264 7.4.1.1) are put where the changed set needs them; a set that
    /// was not escaped at all is written in the same way, unless it would be read as an escaped one. On
    /// failure `body` is empty and the flags keep their values.
    bool assign_fullRange_and_constrained_set1_flag(ByteArray& body, bool fullRange, bool& wasFullRange,
                                                    bool& wasConstrainedSet1) const;
};

} // namespace MP4
