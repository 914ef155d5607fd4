#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/// Lets the console print nowhere.
inline void silenceConsole() {
    static FILE* const silenced = std::freopen("/dev/null", "w", stdout);
    if (silenced == nullptr) {
        std::abort();
    }
}

/// A file in memory that can be opened by path.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : descriptor(::memfd_create("input", MFD_CLOEXEC)) {
        if (descriptor == -1 || ::write(descriptor, data, size) != static_cast<ssize_t>(size)) {
            std::abort();
        }
    }
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(descriptor); }

private:
    int descriptor;
};
