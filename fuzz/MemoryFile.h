#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/// A file in memory that can be opened by path, and a console that prints nowhere.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : descriptor(::memfd_create("input", MFD_CLOEXEC)) {
        static FILE* const silenced = std::freopen("/dev/null", "w", stdout);
        if (descriptor == -1 || silenced == nullptr ||
            ::write(descriptor, data, size) != static_cast<ssize_t>(size)) {
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
