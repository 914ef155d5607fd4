// SPDX-License-Identifier: MIT
// Where things lie in a recording, and when it was made.

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Input.h"
#include "Tree.h"

namespace edit {

namespace {

/// Chunk offsets of all tracks, as their tables state them.
uint64_t chunksOf(const MP4::Container& container) {
    uint64_t chunks = 0;
    for (const char* table : {"moov.trak.mdia.minf.stbl.stco", "moov.trak.mdia.minf.stbl.co64"}) {
        findIn(container, table, [&](MP4::BOX& box) {
            chunks += static_cast<const MP4::STCO&>(box).entryCount;
            return true;
        });
    }
    return chunks;
}

/// Whether there is a header with room for a creation time.
bool hasHeader(const MP4::Container& container) {
    constexpr uint64_t smallest = 8 + 4 + 4; // the box's own header, version and flags, the time
    bool found = false;
    for (const char* path : {"moov.mvhd", "moov.trak.tkhd", "moov.trak.mdia.mdhd"}) {
        findIn(container, path, [&](const MP4::BOX& box) {
            found = found || box.endWithin(container.root->boxSize) - box.offset >= smallest;
            return !found;
        });
    }
    return found;
}

} // namespace

Work moovFirst(const Options&) {
    return [](Job& job) {
        MP4::Container& container = job.container;
        if (container.moov == nullptr) {
            return job.failedFor("has no movie (moov)");
        }
        if (!container.isMdatFirst()) {
            return job.nothingToDo("moov is first");
        }
        if (!container.moovFirst()) {
            return job.failed("moov could not be moved");
        }
        return job.done([&] {
            const MP4::MOOV* const moov = container.moov;
            return moov == nullptr
                       ? "moov moved"
                       : "moov moved to " + grouped(moov->offset) + " (" + grouped(moov->boxSize) +
                             " bytes), " + grouped(chunksOf(container)) + " offsets";
        });
    };
}

void timeArgument(CLI::App& app, Options& options) {
    app.add_option("TIME", options.value,
                   "ISO 8601 (2026-11-23T10:00:00+09:00; without a zone UTC) or a date, @SECONDS since 1970, "
                   "1904:SECONDS, now, or file (its last change)")
        ->required();
}

Work setTime(const Options& options) {
    return [given = timeOf(options.value)](Job& job) {
        const uint64_t time = given ? *given : lastChangeOf(job.name);
        if (!hasHeader(job.container)) {
            return job.failedFor("has no header that could hold a creation time");
        }
        return job.container.updateTimeStamp(time) ? job.done([&] { return "created " + shownTime(time); })
                                                   : job.failed("the time could not be set");
    };
}

} // namespace edit
