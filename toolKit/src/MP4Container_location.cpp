#include "Brisa/BrisaConsole.h"
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
        out.append(LOCI::make(position.longitude.toUINT32Fixnum(), position.latitude.toUINT32Fixnum(),
                              position.altitude.toUINT32Fixnum()));
    }
    if (root->first(locationTextPath) == nullptr) {
        out.append(XYZ::make(position.to_CXYZ_string()));
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
