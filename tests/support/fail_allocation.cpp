// SPDX-License-Identifier: MIT
// Preloaded into a process: from the first opening of a file below FAIL_FOLDER on, allocations are counted, the one with the number
// FAIL_AT fails, and with FAIL_REST all behind it. The count is written to FAIL_COUNT at the end.

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

static bool counting = false;
static long count = 0;

static bool fails() {
    static const char* const at = std::getenv("FAIL_AT");
    static const bool rest = std::getenv("FAIL_REST") != nullptr;
    static const long number = at == nullptr ? 0 : std::atol(at);
    if (!counting) {
        return false;
    }
    ++count;
    const bool failing = number > 0 && (count == number || (rest && count > number));
    errno = failing ? ENOMEM : errno;
    return failing;
}

void* malloc(size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(size_t items, size_t size) {
    return fails() ? nullptr : __libc_calloc(items, size);
}

void* realloc(void* memory, size_t size) {
    return fails() ? nullptr : __libc_realloc(memory, size);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const char* const folder = std::getenv("FAIL_FOLDER");
    counting = counting || (folder != nullptr && std::strncmp(path, folder, std::strlen(folder)) == 0);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

__attribute__((destructor)) static void tell() {
    counting = false;
    if (const char* const path = std::getenv("FAIL_COUNT")) {
        FILE* const file = std::fopen(path, "w");
        std::fprintf(file, "%ld", count);
        std::fclose(file);
    }
}
}
