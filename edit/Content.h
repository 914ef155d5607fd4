// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Job.h"
#include "Kind.h"
#include "MP4Container.h"

namespace edit {

/// The boxes of that kind, in file order. One that is cut off is not there.
std::vector<MP4::BOX*> boxesOf(const MP4::Container& container, const Kind& kind);
/// The first one; null if there is none.
MP4::BOX* boxOf(const MP4::Container& container, const Kind& kind);

/// Whether the box holds this.
bool holds(const MP4::Container& container, const Kind& kind, const MP4::BOX& box,
           const std::string& content);

/// Throws Failure where that kind cannot be put into the file, for lack of a movie for example.
void demandRoom(const MP4::Container& container, const Kind& kind);
/// That something else is there, which is not replaced unasked.
[[nodiscard]] Failure anotherIsThere(const std::string& what);

/// Puts the content in, also in the place of other content; whether that succeeded.
bool putInto(MP4::Container& container, const Kind& kind, const std::string& content);

} // namespace edit
