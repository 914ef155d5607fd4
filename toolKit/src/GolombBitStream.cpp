// SPDX-License-Identifier: MIT
#include "GolombBitStream.h"

#include <bit>

namespace {

constexpr int longestCode = 31;

/// How long the code is that ends in `value`; 0 for no code.
int codeLength(uint64_t value) {
    return value == 0 ? 0 : 2 * static_cast<int>(std::bit_width(value)) - 1;
}

} // namespace

Bits GolombBitStream::encode(unsigned int number) {
    const uint64_t code = uint64_t{number} + 1;
    return {static_cast<uint32_t>(code & 0xFFFFFFFF), codeLength(code)};
}

int64_t GolombBitStream::decode(const Bits& code) {
    const bool complete = code.value != 0 && code.count == codeLength(code.value);
    return complete ? int64_t{code.value} - 1 : -1;
}

uint32_t GolombBitStream::read_golomb() {
    Bits code = read_bits(1);
    while (decode(code) == -1) {
        if (code.count >= longestCode) {
            throw "too log golomb sream";
        }
        code = {code.value << 2 | read_bits(2).value, code.count + 2};
    }
    return code.value - 1;
}

int32_t GolombBitStream::read_golombs() {
    const auto number = static_cast<int32_t>(read_golomb());
    return number % 2 != 0 ? (number + 1) / 2 : -(number / 2);
}

void GolombBitStream::write_golomb(unsigned int number) {
    const Bits code = encode(number);
    const int zeros = code.count / 2;
    write_bits(0, zeros);
    write_bits(code.value, code.count - zeros);
}

void GolombBitStream::write_golombs(int value) {
    const int64_t number = value > 0 ? 2 * int64_t{value} - 1 : -2 * int64_t{value};
    write_golomb(static_cast<uint32_t>(number));
}
