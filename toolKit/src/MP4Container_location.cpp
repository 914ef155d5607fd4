// SPDX-License-Identifier: MIT
#include <utility>
#include <vector>

#include "Brisa/BrisaConsole.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

constexpr const char* locationTextPath = "udta.\xA9xyz";

/// In the place of the packets that the file has, or behind its last box; whether a reader would find it.
bool putPacket(const Container& container, Plan& plan, const std::string& packet) {
    ByteArray box;
    XMP(packet).to_byteArray(box);
    for (const auto& child : container.root->children) {
        const auto* const uuid = as<UUID>(child.get());
        if (uuid != nullptr && uuid->is(XMP::_UUID)) {
            plan.exchange(*child, std::exchange(box, {}));
        }
    }
    if (box.empty()) {
        return true;
    }
    Objection reason;
    container.open([&](Brisa::FileIO& file) {
        BinFile view(file);
        reason = objectionToAppend(container, view);
    });
    if (!reason.empty()) {
        return refuse(container.path, reason);
    }
    plan.resize(container.root->children.back().get(), 0); // an open-ended last box is the last no longer
    plan.append(std::move(box));
    return true;
}

std::vector<const BOX*> locationBoxes(const Container& container) {
    std::vector<const BOX*> boxes;
    for (const char* const path : {"udta.@xyz", "udta.loci", locationTextPath}) {
        if (container.moov != nullptr) {
            container.moov->find(path, [&boxes](const BOX& box) {
                boxes.push_back(&box);
                return true;
            });
        }
    }
    return boxes;
}

} // namespace

bool Container::build_locationBOX(BOX*& udta, ByteArray& out, const GPSInfo& position,
                                  bool onlyMissing) const {
    out.clear();
    if (moov == nullptr) {
        return false;
    }
    if (BOX* const found = moov->first("udta")) {
        udta = found;
    }
    const auto isWanted = [&](const char* boxPath) {
        return !onlyMissing || moov->first(boxPath) == nullptr;
    };
    if (isWanted("udta.@xyz")) {
        ByteArray text;
        text.assign(position.rxyz.data(), position.rxyz.size());
        out.append(boxOf(fourcc("@xyz"), text));
    }
    if (isWanted("udta.loci")) {
        out.append(LOCI::make(position.longitude.toUINT32Fixnum(), position.latitude.toUINT32Fixnum(),
                              position.altitude.toUINT32Fixnum()));
    }
    if (isWanted(locationTextPath)) {
        out.append(XYZ::make(position.to_CXYZ_string()));
    }
    if (!out.empty() && udta == nullptr) {
        out = boxOf(fourcc("udta"), out);
    }
    return !out.empty();
}

bool Container::appendLocations(const GPSInfo& position) {
    constexpr const wchar_t* operation = L"appendLocations";
    if (moov == nullptr || mdat == nullptr) {
        return false;
    }
    if (!fitsBox(position.rxyz.size())) {
        return rewriteFailed(*this, operation);
    }
    BOX* udta = nullptr;
    ByteArray boxes;
    if (!build_locationBOX(udta, boxes, position)) {
        Brisa::Console::out(L"MP4: No location-boxes were appended.\n");
        return true;
    }
    if (!fitsBox(boxes.size())) {
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    plan.addTo(udta != nullptr ? static_cast<NestedBox&>(*udta) : *moov, std::move(boxes));
    return carryOut(*this, operation, plan);
}

bool Container::replaceLocations(const GPSInfo& position, const std::string& xml, const std::string& packet,
                                 bool onlyMissing) {
    constexpr const wchar_t* operation = L"replaceLocations";
    if (moov == nullptr || (!xml.empty() && trak == nullptr)) {
        return refuse(path, moov == nullptr ? L"it has no movie (moov)" : L"it has no video track");
    }
    if (!fitsBox(position.rxyz.size()) || !fitsBox(xml.size()) || !fitsBox(packet.size())) {
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    if (!onlyMissing) {
        for (const BOX* const box : locationBoxes(*this)) {
            plan.exchange(*box, {});
        }
    }
    BOX* udta = nullptr;
    ByteArray boxes;
    if (build_locationBOX(udta, boxes, position, onlyMissing)) {
        plan.addTo(udta != nullptr ? static_cast<NestedBox&>(*udta) : *moov, std::move(boxes));
    }
    if (!xml.empty()) {
        putSpherical(*this, plan, xml);
    }
    return (packet.empty() || putPacket(*this, plan, packet)) ? carryOut(*this, operation, plan)
                                                              : rewriteFailed(*this, operation);
}

bool Container::removeLocations() {
    const auto boxes = locationBoxes(*this);
    if (boxes.empty()) {
        return !partial;
    }
    Plan plan(*root);
    for (const BOX* const box : boxes) {
        plan.exchange(*box, {});
    }
    return carryOut(*this, L"removeLocations", plan);
}

bool Container::removeBadLOCI() {
    constexpr uint64_t badSize = 28;
    BOX* const loci = moov != nullptr ? moov->first("udta.loci") : nullptr;
    if (loci == nullptr || loci->boxSize != badSize) {
        return !partial;
    }
    Plan plan(*root);
    plan.exchange(*loci, {});
    return carryOut(*this, L"removeBadLOCI", plan);
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
    if (!view.seek_set(offset) || view.read32() == 0 || size > INT64_MAX) {
        refuse(path, text(L"there is no box of a stated size to be copied at offset %llu", offset));
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    plan.addTo(*moov, size, [&](Brisa::FileIO& file) {
        return source.seek_set(offset) && source.copyTo(file, size) == size;
    });
    return carryOut(*this, operation, plan);
}

} // namespace MP4
