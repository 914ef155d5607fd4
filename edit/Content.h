// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "MP4Container.h"

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

/// The kind of that name; there is one.
const Kind& kindNamed(const std::string& name);

/// The box of that kind; null if there is none. One that is cut off is not there.
MP4::BOX* boxOf(const MP4::Container& container, const Kind& kind);

/// What it holds.
std::string contentIn(const MP4::Container& container, const Kind& kind, const MP4::BOX& box);

/// Whether it holds this.
bool holds(const MP4::Container& container, const Kind& kind, const MP4::BOX& box,
           const std::string& content);

/// What a file would need before that kind could be put into it; null if it lacks nothing.
const char* lacking(const MP4::Container& container, const Kind& kind);

/// Puts the content in, also in the place of other content; whether that succeeded.
bool putInto(MP4::Container& container, const Kind& kind, const std::string& content);

} // namespace edit
