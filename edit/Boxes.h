// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Job.h"
#include "MP4Container.h"

namespace edit {

/// Reads the tree of another recording, which messages call `name`. Throws Failure.
void attach(MP4::Container& container, const std::string& name);
/// Reads the tree of a job's file. Throws Failure, also if it is no MP4 file.
const MP4::Container& attached(Job& job);

/// Whether a file has any of the boxes that make it one.
bool looksLikeMp4(const MP4::Container& container);

/// The boxes at a path, as MP4::Container::find() has them. Of the movie boxes only the first one counts: a
/// killed edit may leave a second one behind.
void findIn(const MP4::Container& container, const char* path, std::function<bool(MP4::BOX&)> predicate);
/// The first one; null if there is none.
MP4::BOX* firstIn(const MP4::Container& container, const char* path);

/// The body of a box in a container's file, without header and without the identity of a `uuid` box. Throws
/// Failure.
std::string bodyOf(const MP4::Container& container, const MP4::BOX& box);
/// The whole box, header included.
std::string wholeBox(const MP4::Container& container, const MP4::BOX& box);

/// Whether a stretch of a container's file, from `offset` on, holds these bytes; it is read in blocks.
bool matches(const MP4::Container& container, uint64_t offset, std::string_view bytes);

} // namespace edit
