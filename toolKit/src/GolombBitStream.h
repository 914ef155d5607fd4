// SPDX-License-Identifier: MIT
#pragma once

#include "BitStream.h"

/// A bit stream with the Exp-Golomb codes of ITU-T H.264 9.1: ue(v) and se(v).
///
/// Codes of up to 31 bits are read, that is code numbers from 0 to 65534; reading a longer one throws
/// "too log golomb sream", as BitStream throws its own texts.
class GolombBitStream : public BitStream {
public:
    /// The code of `number`: number + 1, in twice its bits less one.
    static Bits encode(unsigned int number);
    /// The code number of a complete code, or -1.
    static int64_t decode(const Bits& code);

    uint32_t read_golomb();                 ///< ue(v)
    int32_t read_golombs();                 ///< se(v)
    void write_golomb(unsigned int number); ///< ue(v)
    void write_golombs(int value);          ///< se(v)
};
