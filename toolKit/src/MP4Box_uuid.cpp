// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include <algorithm>
#include <cstdio>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Box_fields.h"

namespace MP4 {

UUID::UUID(const std::string& payload_)
    : NestedBox(0, prefixSize + payload_.size(), fourcc("uuid"), nullptr), payload(payload_) {}

bool UUID::hasChild() const {
    return is(SpatialData::_UUID);
}

void UUID::dump() const {
    const Usertype& id = usertype;
    std::array<char, 37> text{};
    std::snprintf(text.data(), text.size(),
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", //
                  id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7],                 //
                  id[8], id[9], id[10], id[11], id[12], id[13], id[14], id[15]);
    Brisa::Console::out(L"MP4: %ls<%ls uuid=%ls >\n", indentation().c_str(), basicTag().c_str(),
                        Brisa::wchar::mbs2wcs(text.data()).c_str());
    dumpChildren();
}

void UUID::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    payload.clear();
    const bool room = file.available() >= usertype.size();
    // An identity that is not there is made of zeros as long as those last: without a charge, boxes of 8
    // bytes would cost more memory than a file may.
    const bool free = !room && file.allowance.takeContents(usertype.size(), 0) != 0;
    if (free || !file.allowance.takeHeader(usertype.size()) || !room) {
        return;
    }
    file.readBytes(usertype.data(), usertype.size());
    if (hasChild()) {
        parseChildren(file, limit);
        return;
    }
    if (file.allowance.keepContents) {
        readContents(file, file.available(), payload);
    }
}

bool UUID::is(const Usertype& identity) const {
    return boxSize >= prefixSize && usertype == identity;
}

std::array<uint8_t, UUID::prefixSize> UUID::prefix(uint32_t size, const Usertype& identity) {
    std::array<uint8_t, prefixSize> bytes{0, 0, 0, 0, 'u', 'u', 'i', 'd'};
    storeBigEndian(bytes.data(), size);
    std::copy(identity.begin(), identity.end(), bytes.begin() + 8);
    return bytes;
}

ByteArray UUID::make(const Usertype& identity, const std::string& payload) {
    const uint64_t size = prefixSize + payload.size();
    const auto front = prefix(static_cast<uint32_t>(size & 0xFFFFFFFF), identity);
    ByteArray box(size);
    std::copy(front.begin(), front.end(), box.begin());
    std::copy(payload.begin(), payload.end(), box.begin() + prefixSize);
    return box;
}

bool UUID::write(BinFile& file) const {
    const auto front = prefix(static_cast<uint32_t>(boxSize & 0xFFFFFFFF), usertype);
    const uint64_t written = file.writeAll(front.data(), front.size());
    return written + file.writeAll(payload.data(), payload.size()) == boxSize;
}

bool UUID::write(Brisa::FileIO& file) const {
    BinFile view(file);
    return write(view);
}

void UUID::to_byteArray(ByteArray& out) const {
    out = make(usertype, payload);
}

} // namespace MP4
