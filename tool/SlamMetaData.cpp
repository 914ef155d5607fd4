#include "SlamMetaData.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "Brisa/BrisaConsole.h"
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

bool isNoPayload(const SlamPayload& payload) {
    if (payload.length() == 0) {
        Console::out(L"binData is empty.\n");
    }
    return payload.length() == 0;
}

} // namespace

bool SlamPayload::writeTo(FileIO& destination) const {
    if (file == nullptr) {
        return destination.writeAll(memory, size) == size;
    }
    return file->seek_set(offset) && file->copyTo(destination, size) == size;
}

bool SlamPayload::readTo(std::vector<unsigned char>& room) const {
    resize(room, size);
    return readBlock(0, room.data(), size);
}

bool SlamPayload::readBlock(uint64_t at, unsigned char* block, uint64_t count) const {
    if (file == nullptr) {
        std::copy_n(memory + at, count, block);
        return true;
    }
    return file->seek_set(offset + at) && file->readAll(block, count) == count;
}

bool SlamPayload::differs(const SlamPayload& other) const {
    if (size != other.size) {
        return true;
    }
    const auto blocks = std::make_unique_for_overwrite<unsigned char[]>(2 * blockBytes);
    for (uint64_t at = 0; at < size; at += blockBytes) {
        const uint64_t count = std::min(blockBytes, size - at);
        if (!readBlock(at, &blocks[0], count) || !other.readBlock(at, &blocks[blockBytes], count)) {
            return false;
        }
        if (std::memcmp(&blocks[0], &blocks[blockBytes], count) != 0) {
            return true;
        }
    }
    return false;
}

const MP4::UUID* SlamMetaData::firstBox(const MP4::Container& container) const {
    const MP4::UUID* found = nullptr;
    container.find("uuid", [&](MP4::BOX& box) {
        const auto* const candidate = MP4::as<MP4::UUID>(&box);
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

bool SlamMetaData::dataExists(const MP4::Container& container) const {
    return firstBox(container) != nullptr;
}

bool SlamMetaData::openInMp4(const std::wstring& mp4Path,
                             const std::function<void(const SlamPayload&)>& work) const {
    MP4::Container container;
    container.keepContents = false;
    if (!container.attach(mp4Path)) {
        return false;
    }
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
    return writeToMp4(mp4Path, SlamPayload(binData)) != Put::failed;
}

SlamMetaData::Put SlamMetaData::writeToMp4(const std::wstring& mp4Path, const SlamPayload& payload) const {
    MP4::Container container;
    container.keepContents = false;
    if (!container.claim(mp4Path)) {
        return Put::failed;
    }
    if (const MP4::UUID* const box = firstBox(container)) {
        tellExisting();
        bool other = false;
        container.open([&](FileIO& file) { other = payload.differs(payloadOf(*box, file)); });
        return other ? Put::other : Put::there;
    }
    if (isNoPayload(payload) || !fitsBox(payload.length())) {
        return Put::failed;
    }
    const auto boxSize = static_cast<uint32_t>(MP4::UUID::prefixSize + payload.length());
    const auto prefix = MP4::UUID::prefix(boxSize, uuid);
    ByteArray header;
    header.assign(prefix.data(), MP4::BOX::compactHeader);
    const bool appended = container.append(header, [&](FileIO& file) {
        return file.writeAll(uuid.data(), uuid.size()) == uuid.size() && payload.writeTo(file);
    });
    return appended ? Put::done : Put::failed;
}

void SlamMetaData::tellExisting() const {
    Console::out(L"MP4: uuid is existed.(");
    for (const uint8_t byte : uuid) {
        Console::out(L"%hhx", byte);
    }
    Console::out(L")\n");
}
