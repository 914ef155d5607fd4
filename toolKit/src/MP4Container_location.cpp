#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

constexpr const char* locationTextPath = "moov.udta.\xA9xyz";

/// `@xyz`: the text as it was given.
ByteArray givenTextBox(const GPSInfo& position) {
    ByteArray body;
    body.assign(position.rxyz.data(), position.rxyz.size());
    return makeBox(fourcc("@xyz"), body);
}

/// `loci` (3GPP TS 26.244 8.2): no name, no body, no notes; two bytes more than those need.
ByteArray locationBox(const GPSInfo& position) {
    ByteArray body(24);
    storeBigEndian(&body[8], position.longitude.toUINT32Fixnum());
    storeBigEndian(&body[12], position.latitude.toUINT32Fixnum());
    storeBigEndian(&body[16], position.altitude.toUINT32Fixnum());
    return makeBox(fourcc("loci"), body);
}

/// `©xyz`: size and language ("eng") of the text, and the text.
ByteArray locationTextBox(const GPSInfo& position) {
    constexpr uint16_t english = 0x15C7;
    const std::string text = position.to_CXYZ_string();
    ByteArray body(4);
    storeBigEndian(&body[0], static_cast<uint16_t>(text.size()));
    storeBigEndian(&body[2], english);
    body.append(text.data(), text.size());
    return makeBox(fourcc("\xA9xyz"), body);
}

} // namespace

bool Container::build_locationBOX(BOX*& udta, ByteArray& out, const GPSInfo& position) const {
    out.clear();
    if (moov == nullptr) {
        return false;
    }
    if (BOX* const found = moov->first("udta")) {
        udta = found;
    }
    if (root->first("moov.udta.@xyz") == nullptr) {
        out.append(givenTextBox(position));
    }
    if (root->first("moov.udta.loci") == nullptr) {
        out.append(locationBox(position));
    }
    if (root->first(locationTextPath) == nullptr) {
        out.append(locationTextBox(position));
    }
    if (!out.empty() && udta == nullptr) {
        out = makeBox(fourcc("udta"), out);
    }
    return !out.empty();
}

bool Container::appendLocations(const GPSInfo& position) {
    constexpr const wchar_t* operation = L"appendLocations";
    if (moov == nullptr || mdat == nullptr) {
        return false;
    }
    if (!fitsBox(position.rxyz.size())) {
        return rewriteFailed(operation);
    }
    BOX* udta = nullptr;
    ByteArray boxes;
    if (!build_locationBOX(udta, boxes, position)) {
        Brisa::Console::out(L"MP4: No location-boxes were appended.\n");
        return true;
    }
    if (!fitsBox(boxes.size())) {
        return rewriteFailed(operation);
    }
    auto& parent = udta != nullptr ? static_cast<NestedBox&>(*udta) : *moov;
    return rewrite(operation, {asLastChild(parent, boxes)});
}

bool Container::removeBadLOCI() {
    constexpr uint64_t badSize = 28;
    BOX* const loci = moov != nullptr ? moov->first("udta.loci") : nullptr;
    if (loci == nullptr || loci->boxSize != badSize) {
        return !partial;
    }
    return rewrite(L"removeBadLOCI", {inPlaceOf(*loci, {})});
}

bool Container::appendGpsMeta(Brisa::FileIO& source, unsigned long long offset, unsigned long long size) {
    if (moov == nullptr) {
        return false;
    }
    if (moov->first("meta") != nullptr) {
        Brisa::Console::out(L"MP4: moov.meta(GPS) is existed.\n");
        return true;
    }
    if (moov->children.size() < 3) {
        return false;
    }
    constexpr const wchar_t* operation = L"appendGPSMeta";
    BinFile view(source);
    if (!view.seek_set(offset) || view.read32() == 0) {
        Brisa::Console::err(L"MP4: there is no box of a stated size to be copied at offset %llu.\n", offset);
        return rewriteFailed(operation);
    }
    const auto copy = [&](BinFile& file) {
        return source.seek_set(offset) && source.copyTo(file, size) == size;
    };
    return rewrite(operation, {asLastChild(*moov, size, copy)});
}

} // namespace MP4
