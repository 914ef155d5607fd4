// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"

namespace MP4 {

namespace {

using Brisa::Console;

/// A time is 64 bits wide in version 1 of a header box and 32 bits in any other.
uint64_t readTime(BinFile& file, uint8_t version) {
    return version == 1 ? file.read64() : file.read32();
}

/// Whole units of a signed 16.16 number, truncated toward zero.
uint32_t readWhole(BinFile& file) {
    const auto fixed = static_cast<int32_t>(file.read32());
    return static_cast<uint32_t>(fixed / 65536);
}

/// Always true, as the headers promise; a box that has no room for the field is left alone.
bool writeCreationTime(const BOX& header, uint8_t version, BinFile& file, uint64_t time) {
    const CreationTime field(header, version);
    if (header.endWithin(file.length()) >= field.offset + field.width) {
        const ByteArray bytes = field.bytes(time);
        const uint64_t back = file.position();
        if (file.seek_set(field.offset)) {
            file.writeAll(bytes.data(), bytes.size());
        }
        file.seek_set(back);
    }
    return true;
}

} // namespace

void MVHD::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    timeStamp = readTime(file, version);
    file.seek_cur(version == 1 ? 8 : 4); // modification time
    time_scale = static_cast<float>(file.read32());
    duration = static_cast<float>(readTime(file, version)) / time_scale;
}

void MVHD::dump() const {
    Console::out(L"MP4: %ls<%ls timeStamp=%lu >\n", indentation().c_str(), basicTag().c_str(), timeStamp);
}

bool MVHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(*this, version, file, time);
}

void TKHD::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    timeStamp = readTime(file, version);
    file.seek_cur(version == 1 ? 24 : 16); // modification time, track number, reserved, duration
    file.seek_cur(52);                     // layer, group, volume, matrix
    width = readWhole(file);
    height = readWhole(file);
}

void TKHD::dump() const {
    Console::out(L"MP4: %ls<%ls timeStamp=%lu width=%u height=%u >\n", indentation().c_str(),
                 basicTag().c_str(), timeStamp, width, height);
}

bool TKHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(*this, version, file, time);
}

void MDIA::parseBox(BinFile& file, uint64_t limit) {
    constexpr uint64_t handlerField = 8; // behind version, flags and a reserved number
    NestedBox::parseBox(file, limit);
    if (const BOX* const hdlr = first("hdlr")) {
        file.limit = std::min({hdlr->end(), end(), limit});
        file.seek_set(hdlr->offset + hdlr->headerSize() + handlerField);
        file.readBytes(&handler, sizeof handler);
    }
}

void MDHD::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    timeStamp = readTime(file, version);
    readTime(file, version); // modification time
    time_scale = file.read32();
    duration = readTime(file, version);
}

void MDHD::dump() const {
    const Console::LocaleC fullStop;
    Console::out(L"MP4: %ls<%ls timeStamp=%lu duration=%f time_scale=%f >\n", indentation().c_str(),
                 basicTag().c_str(), timeStamp, static_cast<double>(duration),
                 static_cast<double>(time_scale));
}

bool MDHD::setTimeStamp(BinFile& file, uint64_t time) const {
    return writeCreationTime(*this, version, file, time);
}

} // namespace MP4
