// SPDX-License-Identifier: MIT
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

bool Container::build_sphericalVideoXmlBOX(BOX*& existing, ByteArray& out, const std::string& xml) const {
    if (moov != nullptr) {
        moov->find("trak.uuid", [&](BOX& box) {
            const auto* const identified = as<UUID>(box);
            existing = identified != nullptr && identified->is(SphericalXML::_UUID) ? &box : existing;
            return true;
        });
    }
    SphericalXML(xml).to_byteArray(out);
    return true;
}

void putSpherical(const Container& container, Plan& plan, const std::string& xml) {
    BOX* existing = nullptr;
    ByteArray box;
    container.build_sphericalVideoXmlBOX(existing, box, xml);
    existing != nullptr ? plan.exchange(*existing, std::move(box))
                        : plan.addTo(*container.trak, std::move(box));
}

bool Container::appendSphericalVideoXML(const std::string& xml) {
    constexpr const wchar_t* operation = L"appendSphericalVideoXML";
    if (moov == nullptr || mdat == nullptr || trak == nullptr) {
        return false;
    }
    if (!fitsBox(xml.size())) {
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    putSpherical(*this, plan, xml);
    return carryOut(*this, operation, plan);
}

bool Container::appendLocationAndSphericalVideoXML(const GPSInfo& position, const std::string& xml) {
    constexpr const wchar_t* operation = L"appendLocationAndSphericalVideoXML";
    if (moov == nullptr || mdat == nullptr || trak == nullptr) {
        return false;
    }
    if (!position.latitude.valid || !position.longitude.valid) {
        return xml.empty() || appendSphericalVideoXML(xml);
    }
    if (xml.empty()) {
        return appendLocations(position);
    }
    if (!fitsBox(xml.size()) || !fitsBox(position.rxyz.size())) {
        return rewriteFailed(*this, operation);
    }
    BOX* udta = nullptr;
    ByteArray locations;
    if (!build_locationBOX(udta, locations, position)) {
        return appendSphericalVideoXML(xml);
    }
    if (!fitsBox(locations.size())) {
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    putSpherical(*this, plan, xml);
    plan.addTo(udta != nullptr ? static_cast<NestedBox&>(*udta) : *moov, std::move(locations));
    return carryOut(*this, operation, plan);
}

namespace {

/// Appends a box of this kind, unless the file has one.
template <class Kind>
bool appendOnce(Container& container, const std::string& text, const wchar_t* notice) {
    bool exists = false;
    container.find("uuid", [&exists](BOX& box) {
        const auto* const identified = as<UUID>(box);
        exists = identified != nullptr && identified->is(Kind::_UUID);
        return !exists;
    });
    if (exists) {
        Brisa::Console::out(notice);
        return true;
    }
    if (!fitsBox(text.size())) {
        return false;
    }
    ByteArray box;
    Kind(text).to_byteArray(box);
    ByteArray header;
    header.assign(box.data(), BOX::compactHeader);
    return container.append(header, [&box](Brisa::FileIO& file) {
        const uint64_t size = box.size() - BOX::compactHeader;
        return file.writeAll(box.data() + BOX::compactHeader, size) == size;
    });
}

} // namespace

bool Container::appendXMP(const std::string& packet) {
    return appendOnce<XMP>(*this, packet, L"MP4: XMP is existed.\n");
}

bool Container::appendAxis(const std::string& axis) {
    return appendOnce<AXIS>(*this, axis, L"MP4: AXIS is existed.\n");
}

} // namespace MP4
