// SPDX-License-Identifier: MIT
#include "Brisa/BrisaFileIO.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/vfs.h>
#endif
#include <unistd.h>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaErrno.h"

namespace Brisa {

namespace {

constexpr int noDescriptor = 0;
constexpr mode_t newFilePermissions = 0644;
constexpr mode_t ownFilePermissions = 0600;
constexpr size_t conversionLimit = 2048;
constexpr uint32_t byteCharacters = 0x10FF00; ///< the first of 256 private code points, one for each byte
constexpr const char* quietModes = "xnes";
constexpr std::chrono::milliseconds lockPause{10};

int flagsOf(int mode) {
    switch (mode) {
    case 'a':
        return O_RDWR | O_NONBLOCK;
    case 'w':
        return O_WRONLY | O_CREAT | O_TRUNC;
    case 'x':
    case 'n':
        return O_RDWR | O_CREAT | O_EXCL; // which follows no link
    case 'e':
        return O_WRONLY | O_NONBLOCK;
    case 's':
        return O_RDONLY;
    default:
        return O_RDONLY | O_NONBLOCK;
    }
}

/// Calls of the system fail with -1; one that a signal interrupts is made again, if it may be.
template <class Call>
auto uninterrupted(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR && Watch::goOn());
    return result;
}

/// Closes what turned out to be of no use; errno says why it was.
int refused(int descriptor, int reason) {
    ::close(descriptor);
    errno = reason;
    return -1;
}

/// A file opened while standard input, output or error is closed would take its number.
int movedPastStandardStreams(int descriptor) {
    if (descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    refused(descriptor, errno);
    return moved;
}

int opened(const char* name, int mode) {
    const int flags = flagsOf(mode) | O_CLOEXEC | O_NOCTTY;
    const mode_t permissions = mode == 'x' ? ownFilePermissions : newFilePermissions;
    const int descriptor = uninterrupted([&] { return ::open(name, flags, permissions); });
    if (descriptor == -1 || (flags & O_NONBLOCK) == 0) {
        return descriptor;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return refused(descriptor, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return refused(descriptor, S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP);
    }
    return descriptor;
}

bool isByteCharacter(uint32_t code) {
    return (code & ~uint32_t{0xFF}) == byteCharacters;
}

/// The bytes of one character, at most six.
std::string bytesOf(wchar_t character) {
    const auto code = static_cast<uint32_t>(character);
    if (isByteCharacter(code)) {
        return {static_cast<char>(code & 0xFF)};
    }
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    const size_t count = std::wcrtomb(bytes, character, &state);
    if (count != static_cast<size_t>(-1)) {
        return {bytes, count};
    }
    const auto following = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x800) {
        return {static_cast<char>(0xC0 | code >> 6), following(0)};
    }
    if (code < 0x10000) {
        return {static_cast<char>(0xE0 | code >> 12), following(6), following(0)};
    }
    return {static_cast<char>(0xF0 | (code >> 18 & 0x07)), following(12), following(6), following(0)};
}

/// How many of the `count` bytes make one character that comes back as the same bytes; 0 if none do.
size_t characterAt(const char* bytes, size_t count, wchar_t& character) {
    std::mbstate_t state{};
    const size_t length = std::mbrtowc(&character, bytes, count, &state);
    const bool whole = length <= count && std::mbsinit(&state) != 0;
    const bool same = whole && bytesOf(character) == std::string_view(bytes, length);
    return same && !isByteCharacter(static_cast<uint32_t>(character)) ? length : 0;
}

} // namespace

namespace {

/// A path as the system takes it, in no memory of its own: files are removed, and looked at, when there is
/// none.
class SystemPath {
public:
    explicit SystemPath(const std::wstring& path) {
        for (const wchar_t character : path) {
            const std::string added = bytesOf(character);
            if (added.size() > longest - length) { // too long for the system, and it shall say so
                length = longest;
                std::fill(bytes.begin(), bytes.end() - 1, '/');
                break;
            }
            std::copy(added.begin(), added.end(), &bytes[length]);
            length += added.size();
        }
    }
    operator const char*() const { return bytes.data(); }
    /// The path of the folder that it is in.
    void toFolder() {
        while (length > 0 && bytes[length - 1] != '/') {
            bytes[--length] = '\0';
        }
        bytes[0] = length == 0 ? '.' : bytes[0];
    }

private:
    static constexpr size_t longest = 2 * PATH_MAX;
    std::array<char, longest + 1> bytes{};
    size_t length = 0;
};

} // namespace

FileIO::FileIO(const std::wstring& path_, int mode_) : path(path_), mode(mode_) {
    int file = opened(SystemPath(path), mode);
    if (file != -1) {
        file = movedPastStandardStreams(file);
    }
    if (file == -1 && std::strchr(quietModes, mode) == nullptr) {
        Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), mode);
    }
    descriptor = file == -1 ? noDescriptor : file;
}

FileIO::~FileIO() {
    if (isOpen()) {
        ::close(descriptor);
    }
}

bool FileIO::isPlain() const {
    struct stat status {};
    return isOpen() && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

uint64_t FileIO::length() const {
    return identity().length;
}

uint64_t FileIO::read(void* buffer, uint64_t count) {
    if (!isOpen()) {
        return ~uint64_t{0};
    }
    const auto got = static_cast<uint64_t>(uninterrupted([&] { return ::read(descriptor, buffer, count); }));
    faulty = faulty || got == ~uint64_t{0};
    offset += got == ~uint64_t{0} ? 0 : got;
    return got;
}

uint64_t FileIO::write(const void* buffer, uint64_t count) {
    if (!isOpen()) {
        return ~uint64_t{0};
    }
    const auto transferred =
        static_cast<uint64_t>(uninterrupted([&] { return ::write(descriptor, buffer, count); }));
    faulty = faulty || transferred == ~uint64_t{0};
    written(transferred == ~uint64_t{0} ? 0 : transferred);
    return transferred;
}

void FileIO::written(uint64_t count) {
    flushed = std::min(flushed, offset);
    offset += count;
#ifdef SYNC_FILE_RANGE_WRITE
    if (flushing && offset - flushed >= Watch::blockBytes) {
        const ErrnoKept kept;
        ::sync_file_range(descriptor, static_cast<off_t>(flushed), static_cast<off_t>(offset - flushed),
                          SYNC_FILE_RANGE_WRITE);
        flushed = offset;
    }
#endif
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
    return isOpen() && uninterrupted([this] { return ::fsync(descriptor); }) == 0;
}

bool FileIO::flush() const {
    return isOpen() && uninterrupted([this] { return ::fdatasync(descriptor); }) == 0;
}

bool FileIO::lock(double seconds) const {
    const auto start = std::chrono::steady_clock::now();
    const std::chrono::duration<double> longest(seconds);
    while (isOpen()) {
        if (uninterrupted([this] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) == 0 ||
            (errno != EWOULDBLOCK && errno != EINTR)) {
            return true;
        }
        if (std::chrono::steady_clock::now() - start >= longest || !Watch::goOn()) {
            break;
        }
        std::this_thread::sleep_for(lockPause);
    }
    return false;
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
    struct stat status {};
    return ::lstat(SystemPath(path), &status) != 0 || (S_ISREG(status.st_mode) && status.st_nlink == 1);
}

namespace {

enum class Sameness { same, other, unknown };

Sameness compared(int descriptor, const std::wstring& path) {
    struct stat here {};
    struct stat there {};
    if (::fstat(descriptor, &here) != 0) {
        return Sameness::unknown;
    }
    if (::stat(SystemPath(path), &there) != 0) {
        return errno == ENOENT ? Sameness::other : Sameness::unknown;
    }
    const bool same = here.st_dev == there.st_dev && here.st_ino == there.st_ino;
    return same ? Sameness::same : Sameness::other;
}

} // namespace

bool FileIO::isFileAt(const std::wstring& other) const {
    return isOpen() && compared(descriptor, other) == Sameness::same;
}

bool FileIO::isNotFileAt(const std::wstring& other) const {
    return isOpen() && compared(descriptor, other) == Sameness::other;
}

bool FileIO::rename(const std::wstring& from, const std::wstring& to) {
    return std::rename(SystemPath(from), SystemPath(to)) == 0;
}

bool FileIO::renameNew(const std::wstring& from, const std::wstring& to) {
#ifdef RENAME_NOREPLACE
    if (::renameat2(AT_FDCWD, SystemPath(from), AT_FDCWD, SystemPath(to), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
#endif
    // What an empty file of our own keeps free can be replaced.
    if (!FileIO(to, 'x').isOpen()) {
        return false;
    }
    const bool renamed = rename(from, to);
    return renamed || (unlink(to), false);
}

bool FileIO::unlink(const std::wstring& path) {
    return ::unlink(SystemPath(path)) == 0;
}

bool FileIO::syncFolderOf(const std::wstring& path) {
    SystemPath folder(path);
    folder.toFolder();
    const int descriptor = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor == -1) {
        return false;
    }
    const bool synced = uninterrupted([=] { return ::fsync(descriptor); }) == 0 || errno == EINVAL;
    ::close(descriptor);
    return synced;
}

#ifdef __linux__
namespace {

/// Whether a file lies on another machine, which can copy without the bytes being sent to and fro.
bool isRemote(int descriptor) {
    struct statfs system {};
    if (::fstatfs(descriptor, &system) != 0) {
        return false;
    }
    const auto type = static_cast<uint32_t>(system.f_type);
    return type == 0x6969 || type == 0xFF534D42 || type == 0xFE534D42; // NFS, CIFS, SMB
}

} // namespace
#endif

/// Has the system copy, which it does without the bytes passing through this process, on some file
/// systems without any byte moved; bytes that come to lie elsewhere in their pages it would move slower
/// than we do. Where it cannot, or fails, it ends early and is no fault: copying by blocks goes on from
/// there, and finds out which of the two files is to blame.
uint64_t FileIO::copyWithin(FileIO& destination, uint64_t size) {
    uint64_t total = 0;
#ifdef __linux__
    constexpr uint64_t page = 4096;
    if (offset % page != destination.offset % page && !isRemote(destination.descriptor)) {
        return 0;
    }
    while (isOpen() && destination.isOpen() && total < size) {
        const size_t block = std::min(size - total, Watch::blockBytes);
        const ssize_t copied = uninterrupted([&] {
            return ::copy_file_range(descriptor, nullptr, destination.descriptor, nullptr, block, 0);
        });
        if (copied <= 0) {
            break;
        }
        const auto count = static_cast<uint64_t>(copied);
        total += count;
        offset += count;
        destination.written(count);
        if (!mayGoOn(count, total < size)) {
            break;
        }
    }
#endif
    return total;
}

void expectBulk([[maybe_unused]] void* memory, [[maybe_unused]] uint64_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr size_t largePage = size_t{2} << 20;
    if (std::align(largePage, largePage, memory, bytes) != nullptr) {
        ::madvise(memory, bytes / largePage * largePage, MADV_HUGEPAGE);
    }
#endif
}

std::wstring wchar::fromBytes(const std::string& bytes) {
    const ErrnoKept reason;
    std::wstring text;
    text.reserve(bytes.size());
    for (size_t at = 0; at < bytes.size();) {
        const auto byte = static_cast<uint8_t>(bytes[at]);
        auto character = static_cast<wchar_t>(byte);
        size_t length = 1;
        if (byte >= 0x80) {
            length = characterAt(&bytes[at], bytes.size() - at, character);
            character = length == 0 ? static_cast<wchar_t>(byteCharacters + byte) : character;
        }
        text += character;
        at += std::max<size_t>(length, 1);
    }
    return text;
}

std::string wchar::toBytes(const std::wstring& text) {
    const ErrnoKept reason;
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t character : text) {
        if (static_cast<uint32_t>(character) < 0x80) {
            bytes += static_cast<char>(character);
        } else {
            bytes += bytesOf(character);
        }
    }
    return bytes;
}

std::string wchar::wcs2mbs(const std::wstring& text) {
    const size_t capacity = std::min(6 * text.size(), conversionLimit);
    std::string converted;
    for (const wchar_t* character = text.c_str(); *character != L'\0'; ++character) {
        const std::string bytes = bytesOf(*character);
        if (bytes.size() > capacity - converted.size()) {
            break;
        }
        converted += bytes;
    }
    converted.resize(capacity);
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
