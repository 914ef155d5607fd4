// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MP4Container.h"

namespace edit {

/// A top-level `free` box that an edit left behind, told from a muxer's padding by its content.
struct Leftover {
    const MP4::BOX* box;
    std::string was; ///< "moov", "map", ...: what its content was
};

/// In file order: a `free` box behind the media whose content begins as a `moov` does (a movie box that
/// another one took the place of), the `free` boxes directly behind such a one, and a `free` box that holds
/// the identity of a payload (one that was removed, or whose append did not come to its end).
std::vector<Leftover> leftoversIn(const MP4::Container& container, Brisa::FileIO& file);

/// What can be proven to be a leftover of an interrupted edit: at the end of the file a `free` box that is
/// cut off or that is a Leftover, and a `moov` behind the first whole one, which is the one that counts.
/// Nothing that a chunk offset points to.
struct Repair {
    std::vector<const MP4::BOX*> movies; ///< they become `free` boxes
    uint64_t end = 0;                    ///< where the file is cut
    std::vector<std::string> taken;      ///< all that, a line each
    std::vector<std::string> left;       ///< what could not be proven to be a leftover, a line each
};

/// Finds it in a container's file; `readable` tells whether the system has read all that it takes.
Repair repairOf(const MP4::Container& container, bool& readable);
/// Takes it away, each thing in one step that a kill cannot tear; whether that succeeded. The container has
/// claimed the file.
bool carryOut(const Repair& repair, MP4::Container& container);

} // namespace edit
