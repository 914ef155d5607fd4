// SPDX-License-Identifier: MIT
#include "SlamMetaData.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaErrno.h"
#include "Brisa/BrisaNewFile.h"

using Brisa::Console;
using Brisa::FileIO;

namespace {

constexpr uint64_t blockBytes = 65536;

/// Makes room for that many bytes that are about to be filled, and given out as one.
void resize(std::vector<unsigned char>& bytes, uint64_t size) {
    bytes.clear();
    bytes.reserve(size);
    Brisa::expectBulk(bytes.data(), size);
    bytes.resize(size);
}

template <class Predicate>
const SlamKind* firstOf(Predicate predicate) {
    const auto found = std::find_if(SlamKind::all.begin(), SlamKind::all.end(), predicate);
    return found == SlamKind::all.end() ? nullptr : &*found;
}

bool isNoPayload(const SlamPayload& payload) {
    if (payload.length() == 0) {
        Console::out(L"binData is empty.\n");
    }
    return payload.length() == 0;
}

} // namespace

const SlamKind* SlamKind::named(std::string_view name) {
    return firstOf([&](const SlamKind& kind) { return kind.name == name; });
}

const SlamKind* SlamKind::of(const MP4::Usertype& identity) {
    return firstOf([&](const SlamKind& kind) { return kind.identity == identity; });
}

bool SlamPayload::writeTo(FileIO& destination) const {
    const bool written = file == nullptr ? destination.writeAll(memory, size) == size
                                         : file->seek_set(offset) && file->copyTo(destination, size) == size;
    if (!written && destination.failed() && errno != EINTR) {
        const Brisa::ErrnoKept kept;
        Console::err(L"MP4: the payload could not be written: %ls.\n",
                     Brisa::wchar::mbs2wcs(std::strerror(errno)).c_str());
    }
    return written;
}

bool SlamPayload::readTo(void* room) const {
    return readBlock(0, room, size);
}

bool SlamPayload::readTo(std::vector<unsigned char>& room) const {
    resize(room, size);
    return readTo(room.data());
}

bool SlamPayload::readBlock(uint64_t at, void* block, uint64_t count) const {
    if (file == nullptr) {
        std::copy_n(memory + at, count, static_cast<unsigned char*>(block));
        return true;
    }
    return file->seek_set(offset + at) && file->readAll(block, count) == count;
}

std::optional<bool> SlamPayload::equals(const SlamPayload& other) const {
    if (size != other.size) {
        return false;
    }
    const auto blocks = std::make_unique_for_overwrite<unsigned char[]>(2 * blockBytes);
    for (uint64_t at = 0; at < size; at += blockBytes) {
        const uint64_t count = std::min(blockBytes, size - at);
        if (!readBlock(at, &blocks[0], count) || !other.readBlock(at, &blocks[blockBytes], count)) {
            return std::nullopt;
        }
        if (std::memcmp(&blocks[0], &blocks[blockBytes], count) != 0) {
            return false;
        }
    }
    return true;
}

MP4::UUID* SlamMetaData::firstBox(const MP4::Container& container) const {
    MP4::UUID* found = nullptr;
    container.find("uuid", [&](MP4::BOX& box) {
        auto* const candidate = MP4::as<MP4::UUID>(&box);
        const bool matches =
            candidate != nullptr && candidate->is(uuid) && box.end() <= container.root->boxSize;
        found = matches ? candidate : nullptr;
        return !matches;
    });
    return found;
}

SlamPayload SlamMetaData::payloadOf(const MP4::UUID& box, FileIO& file) const {
    const uint64_t prefix = box.headerSize() + uuid.size();
    return {file, box.offset + prefix, box.boxSize - prefix};
}

std::optional<bool> SlamMetaData::holds(const MP4::Container& container, const MP4::UUID& box,
                                        const SlamPayload& payload) const {
    std::optional<bool> same;
    container.open([&](FileIO& file) { same = payload.equals(payloadOf(box, file)); });
    return same;
}

bool SlamMetaData::dataExists(const MP4::Container& container) const {
    return firstBox(container) != nullptr;
}

bool SlamMetaData::openInMp4(const std::wstring& mp4Path,
                             const std::function<void(const SlamPayload&)>& work) const {
    MP4::Container container;
    container.keepContents = false;
    return container.attach(mp4Path) && openInMp4(container, work);
}

bool SlamMetaData::openInMp4(const MP4::Container& container,
                             const std::function<void(const SlamPayload&)>& work) const {
    const MP4::UUID* const box = firstBox(container);
    return box != nullptr && container.open([&](FileIO& file) { work(payloadOf(*box, file)); });
}

bool SlamMetaData::readFromMp4(std::wstring mp4Path) {
    bool whole = false;
    openInMp4(mp4Path, [&](const SlamPayload& payload) { whole = payload.readTo(binData); });
    return whole;
}

bool SlamMetaData::writeToMap(const std::wstring& mapPath, const SlamPayload& payload) {
    return !isNoPayload(payload) &&
           Brisa::NewFile::write(mapPath, [&](FileIO& file) { return payload.writeTo(file); });
}

bool SlamMetaData::writeToMap(std::wstring mapPath) const {
    return writeToMap(mapPath, SlamPayload(binData));
}

bool SlamMetaData::readFromMap(std::wstring mapPath) {
    FileIO file(mapPath, 's');
    return !file.isOpen() || readFromMap(file);
}

bool SlamMetaData::readFromMap(FileIO& file) {
    if (!file.isPlain()) {
        return readStream(file);
    }
    return fitsBox(file.length()) && SlamPayload(file, 0, file.length()).readTo(binData);
}

bool SlamMetaData::readStream(FileIO& file) {
    binData.clear();
    uint64_t got = 0;
    do {
        binData.resize(got + blockBytes);
        got += file.readAll(&binData[got], blockBytes);
    } while (got == binData.size() && got <= longestPayload);
    binData.resize(got);
    return !file.failed() && fitsBox(got);
}

bool SlamMetaData::fitsBox(uint64_t length) {
    if (length > longestPayload) {
        Console::err(L"MP4: a payload of %llu bytes does not fit a box with a 32-bit size.\n",
                     static_cast<unsigned long long>(length));
    }
    return length <= longestPayload;
}

bool SlamMetaData::writeToMp4(std::wstring mp4Path) const {
    return writeToMp4(mp4Path, false);
}

bool SlamMetaData::writeToMp4(std::wstring mp4Path, bool replace) const {
    return writeToMp4(mp4Path, SlamPayload(binData), replace) != Put::failed;
}

SlamMetaData::Put SlamMetaData::writeToMp4(const std::wstring& mp4Path, const SlamPayload& payload,
                                           bool replace) const {
    MP4::Container container;
    container.keepContents = false;
    return container.claim(mp4Path) ? writeToMp4(container, payload, replace) : Put::failed;
}

SlamMetaData::Put SlamMetaData::writeToMp4(MP4::Container& container, const SlamPayload& payload,
                                           bool replace) const {
    MP4::UUID* const box = firstBox(container);
    if (box != nullptr && !replace) {
        tellExisting();
        return holds(container, *box, payload) == false ? Put::other : Put::there;
    }
    if (isNoPayload(payload) || !fitsBox(payload.length())) {
        return Put::failed;
    }
    if (box != nullptr && holds(container, *box, payload) == true) {
        return Put::there;
    }
    const auto boxSize = static_cast<uint32_t>(MP4::UUID::prefixSize + payload.length());
    const auto prefix = MP4::UUID::prefix(boxSize, uuid);
    ByteArray header;
    header.assign(prefix.data(), MP4::BOX::compactHeader);
    const auto write = [&](FileIO& file) {
        return file.writeAll(uuid.data(), uuid.size()) == uuid.size() && payload.writeTo(file);
    };
    const bool written =
        box != nullptr ? container.replaceBox(*box, header, write) : container.append(header, write);
    return written ? Put::done : Put::failed;
}

bool SlamMetaData::removeFromMp4(std::wstring mp4Path) const {
    MP4::Container container;
    container.keepContents = false;
    return container.claim(mp4Path) && removeFromMp4(container);
}

bool SlamMetaData::removeFromMp4(MP4::Container& container) const {
    MP4::UUID* const box = firstBox(container);
    return box != nullptr && container.removeBox(*box);
}

void SlamMetaData::tellExisting() const {
    Console::out(L"MP4: uuid is existed.(");
    for (const uint8_t byte : uuid) {
        Console::out(L"%hhx", byte);
    }
    Console::out(L")\n");
}
