// SPDX-License-Identifier: MIT
#include "BitStream.h"

#include <array>

#include "ByteOrder.h"

void BitStream::attach(const ByteArray& bytes) {
    buffer = bytes;
    taken = 0;
}

uint64_t BitStream::bitsLeft() const {
    return 8 * (buffer.size() - taken) + static_cast<uint64_t>(bitCount);
}

void BitStream::requireByteBoundary() const {
    if (bitCount > 0) {
        throw "bits existed";
    }
}

const uint8_t* BitStream::take(uint64_t count) {
    if (count > buffer.size() - taken) {
        throw "no more data";
    }
    const uint8_t* const bytes = buffer.data() + taken;
    taken += count;
    return bytes;
}

int BitStream::next_bit() {
    if (bitCount == 0) {
        accumulator = *take(1);
        bitCount = 8;
    }
    --bitCount;
    return static_cast<int>(accumulator >> bitCount & 1);
}

Bits BitStream::read_bits(int count) {
    Bits bits{0, count};
    for (int i = 0; i < count; ++i) {
        bits.value = bits.value << 1 | static_cast<uint32_t>(next_bit());
    }
    return bits;
}

uint8_t BitStream::read8() {
    requireByteBoundary();
    return *take(1);
}

uint16_t BitStream::read16n() {
    requireByteBoundary();
    return MP4::loadBigEndian<uint16_t>(take(2));
}

void BitStream::read_bytes(unsigned long count, ByteArray& bytes) {
    requireByteBoundary();
    bytes.assign(take(count), count);
}

void BitStream::write_bits(unsigned int value, int count) {
    accumulator = accumulator << count | value;
    bitCount += count;
    std::array<uint8_t, 8> whole;
    size_t size = 0;
    while (bitCount >= 8) {
        bitCount -= 8;
        whole[size++] = static_cast<uint8_t>(accumulator >> bitCount & 0xFF);
    }
    accumulator &= (uint64_t{1} << bitCount) - 1;
    buffer.append(whole.data(), size);
}

void BitStream::write8(unsigned char value) {
    requireByteBoundary();
    buffer.append(&value, sizeof value);
}

void BitStream::write16n(unsigned short value) {
    requireByteBoundary();
    std::array<uint8_t, 2> bytes;
    MP4::storeBigEndian<uint16_t>(bytes.data(), value);
    buffer.append(bytes.data(), bytes.size());
}

void BitStream::write_bytes(const ByteArray& bytes) {
    requireByteBoundary();
    buffer.append(bytes);
}

void BitStream::flush_bits() {
    if (bitCount > 0) {
        write_bits(0, 8 - bitCount);
    }
}

void BitStream::bytes(ByteArray& out) {
    flush_bits();
    out.assign(buffer.data() + taken, buffer.size() - taken);
}
