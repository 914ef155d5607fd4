// The toolkit's edits from the shell.

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "GPSInfo.h"
#include "MP4Container.h"
#include "SpatialSound.h"

namespace {

using Brisa::Console;
using Brisa::FileIO;
using MP4::Container;

std::wstring widened(const std::string& path) {
    std::wstring wide = Brisa::wchar::mbs2wcs(path);
    if (Brisa::wchar::wcs2mbs(wide).c_str() != path) {
        throw CLI::ValidationError(path, "a path that this locale cannot express");
    }
    return wide;
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) {
        throw CLI::FileError::Missing(path);
    }
    return content;
}

/// As a person may see it in any locale.
std::wstring shown(const std::string& text) {
    std::wstring wide = Brisa::wchar::mbs2wcs(text);
    if (Brisa::wchar::wcs2mbs(wide).c_str() != text) {
        wide.resize(text.size());
        std::transform(text.begin(), text.end(), wide.begin(),
                       [](char byte) { return byte > 0 ? static_cast<wchar_t>(byte) : L'?'; });
    }
    return wide;
}

/// A new file, written beside the place it is for; gone with the object unless it got there.
class Draft {
public:
    /// Refuses a place where it would harm another file, or one of those that it is made from.
    Draft(const std::string& place_, std::initializer_list<std::string> sources)
        : path(widened(place_) + L".part"), place(widened(place_)) {
        const bool isSource = std::any_of(sources.begin(), sources.end(), [&](const std::string& source) {
            std::error_code missing;
            return std::filesystem::equivalent(source, place_, missing);
        });
        if (isSource || !FileIO::isFree(place) || !FileIO::isFree(path)) {
            throw CLI::ValidationError(place_, "no place for a new file");
        }
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft() {
        if (!inPlace) {
            FileIO::unlink(path);
        }
    }

    bool finish() {
        inPlace = FileIO::rename(path, place);
        return inPlace;
    }

    const std::wstring path;

private:
    const std::wstring place;
    bool inPlace = false;
};

bool copyFile(const std::wstring& from, const std::wstring& to) {
    bool copied = false;
    FileIO::open(from, [&](FileIO& source) {
        FileIO::open_w(to, [&](FileIO& copy) {
            const uint64_t length = source.length();
            copied = source.copyTo(copy, length) == length && !source.failed();
        });
    });
    return copied;
}

/// What the command line may give; each subcommand takes some of it.
struct Arguments {
    std::string file;
    std::string output;
    std::string other; ///< a second file: a text, a box, another MP4 file
    std::string position;
    std::string tool = "pellmor-edit";
    std::optional<double> compass;
    unsigned long long time = 0;
    double start = 0;
    double end = -1;
    bool on = false;
};

class Commands {
public:
    using Work = std::function<bool(Container&)>;

    Arguments given;

    explicit Commands(CLI::App& app_) : app(app_) { app.require_subcommand(1); }

    /// A subcommand that looks at a file. `work` gets the attached container and tells whether it succeeded.
    CLI::App* looking(const std::string& name, const std::string& description, Work work) {
        CLI::App* const command = app.add_subcommand(name, description);
        command->add_option("FILE", given.file, "MP4 file")->required();
        command->callback([this, work = std::move(work)] { chosen = work; });
        return command;
    }
    /// A subcommand that changes the file as it stands, or, with -o, a copy of it.
    CLI::App* editing(const std::string& name, const std::string& description, Work work) {
        const auto onWholeTree = [work = std::move(work)](Container& container) {
            if (container.incomplete()) {
                Console::err(L"pellmor-edit: %ls could not be read whole\n", container.path.c_str());
            }
            return !container.incomplete() && work(container);
        };
        CLI::App* const command = looking(name, description, onWholeTree);
        command->add_option("-o,--output", given.output, "leave FILE as it is and write the result here")
            ->check([](const std::string& path) { return path.empty() ? "an empty path" : ""; });
        return command;
    }
    /// A subcommand that always writes a new file: in the place of the old one or, with -o, beside it.
    CLI::App* rewriting(const std::string& name, const std::string& description, Work work) {
        CLI::App* const command = editing(name, description, std::move(work));
        command->parse_complete_callback([this] { rewrites = true; });
        return command;
    }

    bool run() const {
        bool done = false;
        try {
            const std::wstring file = widened(given.file);
            if (given.output.empty()) {
                done = runOn(file, nullptr);
            } else {
                Draft draft(given.output, {given.file, given.other});
                done = (rewrites ? runOn(file, draft.path.c_str())
                                 : copyFile(file, draft.path) && runOn(draft.path, nullptr)) &&
                       draft.finish();
            }
        } catch (const std::exception& error) {
            Console::err(L"pellmor-edit: %ls\n", shown(error.what()).c_str());
        }
        if (!done) {
            Console::err(L"pellmor-edit: nothing was changed\n");
        }
        return done;
    }

private:
    bool runOn(const std::wstring& file, const wchar_t* output) const {
        Container container;
        container.keepContents = !rewrites;
        container.outputPath = output;
        const bool done = container.attach(file) && chosen(container);
        const bool unchanged = container.outputPath != nullptr;
        return done && (!unchanged || copyFile(file, output));
    }

    CLI::App& app;
    bool rewrites = false;
    Work chosen;
};

/// Runs the work on the first box at `boxPath` of another MP4 file.
bool withBoxOf(const std::string& path, const char* boxPath,
               const std::function<bool(FileIO&, const MP4::BOX&)>& work) {
    Container other;
    other.keepContents = false;
    if (!other.attach(widened(path))) {
        return false;
    }
    const MP4::BOX* const box = other.root->first(boxPath);
    if (box == nullptr || box->wholeEnd(other.root->boxSize) != box->end()) {
        Console::err(L"pellmor-edit: %ls has no whole %s\n", shown(path).c_str(), boxPath);
        return false;
    }
    bool done = false;
    other.open([&](FileIO& file) { done = work(file, *box); });
    return done;
}

GPSInfo positionIn(const Arguments& given) {
    GPSInfo position;
    position.attachRXYZ(given.position.c_str());
    if (!position.latitude.valid || !position.longitude.valid) {
        throw CLI::ValidationError("position '" + given.position + "'", "not like +35.6895+139.6917/");
    }
    if (given.compass) {
        position.attachCompass(*given.compass);
    }
    return position;
}

void addLayout(Commands& commands) {
    Arguments& given = commands.given;
    commands.looking("dump", "Print the box tree", [](Container& container) {
        container.dump();
        return true;
    });
    commands.rewriting(
        "moov-first", "Put moov ahead of mdat, so that playback can start early",
        [](Container& container) { return !container.isMdatFirst() || container.moovFirst(); });
    commands
        .editing("set-time", "Set the creation time of the movie and all tracks",
                 [&given](Container& container) { return container.updateTimeStamp(given.time); })
        ->add_option("SECONDS", given.time, "seconds since 1904-01-01 UTC")
        ->check(CLI::Range(0.0, 4294967295.0))
        ->required();
}

void addMetadata(Commands& commands) {
    Arguments& given = commands.given;
    CLI::App* command = commands.rewriting("location", "Add location boxes", [&given](Container& container) {
        return container.appendLocationAndSphericalVideoXML(
            positionIn(given), given.other.empty() ? "" : contentOf(given.other));
    });
    command->add_option("POSITION", given.position, "ISO 6709 text in degrees, +35.6895+139.6917/")
        ->required();
    command->add_option("--spherical", given.other, "file with spherical-video XML to be added as well");

    commands.rewriting("remove-bad-location", "Take out a loci box of the malformed size of 28 bytes",
                       [](Container& container) { return container.removeBadLOCI(); });
    commands
        .rewriting("gps-meta", "Copy the meta box of another file's moov",
                   [&given](Container& container) {
                       return withBoxOf(given.other, "moov.meta", [&](FileIO& source, const MP4::BOX& meta) {
                           return container.appendGpsMeta(source, meta.offset, meta.boxSize);
                       });
                   })
        ->add_option("SOURCE", given.other, "MP4 file")
        ->required();
    commands
        .rewriting("spherical", "Add spherical-video XML to the video track, or replace it",
                   [&given](Container& container) {
                       return container.appendSphericalVideoXML(contentOf(given.other));
                   })
        ->add_option("XML", given.other, "file with the XML")
        ->required();

    command = commands.editing("xmp", "Append an XMP packet", [&given](Container& container) {
        return container.appendXMP(given.other.empty()
                                       ? positionIn(given).to_XMP_string(given.tool.c_str(), false, "")
                                       : contentOf(given.other));
    });
    CLI::Option* const packet = command->add_option("PACKET", given.other, "file with the packet");
    command->add_option("--position", given.position, "instead: a packet with this position")
        ->excludes(packet);
    command->add_option("--compass", given.compass, "and this direction, in degrees");
    command->add_option("--tool", given.tool, "and this creator tool")->check([](const std::string& name) {
        // What XML or the packet's own limits would make unreadable.
        constexpr size_t longest = 200;
        const bool plain = name.size() <= longest && std::all_of(name.begin(), name.end(), [](char c) {
                               return c >= ' ' && c <= '~' && c != '&' && c != '<' && c != '>';
                           });
        return plain ? "" : "not a plain name of up to 200 characters";
    });
    commands
        .editing("axis", "Append an axis description",
                 [&given](Container& container) { return container.appendAxis(contentOf(given.other)); })
        ->add_option("AXIS", given.other, "file with the description")
        ->required();
}

void addVideo(Commands& commands) {
    Arguments& given = commands.given;
    commands
        .editing("full-range", "Mark the video as full range or not, and set constraint_set1_flag",
                 [&given](Container& container) {
                     const bool present =
                         container.root->first("moov.trak.mdia.minf.stbl.stsd.avc1.avcC") != nullptr;
                     if (!present) {
                         Console::err(L"pellmor-edit: %ls has no H.264 video\n", container.path.c_str());
                     }
                     return present && container.appendFullRangeAndConstrainedSet1Flag(given.on);
                 })
        ->add_option("RANGE", given.on, "on or off")
        ->check(CLI::IsMember({"on", "off"}))
        ->required();
    commands
        .rewriting("replace-udta", "Put a box in the place of the movie's user data",
                   [&given](Container& container) {
                       const std::string content = contentOf(given.other);
                       if (content.size() < MP4::BOX::compactHeader ||
                           MP4::loadBigEndian<uint32_t>(content.data()) != content.size()) {
                           throw CLI::ValidationError(given.other, "not one whole box");
                       }
                       ByteArray box;
                       box.assign(content.data(), content.size());
                       return container.replaceUdta(0, box);
                   })
        ->add_option("BOX", given.other, "file with the box, header included")
        ->required();
}

void addSound(Commands& commands) {
    Arguments& given = commands.given;
    const auto withRange = [&given](CLI::App* command) {
        command->add_option("--start", given.start, "seconds");
        command->add_option("--end", given.end, "seconds; negative: to the end");
        return command;
    };
    withRange(commands.editing(
                  "append-sound", "Append the spatial sound of another file, or a stretch of it",
                  [&given](Container& container) {
                      return withBoxOf(given.other, "uuid.ZADT", [&](FileIO& source, const MP4::BOX& data) {
                          const MP4::BOX& block = *data.parent;
                          MP4::SpatialSound sound;
                          if (!sound.attach(widened(given.other), given.start, given.end)) {
                              return false;
                          }
                          return sound.trimmed
                                     ? container.trimSpatialData(source, block.offset, sound)
                                     : container.appendSpatialData(source, block.offset, block.boxSize);
                      });
                  }))
        ->add_option("SOURCE", given.other, "MP4 file")
        ->required();
    const auto dumping = [&](const char* name, const char* description, auto dump) {
        const auto work = [&given, dump](Container& container) {
            // From 0 to the end there would be nothing to cut; from the least time above 0 it is the same
            // sound.
            const double least = std::numeric_limits<double>::denorm_min();
            const double start = given.end < 0 ? std::max(given.start, least) : given.start;
            MP4::SpatialSound sound;
            if (!sound.attach(container.path, start, given.end) || !sound.trimmed) {
                Console::err(L"pellmor-edit: %ls has no such sound\n", container.path.c_str());
                return false;
            }
            Draft draft(given.other, {given.file});
            const uint64_t size = dump(sound, container, draft.path);
            std::error_code missing;
            const bool whole =
                std::filesystem::file_size(Brisa::wchar::wcs2mbs(draft.path).c_str(), missing) == size;
            if (!whole) {
                Console::err(L"pellmor-edit: %ls could not be written whole\n", draft.path.c_str());
            }
            return whole && draft.finish();
        };
        withRange(commands.looking(name, description, work))
            ->add_option("OUT", given.other, "file to be written")
            ->required();
    };
    // Each gives the size that the file should have: the dumps themselves tell nothing.
    dumping("sound-to-wav", "Write a stretch of the spatial sound to a WAV file",
            [](const MP4::SpatialSound& sound, const Container& container, const std::wstring& out) {
                constexpr uint64_t wavHeader = 44;
                sound.dumpWAV(container, out);
                return wavHeader + sound.endOffset - sound.startOffset;
            });
    dumping("sound-track", "Write the track box that describes a stretch of the spatial sound",
            [](const MP4::SpatialSound& sound, const Container&, const std::wstring& out) {
                sound.dump(out);
                return uint64_t{sound.trimmedTrack.size()};
            });
}

} // namespace

int main(int argc, char** argv) {
    // Paths are in the user's encoding; numbers and messages stay as in the POSIX locale.
    std::setlocale(LC_CTYPE, "");
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);

    CLI::App app("Edits MP4 files. An edit succeeds wholly, or leaves the file as it was.");
    Commands commands(app);
    addLayout(commands);
    addMetadata(commands);
    addVideo(commands);
    addSound(commands);
    CLI11_PARSE(app, argc, argv);
    const bool done = commands.run();
    return done && std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
