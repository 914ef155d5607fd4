// SPDX-License-Identifier: MIT
// The spatial sound of a recording, or a stretch of it.

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Input.h"
#include "Output.h"
#include "SpatialSound.h"

namespace edit {

namespace {

void stretchArguments(CLI::App& app, Options& options) {
    app.add_option("--start", options.start, "seconds");
    app.add_option("--end", options.end, "seconds; negative: to the end");
}

} // namespace

void appendSoundArguments(CLI::App& app, Options& options) {
    sourceArgument(app, options);
    stretchArguments(app, options);
}

void soundOutArguments(CLI::App& app, Options& options) {
    fileArgument(app, options);
    app.add_option("OUT", options.output, "file to be written")->required();
    app.add_flag("--force", options.force, "replace OUT if it is there");
    stretchArguments(app, options);
}

Work appendSound(const Options& options) {
    return [source = options.input, start = options.start, end = options.end](Job& job) {
        MP4::Container& container = job.container;
        if (container.isSpatialDataExist()) {
            return job.nothingToDo("spatial sound is there");
        }
        const auto append = [&](Brisa::FileIO& file, const MP4::BOX& data) {
            const MP4::BOX& block = *data.parent;
            MP4::SpatialSound sound;
            if (!sound.attach(widened(source), start, end)) {
                return false;
            }
            return sound.trimmed ? container.trimSpatialData(file, block.offset, sound)
                                 : container.appendSpatialData(file, block.offset, block.boxSize);
        };
        return withBoxOf(source, "uuid.ZADT", append)
                   ? job.done([&] { return "spatial sound of " + source + " put in"; })
                   : job.failed("the spatial sound could not be put in");
    };
}

namespace {

/// Takes the stretch of a file's sound that the command line names; whether there is any.
bool takeStretch(Job& job, MP4::SpatialSound& sound) {
    MP4::Container& container = job.container;
    container.keepContents = false;
    return container.attach(job.path) && !container.incomplete() && sound.locate(container) &&
           sound.cover(job.options.start, job.options.end);
}

using Dump = bool (*)(MP4::SpatialSound&, const MP4::Container&, const std::wstring&);

Work dumping(Dump dump) {
    return [dump](Job& job) {
        MP4::SpatialSound sound;
        if (!takeStretch(job, sound)) {
            return job.failed("has no such sound");
        }
        return writeFile(job, [&](const std::wstring& path) { return dump(sound, job.container, path); });
    };
}

} // namespace

Work soundToWav(const Options&) {
    return dumping([](MP4::SpatialSound& sound, const MP4::Container& container, const std::wstring& out) {
        return sound.dumpWAV(container, out);
    });
}

Work soundTrack(const Options&) {
    return dumping([](MP4::SpatialSound& sound, const MP4::Container& container, const std::wstring& out) {
        return sound.buildTrimmedZATR(container) && sound.dump(out);
    });
}

} // namespace edit
