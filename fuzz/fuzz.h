#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

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
