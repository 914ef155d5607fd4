#include "Brisa/BrisaFileIO.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Brisa/BrisaConsole.h"

namespace Brisa {

namespace {

constexpr int noDescriptor = 0;
constexpr mode_t newFilePermissions = 0644;
constexpr mode_t permissionBits = 07777;
constexpr mode_t accessBits = 0777; ///< without those that lend the owner's rights
constexpr size_t conversionLimit = 2048;

int flagsOf(int mode) {
    switch (mode) {
    case 'a':
        return O_RDWR;
    case 'w':
        return O_WRONLY | O_CREAT | O_TRUNC;
    default:
        return O_RDONLY;
    }
}

/// A file opened while standard input, output or error is closed would take its number.
int movedPastStandardStreams(int descriptor) {
    if (descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(descriptor);
    return moved;
}

template <class Transfer>
uint64_t uninterrupted(Transfer transfer) {
    ssize_t result;
    do {
        result = transfer();
    } while (result == -1 && errno == EINTR);
    return static_cast<uint64_t>(result);
}

} // namespace

FileIO::FileIO(const std::wstring& path_, int mode_) : path(path_), mode(mode_) {
    const std::string name = wchar::wcs2mbs(path);
    int opened = ::open(name.c_str(), flagsOf(mode) | O_CLOEXEC, newFilePermissions);
    if (opened != -1) {
        opened = movedPastStandardStreams(opened);
    }
    if (opened == -1) {
        Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), mode);
    }
    descriptor = opened == -1 ? noDescriptor : opened;
}

FileIO::~FileIO() {
    if (isOpen()) {
        ::close(descriptor);
    }
}

uint64_t FileIO::length() const {
    return identity().length;
}

uint64_t FileIO::read(void* buffer, uint64_t count) {
    if (!isOpen()) {
        return ~uint64_t{0};
    }
    const uint64_t got = uninterrupted([&] { return ::read(descriptor, buffer, count); });
    faulty = faulty || got == ~uint64_t{0};
    offset += got == ~uint64_t{0} ? 0 : got;
    return got;
}

uint64_t FileIO::write(const void* buffer, uint64_t count) {
    if (!isOpen()) {
        return ~uint64_t{0};
    }
    const uint64_t written = uninterrupted([&] { return ::write(descriptor, buffer, count); });
    faulty = faulty || written == ~uint64_t{0};
    offset += written == ~uint64_t{0} ? 0 : written;
    return written;
}

bool FileIO::seek_set(uint64_t position) {
    return seek(static_cast<off_t>(position), SEEK_SET, L"seek_set(%lld) failed - %ls(%d)\n");
}

bool FileIO::seek_cur(int64_t distance) {
    return seek(distance, SEEK_CUR, L"seek_cur(%lld) failed - %ls(%d)\n");
}

bool FileIO::seek(int64_t distance, int whence, const wchar_t* failure) {
    if (!isOpen()) {
        return false;
    }
    const off_t reached = ::lseek(descriptor, distance, whence);
    if (reached == -1) {
        const int error = errno;
        faulty = true;
        Console::out(failure, static_cast<long long>(distance), wchar::mbs2wcs(std::strerror(error)).c_str(),
                     error);
        return false;
    }
    offset = static_cast<uint64_t>(reached);
    return true;
}

bool FileIO::truncate(uint64_t size) const {
    return isOpen() && ::ftruncate(descriptor, static_cast<off_t>(size)) == 0;
}

bool FileIO::sync() const {
    return isOpen() && ::fsync(descriptor) == 0;
}

bool FileIO::adoptPermissions(const FileIO& other) const {
    struct stat status {};
    if (!isOpen() || !other.isOpen() || ::fstat(other.descriptor, &status) != 0) {
        return false;
    }
    // Only a privileged process may give a file away; for any other the file is its own already.
    // The owner comes first, since changing it clears the set-user-ID bits.
    const bool given = ::fchown(descriptor, status.st_uid, status.st_gid) == 0;
    return ::fchmod(descriptor, status.st_mode & (given ? permissionBits : accessBits)) == 0;
}

bool FileIO::lock() const {
    return isOpen() && (::flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK);
}

FileIO::Identity FileIO::identity() const {
    struct stat status {};
    if (isOpen() && ::fstat(descriptor, &status) != 0) {
        faulty = true;
    }
    return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec};
}

bool FileIO::isFree(const std::wstring& path) {
    const std::string name = wchar::wcs2mbs(path);
    struct stat status {};
    if (wchar::mbs2wcs(name) != path) {
        return false;
    }
    return ::lstat(name.c_str(), &status) != 0 || (S_ISREG(status.st_mode) && status.st_nlink == 1);
}

bool FileIO::isFileAt(const std::wstring& other) const {
    struct stat here {};
    struct stat there {};
    return isOpen() && ::fstat(descriptor, &here) == 0 &&
           ::stat(wchar::wcs2mbs(other).c_str(), &there) == 0 && here.st_dev == there.st_dev &&
           here.st_ino == there.st_ino;
}

bool FileIO::rename(const std::wstring& from, const std::wstring& to) {
    return std::rename(wchar::wcs2mbs(from).c_str(), wchar::wcs2mbs(to).c_str()) == 0;
}

bool FileIO::unlink(const std::wstring& path) {
    return ::unlink(wchar::wcs2mbs(path).c_str()) == 0;
}

void expectBulk([[maybe_unused]] void* memory, [[maybe_unused]] uint64_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr size_t largePage = size_t{2} << 20;
    if (std::align(largePage, largePage, memory, bytes) != nullptr) {
        ::madvise(memory, bytes / largePage * largePage, MADV_HUGEPAGE);
    }
#endif
}

std::string wchar::wcs2mbs(const std::wstring& text) {
    std::string converted(std::min(6 * text.size(), conversionLimit), '\0');
    std::wcstombs(converted.data(), text.c_str(), converted.size());
    return converted;
}

std::wstring wchar::mbs2wcs(const std::string& text) {
    std::wstring converted(std::min(2 * text.size(), conversionLimit), L'\0');
    if (!converted.empty()) {
        std::mbstowcs(converted.data(), text.c_str(), converted.size());
    }
    converted.resize(std::wcslen(converted.c_str()));
    return converted;
}

} // namespace Brisa
