// SPDX-License-Identifier: MIT
#include "Brisa/BrisaFileIO.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"

namespace Brisa {

bool FileIO_show_process_file_name = false;

namespace {

thread_local Watch* innermost = nullptr;

bool openFor(const std::wstring& path, int mode, const std::function<void(FileIO&)>& work) {
    FileIO file(path, mode);
    if (!file.isOpen()) {
        return false;
    }
    if (FileIO_show_process_file_name) {
        Console::out(L"processing %ls ...\n", path.c_str());
    }
    work(file);
    return true;
}

} // namespace

Watch::Watch(Hook hook_) : hook(std::move(hook_)), outer(std::exchange(innermost, this)) {}

Watch::~Watch() {
    innermost = outer;
}

bool Watch::goOn(uint64_t bytes) {
    Watch* const asked = innermost;
    if (asked == nullptr || !asked->hook) {
        return true;
    }
    asked->stopped = !asked->hook(std::exchange(asked->pending, 0) + bytes);
    if (asked->stopped) {
        errno = EINTR;
    }
    return !asked->stopped;
}

bool Watch::passed(uint64_t bytes) {
    if (innermost == nullptr) {
        return true;
    }
    innermost->pending += bytes;
    return (innermost->pending < blockBytes && !innermost->stopped) || goOn();
}

bool FileIO::open(const std::wstring& path, std::function<void(FileIO&)> work) {
    return openFor(path, 'r', work);
}

bool FileIO::open_w(const std::wstring& path, std::function<void(FileIO&)> work) {
    return openFor(path, 'w', work);
}

bool FileIO::open_a(const std::wstring& path, std::function<void(FileIO&)> work) {
    return openFor(path, 'a', work);
}

bool FileIO::exist(const std::wstring& path) {
    return open(path, [](FileIO&) {});
}

bool FileIO::mayGoOn(uint64_t transferred, bool more) {
    const bool on = Watch::passed(transferred) || !more;
    faulty = faulty || !on;
    return on;
}

uint64_t FileIO::copyTo(FileIO& destination, uint64_t size) {
    constexpr uint64_t small = 65536;
    constexpr uint64_t large = uint64_t{1} << 20;
    uint64_t total = size < small ? 0 : copyWithin(destination, size);
    if (total == size) {
        return total;
    }
    const uint64_t blockBytes = size - total < 2 * large ? small : large;
    // The system copies to and from whole pages a tenth faster.
    struct alignas(4096) Page {
        std::array<uint8_t, 4096> bytes;
    };
    const uint64_t pages = (std::min(blockBytes, size - total) + sizeof(Page) - 1) / sizeof(Page);
    const auto block = std::make_unique_for_overwrite<Page[]>(pages);
    while (total < size) {
        // Writes begin and end at whole pages of the system's cache: within one they take half as long again.
        // Large ones stay off the whole multiples of their size: there the system looks for as large a
        // page, which may take it longer than the copying.
        const uint64_t room = blockBytes - (destination.position() + blockBytes - small) % blockBytes;
        const uint64_t got = read(block.get(), std::min(room, size - total));
        if (got == 0 || got == ~uint64_t{0}) {
            break;
        }
        const uint64_t written = destination.writeAll(block.get(), got);
        total += written;
        if (written != got || !mayGoOn(0, total < size)) {
            break;
        }
    }
    return total;
}

uint64_t FileIO::readAll(void* buffer, uint64_t count) {
    auto* const bytes = static_cast<uint8_t*>(buffer);
    uint64_t total = 0;
    while (total < count) {
        const uint64_t got = read(bytes + total, std::min(count - total, Watch::blockBytes));
        if (got == 0 || got == ~uint64_t{0}) {
            break;
        }
        total += got;
        if (!mayGoOn(got, total < count)) {
            break;
        }
    }
    return total;
}

uint64_t FileIO::writeAll(const void* buffer, uint64_t count) {
    const auto* const bytes = static_cast<const uint8_t*>(buffer);
    uint64_t total = 0;
    while (total < count) {
        const uint64_t written = write(bytes + total, std::min(count - total, Watch::blockBytes));
        if (written == 0 || written == ~uint64_t{0}) {
            break;
        }
        total += written;
        if (!mayGoOn(written, total < count)) {
            break;
        }
    }
    return total;
}

} // namespace Brisa

namespace MP4 {

namespace {

/// Takes `bytes` out of what is left, if they are.
bool take(uint64_t bytes, uint64_t& left) {
    const bool enough = bytes <= left;
    left -= enough ? bytes : 0;
    return enough;
}

} // namespace

void ParseAllowance::renew(uint64_t length) {
    headers = length + 512;
    contents = 2 * length;
    zeros = uint64_t{16} << 20;
    exceeded = false;
}

bool ParseAllowance::takeHeader(uint64_t bytes) {
    const bool taken = take(bytes, headers);
    exceeded = exceeded || !taken;
    return taken;
}

uint64_t ParseAllowance::takeContents(uint64_t claimed, uint64_t there) {
    const uint64_t real = std::min(claimed, there);
    const bool taken = take(real, contents);
    exceeded = exceeded || !taken;
    return !taken ? 0 : take(claimed - real, zeros) ? claimed : real;
}

BinFile::BinFile(Brisa::FileIO& file) : FileIO(file), allowance(length()) {}

BinFile::~BinFile() {
    descriptor = 0;
}

void BinFile::readBytes(void* destination, uint64_t count) {
    if (fits(count)) {
        readAll(destination, count);
    }
}

uint64_t BinFile::available() const {
    const uint64_t end = std::min(limit, length());
    return end > position() ? end - position() : 0;
}

template <class Integer>
Integer BinFile::readNumber() {
    std::array<uint8_t, sizeof(Integer)> bytes{};
    readBytes(bytes.data(), bytes.size());
    return loadBigEndian<Integer>(bytes.data());
}

template <class Integer>
bool BinFile::writeNumber(Integer value) {
    std::array<uint8_t, sizeof(Integer)> bytes;
    storeBigEndian(bytes.data(), value);
    return writeAll(bytes.data(), bytes.size()) == bytes.size();
}

uint8_t BinFile::read8() {
    return readNumber<uint8_t>();
}
uint16_t BinFile::read16() {
    return readNumber<uint16_t>();
}
uint32_t BinFile::read32() {
    return readNumber<uint32_t>();
}
uint64_t BinFile::read64() {
    return readNumber<uint64_t>();
}

bool BinFile::write32(uint32_t value) {
    return writeNumber(value);
}
bool BinFile::write64(uint64_t value) {
    return writeNumber(value);
}

} // namespace MP4
