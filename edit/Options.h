// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace edit {

/// What the command line gave. Each command takes some of it; texts and paths are the bytes that were given.
struct Options {
    // What every command takes.
    std::vector<std::string> files;
    std::string list;       ///< names a file with more of them, "-" the standard input
    bool zeroBytes = false; ///< a zero byte, not a line's end, stands behind each of those
    bool quiet = false;     ///< no word about what succeeded
    bool verbose = false;   ///< the toolkit's own messages as well

    // What every command takes that changes a file.
    std::string output;    ///< where the result goes; empty: the file itself is changed
    bool force = false;    ///< whether `output` may be there already
    bool backup = false;   ///< whether the old file stays, as FILE~
    bool keepTime = false; ///< whether the time of last change stays
    bool rewrite = false;  ///< whether a new file is written even where the old one could be patched
    bool dryRun = false;   ///< whether only the plan is shown

    // What single commands take.
    std::string value;     ///< the position, time, kind or range that the command is about
    std::string input;     ///< a side file, or another recording
    std::string spherical; ///< a file with spherical-video XML
    std::string tool = "pellmor-edit";
    std::optional<double> compass; ///< degrees
    double start = 0;              ///< seconds
    double end = -1;               ///< seconds; negative: to the end
    bool xmp = false;              ///< whether an XMP packet with the position is written, too
    bool replace = false;          ///< whether other content may be replaced
    bool json = false;
};

} // namespace edit
