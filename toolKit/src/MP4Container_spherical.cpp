#include <utility>
#include <vector>

#include "Brisa/BrisaConsole.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

bool Container::build_sphericalVideoXmlBOX(BOX*& existing, ByteArray& out, const std::string& xml) const {
    find("moov.trak.uuid", [&](BOX& box) {
        existing = static_cast<UUID&>(box).is(SphericalXML::_UUID) ? &box : existing;
        return true;
    });
    SphericalXML(xml).to_byteArray(out);
    return true;
}

bool Container::appendSphericalVideoXML(const std::string& xml) {
    constexpr const wchar_t* operation = L"appendSphericalVideoXML";
    if (moov == nullptr || mdat == nullptr || trak == nullptr) {
        return false;
    }
    if (!fitsBox(xml.size())) {
        return rewriteFailed(operation);
    }
    BOX* existing = nullptr;
    ByteArray box;
    build_sphericalVideoXmlBOX(existing, box, xml);
    return rewrite(operation, {existing != nullptr ? inPlaceOf(*existing, box) : asLastChild(*trak, box)});
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
        return rewriteFailed(operation);
    }
    BOX* udta = nullptr;
    ByteArray locations;
    if (!build_locationBOX(udta, locations, position)) {
        return appendSphericalVideoXML(xml);
    }
    if (!fitsBox(locations.size())) {
        return rewriteFailed(operation);
    }
    BOX* existing = nullptr;
    ByteArray spherical;
    build_sphericalVideoXmlBOX(existing, spherical, xml);
    auto& parent = udta != nullptr ? static_cast<NestedBox&>(*udta) : *moov;
    std::vector<Insertion> insertions{existing != nullptr ? inPlaceOf(*existing, spherical)
                                                          : asLastChild(*trak, spherical),
                                      asLastChild(parent, locations)};
    if (insertions[1].from < insertions[0].from) {
        std::swap(insertions[0], insertions[1]);
    }
    return rewrite(operation, insertions);
}

template <class Kind>
bool Container::appendOnce(const std::string& text, const wchar_t* notice) {
    bool exists = false;
    find("uuid", [&exists](BOX& box) {
        exists = static_cast<UUID&>(box).is(Kind::_UUID);
        return !exists;
    });
    if (exists) {
        Brisa::Console::out(notice);
        return true;
    }
    if (!fitsBox(text.size())) {
        return false;
    }
    const Kind box(text);
    return append([&box](Brisa::FileIO& file) { return box.write(file); });
}

bool Container::appendXMP(const std::string& packet) {
    return appendOnce<XMP>(packet, L"MP4: XMP is existed.\n");
}

bool Container::appendAxis(const std::string& axis) {
    return appendOnce<AXIS>(axis, L"MP4: AXIS is existed.\n");
}

} // namespace MP4
