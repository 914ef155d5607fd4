// Moves SLAM metadata between an MP4 file and a side file.

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <cwchar>
#include <exception>
#include <string>

#include "AroundData.h"
#include "Brisa/BrisaConsole.h"
#include "MapData.h"
#include "WalkData.h"

using Brisa::Console;

namespace {

constexpr int success = 0;
constexpr int argumentsError = -1;
constexpr int mapFileReadError = -2;
constexpr int mp4FileWriteError = -3;
constexpr int mp4FileReadError = -4;
constexpr int mapFileWriteError = -5;

constexpr int convertedArguments = 10;
constexpr size_t longestArgument = 2048;

void report(const std::exception& error) {
    Console::err(L"Pellmor: not enough memory (%s).\n", error.what());
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

/// Whether both paths name one file, which writing the side file would destroy.
bool namesSameFile(const std::wstring& mp4Path, const std::wstring& mapPath) {
    bool same = false;
    Brisa::FileIO::open(mp4Path, [&](Brisa::FileIO& file) { same = file.isFileAt(mapPath); });
    if (same) {
        Console::err(L"Pellmor: %ls is the MP4 file itself; it is not overwritten.\n", mapPath.c_str());
    }
    return same;
}

template <class Record>
int readFromMp4File(const std::wstring& mp4Path, const std::wstring& mapPath) {
    Record record;
    if (!succeeds([&] { return record.readFromMp4(mp4Path); })) {
        Console::out(L"mp4File read error.");
        return mp4FileReadError;
    }
    const auto write = [&] {
        return (record.binData.empty() || !namesSameFile(mp4Path, mapPath)) && record.writeToMap(mapPath);
    };
    if (!succeeds(write)) {
        Console::out(L"mapFile write error.");
        return mapFileWriteError;
    }
    return success;
}

template <class Record>
int writeToMp4File(const std::wstring& mp4Path, const std::wstring& mapPath) {
    Record record;
    if (!succeeds([&] { return record.readFromMap(mapPath); })) {
        Console::out(L"mapFile read error.");
        return mapFileReadError;
    }
    if (!succeeds([&] { return record.writeToMp4(mp4Path); })) {
        Console::out(L"mp4File write error.");
        return mp4FileWriteError;
    }
    return success;
}

struct Command {
    const wchar_t* pattern; ///< what argument 1 begins with
    int (*run)(const std::wstring& mp4Path, const std::wstring& mapPath);
};

/// Command n of 1 to 6 is row n - 1.
constexpr std::array<Command, 6> commands{{
    {L"-kind:rmap", readFromMp4File<MapData>},
    {L"-kind:wmap", writeToMp4File<MapData>},
    {L"-kind:rwalk", readFromMp4File<WalkData>},
    {L"-kind:wwalk", writeToMp4File<WalkData>},
    {L"-kind:raround", readFromMp4File<AroundData>},
    {L"-kind:waround", writeToMp4File<AroundData>},
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

int exec(int argc, wchar_t** argv) {
    Console::out(L"Pellmor.exe\n");
    int command = -1;
    if (!checkArguments(argc, argv, command)) {
        return argumentsError;
    }
    const std::wstring mp4Path = argv[2];
    const std::wstring mapPath = argv[3];
    Console::out(L"%ls %ls %ls\n", argv[1], argv[2], argv[3]);
    return commands.at(static_cast<size_t>(command - 1)).run(mp4Path, mapPath);
}

/// As much of the argument as the locale can convert.
std::wstring widened(const char* argument) {
    std::wstring wide = Brisa::wchar::mbs2wcs(argument);
    if (wide.size() < std::min(std::strlen(argument), longestArgument)) {
        Console::err(L"Pellmor: warning: an argument is cut at its first byte that is not ASCII.\n");
    }
    return wide;
}

} // namespace

int main(int argc, char** argv) try {
    Console::init_locale();
    // A file size limit or a closed pipe makes a write fail; it must not end the process half-way.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);

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
