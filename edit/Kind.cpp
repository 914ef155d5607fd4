// SPDX-License-Identifier: MIT
#include "Kind.h"

#include <algorithm>
#include <string_view>

#include "SlamMetaData.h"

namespace edit {

bool Kind::isTopLevel() const {
    return std::string_view(path).find('.') == std::string_view::npos;
}

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> table = [] {
        std::vector<Kind> all;
        for (const SlamKind& kind : SlamKind::all) {
            all.push_back({kind.name, "uuid", kind.identity});
        }
        all.push_back({"xmp", "uuid", MP4::XMP::_UUID, true});
        all.push_back({"axis", "uuid", MP4::AXIS::_UUID});
        all.push_back({"spherical", "moov.trak.uuid", MP4::SphericalXML::_UUID, true});
        all.push_back({"udta", "moov.udta"});
        all.push_back({"sound", "uuid", MP4::SpatialData::_UUID});
        return all;
    }();
    return table;
}

const Kind& kindNamed(const std::string& name) {
    return *std::find_if(kinds().begin(), kinds().end(), [&](const Kind& kind) { return kind.name == name; });
}

const char* kindOf(const MP4::Usertype& identity) {
    const auto found = std::find_if(kinds().begin(), kinds().end(), [&](const Kind& kind) {
        return !kind.isWholeBox() && kind.identity == identity;
    });
    return found == kinds().end() ? nullptr : found->name;
}

} // namespace edit
