// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "GPSInfo.h"

namespace edit {

/// A position as maps give it ("35.6895,139.6917", "35.6895, 139.6917, 120") or as ISO 6709 has it, in
/// degrees ("+35.6895+139.6917+120/"), in degrees and minutes ("+3541.37+13941.5/"), or with seconds. The
/// record holds the text in degrees, with the digits that were given or as many as minutes and seconds need.
/// Throws WrongArguments for anything else, and for what is not on the globe.
GPSInfo positionOf(const std::string& text, std::optional<double> compass);

/// Seconds since 1904-01-01 UTC of an ISO 8601 time or date, "@SECONDS" since 1970, "1904:SECONDS", or "now";
/// none for "file", which every file answers for itself. A time without a zone is UTC. Throws WrongArguments
/// for anything else, a bare number included, and for what a 32-bit field cannot hold.
std::optional<uint64_t> timeOf(const std::string& text);
/// Seconds since 1904 of a file's last change. Throws Failure.
uint64_t lastChangeOf(const std::string& path);

/// A finite number, with a full stop. Throws WrongArguments, with the name of what it is for.
double numberOf(const std::string& text, const std::string& name);

} // namespace edit
