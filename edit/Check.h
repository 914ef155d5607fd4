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

/// Something about a file that whoever is going to edit it should know.
struct Finding {
    uint64_t offset;  ///< in the file
    std::string text; ///< what is wrong, in one line
};

/// Looks for boxes that are cut off or that readers do not find, bytes that are no box, chunk offsets that
/// lead outside the file or to no media, payloads and movie boxes of which there are two, and what earlier
/// edits left. Sorted by offset; empty for a file that every edit can rely on. `readable` is cleared when the
/// system failed to read the file, or the tree is not whole: then not everything has been looked at.
std::vector<Finding> findingsIn(const MP4::Container& container, bool& readable);

/// What takeLeftoversAway() did to a file.
struct Repair {
    bool done = false;              ///< whether all went well, also when there was nothing to do
    std::vector<std::string> taken; ///< what was taken away, a line each
    std::vector<std::string> left;  ///< what could not be proven to be a leftover, or could not be taken away
};

/// Takes away what can be proven to be a leftover of an interrupted edit, each in one step that a kill cannot
/// tear: at the end of the file a `free` box that is cut off or that is a Leftover, and a `moov` behind the
/// first whole one, which is the one that counts. Nothing is taken that a chunk offset points to. A dry run
/// tells what would be taken. The container has claimed the file.
Repair takeLeftoversAway(MP4::Container& container, bool dryRun);

} // namespace edit
