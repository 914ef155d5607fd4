// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

#include "GPSInfo.h"
#include "MP4Container.h"

inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Lets the console print nowhere.
inline void silenceConsole() {
    static FILE* const silenced = std::freopen("/dev/null", "w", stdout);
    require(silenced != nullptr);
}

/// The file of this process, in memory; gone with it, unless it crashes.
inline const std::string& path() {
    static const struct File {
        std::string name = "/dev/shm/pellmor-fuzz-" + std::to_string(::getpid()) + ".mp4";
        ~File() { ::unlink(name.c_str()); }
    } file;
    return file.name;
}

inline std::wstring widePath() {
    return {path().begin(), path().end()};
}

inline std::string content() {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write(const std::string& bytes) {
    std::ofstream(path(), std::ios::binary) << bytes;
}

/// One of the edits of a movie; false for a choice beyond them.
inline bool edit(int choice, MP4::Container& container) {
    GPSInfo position;
    position.attachRXYZ("+35.6895+139.6917/");
    ByteArray userData;
    userData.assign("\0\0\0\x24udta\0\0\0\x1Cname any twenty bytes...", 36);
    switch (choice) {
    case 0:
        return container.moovFirst();
    case 1:
        return container.appendLocations(position);
    case 2:
        return container.appendLocationAndSphericalVideoXML(position, "<xml/>");
    case 3:
        return container.removeBadLOCI();
    case 4:
        return container.replaceUdta(0, userData);
    case 5:
        return container.appendFullRangeAndConstrainedSet1Flag(true);
    case 6:
        return container.appendXMP("<xmp/>");
    case 7:
        return container.updateTimeStamp(12345);
    case 8:
        return container.replaceLocations(position);
    case 9:
        return container.removeLocations();
    default:
        return false;
    }
}
