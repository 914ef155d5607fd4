// SPDX-License-Identifier: MIT
// Where things lie in a recording, and when it was made.

#include <set>

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "Commands.h"
#include "Text.h"
#include "Values.h"

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

/// The creation times that the headers with room for one tell: seconds since 1904.
std::set<uint64_t> creationTimes(const MP4::Container& container) {
    constexpr uint64_t smallest = 8 + 4 + 4; // the box's own header, version and flags, the time
    std::set<uint64_t> times;
    const auto add = [&](const MP4::BOX& box, uint64_t time) {
        if (box.endWithin(container.root->boxSize) - box.offset >= smallest) {
            times.insert(time);
        }
        return true;
    };
    if (const auto* const header = MP4::as<MP4::MVHD>(firstIn(container, "moov.mvhd"))) {
        add(*header, header->timeStamp);
    }
    findIn(container, "moov.trak.tkhd",
           [&](const MP4::BOX& box) { return add(box, static_cast<const MP4::TKHD&>(box).timeStamp); });
    findIn(container, "moov.trak.mdia.mdhd",
           [&](const MP4::BOX& box) { return add(box, static_cast<const MP4::MDHD&>(box).timeStamp); });
    return times;
}

} // namespace

Work moovFirst(const Options&) {
    return {[](Job& job) {
                MP4::Container& container = job.container;
                if (container.moov == nullptr) {
                    throw Failure("has no movie (moov)");
                }
                if (!container.isMdatFirst()) {
                    return job.nothingToDo("moov is first");
                }
                demand(container.moovFirst(), "moov could not be moved");
                job.done([&] {
                    const MP4::MOOV* const moov = container.moov;
                    return moov == nullptr
                               ? "moov moved"
                               : "moov moved to " + grouped(moov->offset) + " (" + byteCount(moov->boxSize) +
                                     "), " + grouped(chunksOf(container)) + " offsets";
                });
            },
            Result::newFile};
}

void timeArgument(CLI::App& app, Options& options) {
    app.add_option("TIME", options.value,
                   "ISO 8601 (2026-11-23T10:00:00+09:00; without a zone UTC) or a date, @SECONDS since 1970, "
                   "1904:SECONDS, now, or file (its last change)")
        ->required();
}

Work setTime(const Options& options) {
    return {[given = timeOf(options.value)](Job& job) {
        const uint64_t time = given ? *given : lastChangeOf(job.name);
        const std::string shown = dateText(static_cast<int64_t>(time) - secondsFrom1904To1970);
        const std::set<uint64_t> told = creationTimes(job.container);
        if (told.empty()) {
            throw Failure("has no header that could hold a creation time");
        }
        if (told == std::set{time}) {
            return job.nothingToDo("it tells " + shown);
        }
        demand(job.container.updateTimeStamp(time), "the time could not be set");
        job.done([&] { return "created " + shown; });
    }};
}

} // namespace edit
