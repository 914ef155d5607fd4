// SPDX-License-Identifier: MIT
#include "Commands.h"

#include <utility>

#include <CLI/CLI.hpp>

#include "Values.h"

namespace edit {

namespace {

constexpr const char* looking = "Looking";
constexpr const char* kinds = "What a recording carries";
constexpr const char* metadata = "Where it was made";
constexpr const char* layout = "Layout and time";
constexpr const char* video = "Video";
constexpr const char* sound = "Spatial sound";

} // namespace

void fileArgument(CLI::App& app, Options& options) {
    const auto take = [&options](const std::string& file) { options.files = {file}; };
    app.add_option_function<std::string>("FILE", take, "MP4 file")->required();
}

CLI::Option* outputOption(CLI::App& app, Options& options, const char* what) {
    const auto named = [](const std::string& path) { return path.empty() ? "an empty path" : ""; };
    CLI::Option* const output = app.add_option("-o,--output", options.output, what)->check(named);
    app.add_flag("--force", options.force, "replace OUTPUT if it is there")->needs(output);
    return output;
}

void numberOption(CLI::App& app, const char* name, const char* what, std::function<void(double)> take) {
    const auto read = [name, take = std::move(take)](const std::string& text) { take(numberOf(text, name)); };
    app.add_option_function<std::string>(name, read, what);
}

const std::vector<Command>& commands() {
    static const std::vector<Command> table{
        {"info", looking, Form::looks, "Tell what a recording is and what it carries", "info video.mp4",
         jsonArgument, info},
        {"dump", looking, Form::extracts, "Print the box tree", "dump video.mp4", dumpArguments, dump},
        {"picture", looking, Form::extracts, "Draw how a file is laid out, as a page for a browser",
         "picture video.mp4 -o video.html", pictureArguments, picture},
        {"check", looking, Form::looks, "Tell what is wrong with a file, or left over in it", "check *.mp4",
         nullptr, check},
        {"repair", looking, Form::edits, "Take away what an interrupted edit left behind", "repair video.mp4",
         nullptr, repair},

        {"get", kinds, Form::extracts, "Write out the content of a kind", "get map video.mp4 -o map.bin",
         getArguments, get},
        {"put", kinds, Form::edits, "Put in the content of a kind", "put map map.bin video.mp4", putArguments,
         put},
        {"remove", kinds, Form::edits, "Take out the content of a kind", "remove map video.mp4",
         removeArguments, remove},

        {"location", metadata, Form::edits, "Set the position", "location 35.6895,139.6917 video.mp4",
         locationArguments, location},
        {"remove-bad-location", metadata, Form::edits,
         "Take out a loci box of the malformed size of 28 bytes", "remove-bad-location video.mp4", nullptr,
         removeBadLocation},
        {"gps-meta", metadata, Form::edits, "Copy the meta box of another recording's moov",
         "gps-meta source.mp4 video.mp4", sourceArgument, gpsMeta},

        {"moov-first", layout, Form::edits, "Put moov ahead of mdat, so that playback can start early",
         "moov-first video.mp4", nullptr, moovFirst},
        {"set-time", layout, Form::edits, "Set the creation time of the movie and all tracks",
         "set-time 2026-11-23T10:00:00+09:00 video.mp4", timeArgument, setTime},

        {"full-range", video, Form::edits,
         "Mark H.264 video as full range or not, and set constraint_set1_flag", "full-range on video.mp4",
         rangeArgument, fullRange},

        {"append-sound", sound, Form::edits,
         "Append the spatial sound of another recording, or a stretch of it",
         "append-sound source.mp4 video.mp4 --start 1.5 --end 4", appendSoundArguments, appendSound},
        {"sound-to-wav", sound, Form::extracts, "Write the sound, or a stretch of it, to a WAV file",
         "sound-to-wav video.mp4 sound.wav --end 10", soundOutArguments, soundToWav},
        {"sound-track", sound, Form::extracts,
         "Write the track box that describes the sound, or a stretch of it",
         "sound-track video.mp4 track.box", soundOutArguments, soundTrack},
    };
    return table;
}

} // namespace edit
