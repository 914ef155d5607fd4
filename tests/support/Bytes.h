// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "ByteOrder.h"
#include "MP4Box.h"

// Boxes built in memory, so that a test shows the file it means:
//
//   box("moov", {box("trak", {tkhd(640)}), box("udta", {"..."})})
//
// Sizes are right unless a test asks for a lie with withSize().

namespace test {

/// Any bytes; a string, so that they compare, concatenate and print.
using Bytes = std::string;
using Parts = std::initializer_list<Bytes>;

template <class Integer>
Bytes bigEndian(Integer value) {
    Bytes bytes(sizeof value, '\0');
    MP4::storeBigEndian(bytes.data(), value);
    return bytes;
}

inline Bytes u8(uint8_t value) {
    return bigEndian(value);
}
inline Bytes u16(uint16_t value) {
    return bigEndian(value);
}
inline Bytes u32(uint32_t value) {
    return bigEndian(value);
}
inline Bytes u64(uint64_t value) {
    return bigEndian(value);
}
inline Bytes zeros(size_t count) {
    return Bytes(count, '\0');
}

inline Bytes repeated(const Bytes& unit, size_t times) {
    Bytes all;
    for (size_t i = 0; i < times; ++i) {
        all += unit;
    }
    return all;
}

inline Bytes cat(Parts parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all += part;
    }
    return all;
}

inline Bytes box(std::string_view type, Parts body = {}) {
    const Bytes content = cat(body);
    return u32(static_cast<uint32_t>(8 + content.size())) + Bytes(type) + content;
}

/// The 64-bit form of the size.
inline Bytes largeBox(std::string_view type, Parts body = {}) {
    const Bytes content = cat(body);
    return u32(1) + Bytes(type) + u64(16 + content.size()) + content;
}

/// A box that begins with a version and flags of 0.
inline Bytes fullBox(std::string_view type, uint8_t version, Parts body = {}) {
    return box(type, {u8(version), zeros(3), cat(body)});
}

inline Bytes uuidBox(const MP4::Usertype& identity, Parts body = {}) {
    return box("uuid", {Bytes(identity.begin(), identity.end()), cat(body)});
}

inline Bytes withSize(Bytes box, uint32_t size) {
    return box.replace(0, 4, u32(size));
}

/// A track header of version 0 with a picture of this width and 360 pixels high.
inline Bytes tkhd(uint16_t width) {
    return fullBox("tkhd", 0, {zeros(72), u16(width), u16(0), u16(360), u16(0)});
}

/// A track with these sample tables, and boxes behind its `mdia`.
inline Bytes track(Parts sampleTable, uint16_t width = 640, Parts behind = {}) {
    return box("trak", {tkhd(width), box("mdia", {box("minf", {box("stbl", sampleTable)})}), cat(behind)});
}

/// A table of offsets with its count.
template <class Integer>
Bytes counted(std::initializer_list<Integer> entries) {
    Bytes bytes = u32(static_cast<uint32_t>(entries.size()));
    for (const Integer entry : entries) {
        bytes += bigEndian(entry);
    }
    return bytes;
}

inline Bytes stco(std::initializer_list<uint32_t> offsets) {
    return fullBox("stco", 0, {counted(offsets)});
}
inline Bytes co64(std::initializer_list<uint64_t> offsets) {
    return fullBox("co64", 0, {counted(offsets)});
}

} // namespace test
