// SPDX-License-Identifier: MIT
// Moves SLAM metadata between an MP4 file and a side file.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cwchar>
#include <exception>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaInterrupts.h"
#include "SlamMetaData.h"

using Brisa::Console;
using Brisa::FileIO;
using Brisa::Interrupts;

namespace {

constexpr int success = 0;
constexpr int argumentsError = -1;
constexpr int mapFileReadError = -2;
constexpr int mp4FileWriteError = -3;
constexpr int mp4FileReadError = -4;
constexpr int mapFileWriteError = -5;

constexpr int signalStatus = 128;

constexpr size_t convertedArguments = 4; ///< the program's name and the three that a command has
constexpr size_t longestArgument = 2048;

/// How a step, or the whole run, that could not be finished ends.
int failed(const wchar_t* message, int status) {
    Console::out(message);
    if (::isatty(STDOUT_FILENO) != 0) {
        Console::err(L"\n"); // keeps a prompt off the message's line
    }
    return status;
}

void report(const std::exception& error) {
    const bool memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    Console::err(L"Pellmor: %ls.\n",
                 memory ? L"not enough memory" : Brisa::wchar::fromBytes(error.what()).c_str());
}

/// Runs one step of a command; a step that runs out of memory has failed like any other.
template <class Step>
bool succeeds(Step step) {
    try {
        return step();
    } catch (const std::exception& error) {
        report(error);
        return false;
    }
}

/// Says why a step is not taken.
bool refused(const std::wstring& path, const wchar_t* reason) {
    Console::err(L"Pellmor: %ls %ls.\n", path.c_str(), reason);
    return true;
}

bool isPlainFile(const std::wstring& path) {
    std::error_code none;
    return std::filesystem::is_regular_file(Brisa::wchar::toBytes(path), none);
}

/// Whether a plain file begins with the box that a recording begins with.
bool beginsAsRecording(FileIO& file) {
    std::array<char, 8> header{};
    const bool read = file.isPlain() && file.readAll(header.data(), header.size()) == header.size();
    return file.failed() || (read && std::string_view(&header[4], 4) == "ftyp"); // or nobody can tell
}

/// Whether anything says that the file is a recording.
bool holdsRecording(const std::wstring& path) {
    FileIO file(path, 's');
    if (!file.isPlain()) {
        return false;
    }
    MP4::Container container;
    container.keepContents = false;
    MP4::BinFile view(file);
    container.parse(view, ~0ULL);
    const auto& boxes = container.root->children;
    return std::any_of(boxes.begin(), boxes.end(), [](const auto& box) {
        return box->tag == MP4::fourcc("ftyp") || box->tag == MP4::fourcc("moov") ||
               box->tag == MP4::fourcc("mdat");
    });
}

/// Whether writing the side file would destroy a recording.
bool destroysRecording(const std::wstring& mp4Path, const std::wstring& mapPath) {
    if (!isPlainFile(mapPath)) {
        return false;
    }
    FileIO side(mapPath, 's');
    if (!side.isOpen()) {
        return refused(mapPath, L"is there and cannot be read; it is not overwritten");
    }
    if (side.isFileAt(mp4Path)) {
        return refused(mapPath, L"is the MP4 file itself; it is not overwritten");
    }
    return beginsAsRecording(side) && refused(mapPath, L"is a recording; it is not overwritten");
}

/// Whether the two files are not what their places among the arguments say.
bool areMistaken(const std::wstring& mp4Path, FileIO& side, const std::wstring& mapPath) {
    if (side.isFileAt(mp4Path)) {
        return refused(mapPath, L"is the MP4 file itself; it is not put into itself");
    }
    return beginsAsRecording(side) && !holdsRecording(mp4Path) &&
           refused(mapPath, L"is a recording and the other file is none; they may be swapped");
}

int readFromMp4File(const SlamKind& kind, const std::wstring& mp4Path, const std::wstring& mapPath) {
    const SlamMetaData record(kind);
    bool isWritten = false;
    bool isUnread = false;
    const auto copy = [&](const SlamPayload& payload) {
        isWritten = succeeds([&] {
            return (payload.length() == 0 || !destroysRecording(mp4Path, mapPath)) &&
                   SlamMetaData::writeToMap(mapPath, payload);
        });
        isUnread = payload.failed();
    };
    if (!succeeds([&] { return record.openInMp4(mp4Path, copy) && !isUnread; })) {
        return failed(L"mp4File read error.", mp4FileReadError);
    }
    return isWritten ? success : failed(L"mapFile write error.", mapFileWriteError);
}

int writeToMp4File(const SlamKind& kind, const std::wstring& mp4Path, const std::wstring& mapPath) {
    SlamMetaData record(kind);
    FileIO side(mapPath, 's');
    const auto read = [&] {
        if (!side.isOpen()) {
            return errno != EINTR; // a side file that is not there is an empty one
        }
        return side.isPlain() ? SlamMetaData::fitsBox(side.length()) : record.readFromMap(side);
    };
    if (!succeeds(read)) {
        return failed(L"mapFile read error.", mapFileReadError);
    }
    const SlamPayload payload =
        side.isPlain() ? SlamPayload(side, 0, side.length()) : SlamPayload(record.binData);
    const auto write = [&] {
        const auto result = areMistaken(mp4Path, side, mapPath) ? SlamMetaData::Put::failed
                                                                : record.writeToMp4(mp4Path, payload);
        if (result == SlamMetaData::Put::other) {
            Console::err(L"Pellmor: %ls has another payload of this kind, which stays; "
                         L"\"pellmor-edit put --replace\" replaces it.\n",
                         mp4Path.c_str());
        }
        return result != SlamMetaData::Put::failed;
    };
    if (succeeds(write)) {
        return success;
    }
    return payload.failed() ? failed(L"mapFile read error.", mapFileReadError)
                            : failed(L"mp4File write error.", mp4FileWriteError);
}

struct Command {
    const wchar_t* pattern; ///< what argument 1 begins with
    const SlamKind& kind;
    bool writesMp4;

    [[nodiscard]] int run(const std::wstring& mp4Path, const std::wstring& mapPath) const {
        return (writesMp4 ? writeToMp4File : readFromMp4File)(kind, mp4Path, mapPath);
    }
};

/// Command n of 1 to 6 is row n - 1.
constexpr std::array<Command, 6> commands{{
    {L"-kind:rmap", SlamKind::map, false},
    {L"-kind:wmap", SlamKind::map, true},
    {L"-kind:rwalk", SlamKind::walk, false},
    {L"-kind:wwalk", SlamKind::walk, true},
    {L"-kind:raround", SlamKind::around, false},
    {L"-kind:waround", SlamKind::around, true},
}};

constexpr const wchar_t* usage = L"\n"
                                 L"Pellmor\n"
                                 L"usage: Pellmor [options] [mp4File] [mapFile]\n"
                                 L"  -kind:<pattern>\n"
                                 L"          rmap    : read map\n"
                                 L"          wmap    : write map\n"
                                 L"          rwalk   : read walk\n"
                                 L"          wwalk   : write walk\n"
                                 L"          raround : read around\n"
                                 L"          waround : write around\n"
                                 L"  mp4File     : mp4 file.\n"
                                 L"  mapFile     : map file.\n"
                                 L"\n";

/// Sets `command` to 1..6 by the kind argument, or prints the usage and returns false.
bool checkArguments(int argc, wchar_t** argv, int& command) {
    if (argc > 3) {
        const auto named = std::find_if(commands.begin(), commands.end(), [&](const Command& candidate) {
            return std::wcsncmp(argv[1], candidate.pattern, std::wcslen(candidate.pattern)) == 0;
        });
        if (named != commands.end()) {
            command = static_cast<int>(named - commands.begin()) + 1;
            return true;
        }
    }
    Console::out(L"arguments error.");
    Console::out(usage);
    return false;
}

/// Which file a path names, and how long it is: what stays the same when a change is undone.
struct Sight {
    std::filesystem::file_type type;
    uint64_t device;
    uint64_t number;
    uint64_t length;
    bool operator==(const Sight&) const = default;
};

Sight sightOf(const std::wstring& path) {
    std::error_code none;
    const auto type = std::filesystem::status(Brisa::wchar::toBytes(path), none).type();
    if (type != std::filesystem::file_type::regular) {
        return {type, 0, 0, 0};
    }
    const FileIO::Identity identity = FileIO(path, 's').identity();
    return {type, identity.device, identity.number, identity.length};
}

/// The status of a run that did not succeed, and that an interrupt may have ended.
int concluded(int status, const Sight& before, const Sight& after) {
    if (Interrupts::signal() == 0) {
        return status;
    }
    const bool isKnown = before.type == std::filesystem::file_type::regular ||
                         before.type == std::filesystem::file_type::not_found;
    Console::err(L"Pellmor: interrupted by %ls%ls\n", Interrupts::name(),
                 isKnown && before == after ? L"; nothing was changed" : L"");
    return signalStatus + Interrupts::signal();
}

int exec(int argc, wchar_t** argv) {
    Console::out(L"Pellmor.exe\n");
    int command = -1;
    if (!checkArguments(argc, argv, command)) {
        return argumentsError;
    }
    const std::wstring mp4Path = argv[2];
    const std::wstring mapPath = argv[3];
    Console::out(L"%ls %ls %ls\n", argv[1], argv[2], argv[3]);
    const Command& chosen = commands.at(static_cast<size_t>(command - 1));
    const std::wstring& changed = chosen.writesMp4 ? mp4Path : mapPath;
    const Sight before = sightOf(changed);
    const int status = chosen.run(mp4Path, mapPath);
    return status == success ? success : concluded(status, before, sightOf(changed));
}

std::wstring widened(const char* argument) {
    std::wstring wide = Brisa::wchar::fromBytes(argument);
    if (wide.size() > longestArgument) {
        Console::err(L"Pellmor: an argument of %zu characters is cut to its first %zu.\n", wide.size(),
                     longestArgument);
        wide.resize(longestArgument);
    }
    return wide;
}

} // namespace

int main(int argc, char** argv) try {
    Console::init_locale();
    Interrupts::remember();
    const Brisa::Watch watch(Interrupts::hook());

    std::array<std::wstring, convertedArguments> arguments;
    std::array<wchar_t*, convertedArguments> table{};
    for (size_t i = 0; i < arguments.size() && i < static_cast<size_t>(argc); ++i) {
        arguments[i] = widened(argv[i]);
        table[i] = arguments[i].data();
    }
    return exec(argc, table.data());
} catch (const std::exception& error) {
    report(error);
    return argumentsError;
}
