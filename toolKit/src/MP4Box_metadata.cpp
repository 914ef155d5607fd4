// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Box_fields.h"

namespace MP4 {

namespace {

using Brisa::Console;

double readFixed(BinFile& file) {
    return static_cast<int32_t>(file.read32()) / 65536.0;
}

/// The text that `bytes` hold up to the first zero byte.
std::wstring textOf(const uint8_t* bytes, size_t size) {
    return Brisa::wchar::mbs2wcs(std::string(bytes, std::find(bytes, bytes + size, uint8_t{0})));
}

} // namespace

void XYZ::parseBox(BinFile& file, uint64_t limit) {
    constexpr uint64_t fixedFields = 4;
    constexpr uint64_t longestText = 512;
    enter(file, limit);
    textSize = file.read16();
    language = file.read16();
    const uint64_t front = headerSize() + fixedFields;
    readContents(file, boxSize > front ? std::min(boxSize - front, longestText) : 0, text);
}

void XYZ::dump() const {
    Console::out(L"MP4: %ls<%ls xyz=%ls %04x >\n", indentation().c_str(), basicTag().c_str(),
                 Brisa::wchar::mbs2wcs(text).c_str(), language);
}

ByteArray XYZ::make(const std::string& text) {
    ByteArray body(4);
    storeBigEndian(&body[0], static_cast<uint16_t>(text.size()));
    storeBigEndian(&body[2], english);
    body.append(text.data(), text.size());
    return boxOf(fourcc("\xA9xyz"), body);
}

void LOCI::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.seek_cur(8); // version and flags, language, empty name, role
    longitude = readFixed(file);
    latitude = readFixed(file);
    hasPosition = true;
    hasAltitude = file.fits(sizeof(uint32_t));
    altitude = readFixed(file);
}

void LOCI::dump() const {
    const Console::LocaleC fullStop;
    Console::out(L"MP4: %ls<%ls loci=%f %f %f >\n", indentation().c_str(), basicTag().c_str(), longitude,
                 latitude, altitude);
}

/// Two bytes more than an empty name, no body and no notes need: 28 bytes is what a malformed box has.
ByteArray LOCI::make(uint32_t longitude, uint32_t latitude, uint32_t altitude) {
    ByteArray body(24);
    storeBigEndian(&body[8], longitude);
    storeBigEndian(&body[12], latitude);
    storeBigEndian(&body[16], altitude);
    return boxOf(fourcc("loci"), body);
}

void HDLR::parseBox(BinFile& file, uint64_t limit) {
    constexpr uint64_t fixedFields = 24;
    enter(file, limit);
    if (file.fits(fixedFields)) {
        file.readBytes(versionFlags.data(), versionFlags.size());
        file.readBytes(pre_defined.data(), pre_defined.size());
        file.readBytes(handler_type.data(), handler_type.size());
        file.readBytes(reserved.data(), reserved.size());
    }
    const uint64_t front = headerSize() + fixedFields;
    readContents(file, boxSize > front ? boxSize - front : 0, name);
}

void HDLR::dump() const {
    Console::out(L"MP4: %ls<%ls handler=%ls name=%ls(%d) >\n", indentation().c_str(), basicTag().c_str(),
                 textOf(handler_type.data(), handler_type.size()).c_str(),
                 textOf(name.data(), name.size()).c_str(), static_cast<int>(name.size()));
}

} // namespace MP4
