// SPDX-License-Identifier: MIT
// The spatial sound of a recording, or a stretch of it.

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "Commands.h"
#include "Output.h"
#include "SideFile.h"
#include "SpatialSound.h"

namespace edit {

namespace {

void stretchArguments(CLI::App& app, Options& options) {
    numberOption(app, "--start", "seconds", [&options](double seconds) { options.start = seconds; });
    numberOption(app, "--end", "seconds; negative: to the end",
                 [&options](double seconds) { options.end = seconds; });
}

bool isAll(const Options& options) {
    return options.start <= 0 && options.end < 0;
}

void demandStretch(const Options& options) {
    if (options.start < 0) {
        throw WrongArguments("--start: a sound begins at 0");
    }
    if (options.end >= 0 && options.end < options.start) {
        throw WrongArguments("--end: ahead of --start");
    }
}

/// Finds the sound of a recording, which messages call `name`, and takes the stretch of it that the command
/// line names. Throws Failure.
void takeStretch(const MP4::Container& container, const std::string& name, const Options& options,
                 MP4::SpatialSound& sound) {
    demand(!container.incomplete(), name + "could not be read whole");
    const bool located = sound.locate(container);
    if (sound.dataLength == 0) {
        throw Failure(name + "has no spatial sound");
    }
    demand(located, name + "its spatial sound cannot be read");
    if (sound.timeScale == 0 || sound.sampleSize == 0) {
        throw Failure(name + "its spatial sound tells no time scale, or no size of a sample");
    }
    const uint64_t samples = sound.dataLength / sound.sampleSize;
    const double seconds = static_cast<double>(samples) / sound.timeScale;
    if (options.start > seconds || options.end > seconds) {
        throw Failure(name + formatted("its spatial sound ends at %.3f seconds", seconds));
    }
    if (options.end < 0 && sound.dataLength % sound.sampleSize != 0) {
        throw Failure(name + "its spatial sound is no whole number of samples");
    }
    demand(sound.cover(options.start, options.end), name + "its spatial sound cannot be cut");
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
    demandStretch(options);
    return {[](Job& job) {
        MP4::Container& container = job.container;
        if (container.isSpatialDataExist()) {
            return job.nothingToDo("spatial sound is there");
        }
        const std::string& name = job.options.input;
        MP4::Container source;
        attach(source, name);
        const MP4::BOX* const data = firstIn(source, "uuid.ZADT");
        if (data == nullptr || data->endWithin(source.root->boxSize) != data->end()) {
            throw Failure(name + ": has no whole spatial sound that could be taken");
        }
        MP4::SpatialSound sound;
        if (!isAll(job.options)) {
            takeStretch(source, name + ": ", job.options, sound);
            demand(sound.buildTrimmedZATR(source), name + ": its spatial sound cannot be cut");
        }
        bool done = false;
        source.open([&](Brisa::FileIO& file) {
            const MP4::BOX& block = *data->parent;
            done = isAll(job.options) ? container.appendSpatialData(file, block.offset, block.boxSize)
                                      : container.trimSpatialData(file, block.offset, sound);
        });
        demand(done, "the spatial sound could not be put in");
        job.done([&] { return "spatial sound of " + name + " put in"; });
    }};
}

namespace {

using Dump = bool (*)(MP4::SpatialSound&, const MP4::Container&, const std::wstring&);

Work dumping(const Options& options, Dump dump) {
    demandStretch(options);
    demandOther(options.files.front(), options.output);
    if (options.output == "-") {
        throw WrongArguments("OUT: a sound is written to a path; /dev/stdout is one");
    }
    return {[dump](Job& job) {
        MP4::SpatialSound sound;
        takeStretch(attached(job), "", job.options, sound);
        writeFile(job, [&](const std::wstring& path) { return dump(sound, job.container, path); });
    }};
}

} // namespace

Work soundToWav(const Options& options) {
    return dumping(options, [](MP4::SpatialSound& sound, const MP4::Container& container,
                               const std::wstring& out) { return sound.dumpWAV(container, out); });
}

Work soundTrack(const Options& options) {
    return dumping(options,
                   [](MP4::SpatialSound& sound, const MP4::Container& container, const std::wstring& out) {
                       return sound.buildTrimmedZATR(container) && sound.dump(out);
                   });
}

} // namespace edit
