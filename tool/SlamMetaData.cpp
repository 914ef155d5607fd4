#include "SlamMetaData.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "Brisa/BrisaConsole.h"

using Brisa::Console;

const MP4::UUID* SlamMetaData::firstBox(const MP4::Container& container) const {
    const MP4::UUID* found = nullptr;
    container.find("uuid", [&](MP4::BOX& box) {
        const auto& candidate = static_cast<const MP4::UUID&>(box);
        found = candidate.is(uuid) ? &candidate : nullptr;
        return found == nullptr;
    });
    return found;
}

bool SlamMetaData::dataExists(const MP4::Container& container) const {
    return firstBox(container) != nullptr;
}

void SlamMetaData::resizePayload(uint64_t size) {
    binData.clear();
    binData.reserve(size);
    Brisa::expectBulk(binData.data(), size);
    binData.resize(size);
}

bool SlamMetaData::readFromMp4(std::wstring mp4Path) {
    MP4::Container container;
    container.keepContents = false;
    if (!container.attach(mp4Path)) {
        return false;
    }
    const MP4::UUID* const box = firstBox(container);
    if (box == nullptr) {
        return false;
    }
    bool complete = false;
    container.open([&](Brisa::FileIO& file) {
        const uint64_t prefix = box->headerSize() + uuid.size();
        if (box->end() > file.length() || !file.seek_set(box->offset + prefix)) {
            return;
        }
        resizePayload(box->boxSize - prefix);
        complete = file.readAll(binData.data(), binData.size()) == binData.size();
    });
    return complete;
}

bool SlamMetaData::writeToMap(std::wstring mapPath) const {
    if (binData.empty()) {
        Console::out(L"binData is empty.\n");
        return false;
    }
    bool complete = false;
    Brisa::FileIO::open_w(mapPath, [&](Brisa::FileIO& file) {
        complete = file.writeAll(binData.data(), binData.size()) == binData.size();
    });
    return complete;
}

bool SlamMetaData::readFromMap(std::wstring mapPath) {
    const std::string name = Brisa::wchar::wcs2mbs(mapPath);
    std::ifstream file(name.c_str(), std::ios::binary);
    if (!file.is_open()) {
        return true;
    }
    if (std::error_code unknown; std::filesystem::is_directory(name.c_str(), unknown)) {
        return false; // it opens, and claims to be as long as a number can be
    }
    const auto length = static_cast<std::streamoff>(file.seekg(0, std::ios::end).tellg());
    if (length < 0 || !file.seekg(0)) {
        return false;
    }
    resizePayload(static_cast<uint64_t>(length));
    file.read(reinterpret_cast<char*>(binData.data()), length);
    return file.gcount() == length;
}

bool SlamMetaData::writeToMp4(std::wstring mp4Path) const {
    MP4::Container container;
    container.keepContents = false;
    if (!container.attach(mp4Path)) {
        return false;
    }
    if (dataExists(container)) {
        Console::out(L"MP4: uuid is existed.(");
        for (const uint8_t byte : uuid) {
            Console::out(L"%hhx", byte);
        }
        Console::out(L")\n");
        return true;
    }
    if (binData.empty()) {
        Console::out(L"binData is empty.\n");
        return false;
    }
    if (binData.size() > UINT32_MAX - MP4::UUID::prefixSize) {
        Console::err(L"MP4: a payload of %llu bytes does not fit a box with a 32-bit size.\n",
                     static_cast<unsigned long long>(binData.size()));
        return false;
    }
    const auto boxSize = static_cast<uint32_t>(MP4::UUID::prefixSize + binData.size());
    const auto prefix = MP4::UUID::prefix(boxSize, uuid);
    ByteArray header;
    header.assign(prefix.data(), MP4::BOX::compactHeader);
    return container.append(header, [&](Brisa::FileIO& file) {
        return file.writeAll(uuid.data(), uuid.size()) == uuid.size() &&
               file.writeAll(binData.data(), binData.size()) == binData.size();
    });
}
