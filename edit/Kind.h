// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "MP4Box.h"

namespace edit {

/// A kind of content that a recording can carry, and the box that carries it.
struct Kind {
    const char* name;
    const char* path;         ///< where such boxes lie
    MP4::Usertype identity{}; ///< of a `uuid` box; zeros for another one, whose content is the whole box
    bool xml = false;

    [[nodiscard]] bool isWholeBox() const { return identity == MP4::Usertype{}; }
    [[nodiscard]] bool isTopLevel() const;
};

/// All kinds: "map", "walk", "around", "xmp", "axis", "spherical", "udta", "sound".
const std::vector<Kind>& kinds();
/// The kind of that name; there is one.
const Kind& kindNamed(const std::string& name);
/// The name of the kind whose boxes have this identity; null if this toolkit does not know it.
const char* kindOf(const MP4::Usertype& identity);

} // namespace edit
