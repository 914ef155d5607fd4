// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MP4Container.h"

namespace edit {

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

} // namespace edit
