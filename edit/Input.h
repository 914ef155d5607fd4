// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ByteArray.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "Text.h"

namespace edit {

/// A path as the library takes it: any bytes.
std::wstring widened(const std::string& path);

/// Whether a file has any of the boxes that make it one.
bool looksLikeMp4(const MP4::Container& container);

/// The boxes at a path, as MP4::Container::find() has them. Of the movie boxes only the first one counts: a
/// killed edit may leave a second one behind.
void findIn(const MP4::Container& container, const char* path, std::function<bool(MP4::BOX&)> predicate);
/// The first one; null if there is none.
MP4::BOX* firstIn(const MP4::Container& container, const char* path);

/// Throws WrongArguments if both name one file: what is made from a file cannot take its place or go into it.
void demandOther(const std::string& source, const std::string& place);

/// The whole content of a side file; "-" is the standard input. Throws Failure with the system's reason, and
/// WrongArguments for one that no 32-bit size can tell.
std::string contentOf(const std::string& path);

/// The body of a box in a container's file, without header and without the identity of a `uuid` box. Throws
/// Failure.
std::string bodyOf(const MP4::Container& container, const MP4::BOX& box);
/// The whole box, header included.
std::string bytesOf(const MP4::Container& container, const MP4::BOX& box);

/// Whether a stretch of a container's file, from `offset` on, holds these bytes; it is read in blocks.
bool matches(const MP4::Container& container, uint64_t offset, std::string_view bytes);

/// Runs the work on the first box at `boxPath` of another recording. Throws Failure if that has none that is
/// whole.
bool withBoxOf(const std::string& path, const char* boxPath,
               const std::function<bool(Brisa::FileIO&, const MP4::BOX&)>& work);

/// A position as maps give it ("35.6895,139.6917", "35.6895, 139.6917, 120") or as ISO 6709 in degrees
/// ("+35.6895+139.6917+120/"). The record holds the text in the latter form, with the digits that were given.
/// Throws WrongArguments for anything else, and for what is not on the globe.
GPSInfo positionOf(const std::string& text, std::optional<double> compass);

/// Seconds since 1904-01-01 UTC of an ISO 8601 time or date, "@SECONDS" since 1970, "1904:SECONDS", or "now";
/// none for "file", which every file answers for itself. A time without a zone is UTC. Throws WrongArguments
/// for anything else, a bare number included, and for what a 32-bit field cannot hold.
std::optional<uint64_t> timeOf(const std::string& text);
/// Seconds since 1904 of a file's last change. Throws Failure.
uint64_t lastChangeOf(const std::string& path);
/// 2026-11-23T01:00:00Z
std::string shownTime(uint64_t secondsSince1904);

/// Throws WrongArguments, with the place, unless the text is well-formed XML.
void demandXml(const std::string& text, const std::string& path);

} // namespace edit
