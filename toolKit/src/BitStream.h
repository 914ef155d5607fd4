// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "ByteArray.h"

/// Some bits of a stream, right-aligned: the first one read is the most significant.
struct Bits {
    uint32_t value;
    int32_t count;
};

/// A byte buffer with a bit position, read or written most significant bit first.
///
/// A stream is used in one direction: attached to bytes and read from the front, or written from
/// empty and its bytes taken out. Errors are thrown as a `char const*`, a constant text, which no handler of
/// a std::exception catches, only `catch (const char* text)`:
/// - "no more data": a read needs more than is left. A byte-level read leaves the stream as it was.
/// - "bits existed": a byte-level operation is called between two bits of a byte.
///
/// A stream owns its bytes: nothing that is given to it, or taken from it, is tied to it. Different streams
/// may be used in different threads.
class BitStream {
public:
    BitStream() = default;
    BitStream(const BitStream&) = default;
    BitStream& operator=(const BitStream&) = default;
    virtual ~BitStream() = default;

    /// Replaces the bytes to be read by a copy of `bytes`.
    void attach(const ByteArray& bytes);
    /// How many bits are left to be read.
    [[nodiscard]] uint64_t bitsLeft() const;

    int next_bit();
    /// The next `count` bits, of which the last 32 survive; nothing when `count` is 0 or less.
    Bits read_bits(int count);
    uint8_t read8();
    uint16_t read16n(); ///< big-endian
    /// Replaces the content of `bytes` by the next `count` bytes.
    void read_bytes(unsigned long count, ByteArray& bytes);

    /// Appends the low `count` bits, 0 to 32, of a value that has no higher ones. Throws nothing, so that a
    /// text is thrown while writing only by what needs whole bytes: write8(), write16n(), write_bytes().
    void write_bits(unsigned int value, int count);
    void write8(unsigned char value);
    void write16n(unsigned short value); ///< big-endian
    void write_bytes(const ByteArray& bytes);
    /// Completes a partly written byte with zero bits.
    void flush_bits();

    /// Flushes, and replaces the content of `out` by the bytes written, or left to be read.
    void bytes(ByteArray& out);

private:
    void requireByteBoundary() const;
    /// Where the next `count` bytes to be read lie; they are taken.
    const uint8_t* take(uint64_t count);

    ByteArray buffer;
    size_t taken = 0;         ///< bytes at the front of the buffer that have been read
    uint64_t accumulator = 0; ///< the byte being read, or the bits that make no whole byte yet
    int32_t bitCount = 0;     ///< bits in the accumulator that are still to be delivered, or written
};
