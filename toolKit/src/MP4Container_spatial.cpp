#include <algorithm>
#include <array>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"
#include "SpatialSound.h"

namespace MP4 {

namespace {

using Brisa::FileIO;

constexpr const char* tablesOfBlock = "ZATR.mdia.minf.stbl";

/// The `ZDT9` record: where the `ZADT` box lies, and how long it is.
constexpr uint64_t recordBytes = 16;
constexpr uint64_t headerBytes = 8;

bool isSpatial(const BOX& box) {
    return box.tag == fourcc("uuid") && box.hasChild();
}

BOX* recordOf(const MOOV* moov) {
    return moov != nullptr ? moov->first("udta.ZDT9") : nullptr;
}

bool holdsRecord(const BOX& box) {
    return box.boxSize >= box.headerSize() + recordBytes;
}

/// Moves the record along with the block, if it points into it.
bool correctRecord(const BOX* record, BinFile& file, const BOX& block, long long by) {
    if (record == nullptr || !holdsRecord(*record)) {
        return true;
    }
    const uint64_t at = record->offset + record->headerSize();
    if (!file.seek_set(at)) {
        return false;
    }
    const uint64_t dataOffset = file.read64();
    return dataOffset < block.offset || dataOffset >= block.end() ||
           (file.seek_set(at) && file.write64(shifted(dataOffset, by)));
}

/// Writes the record, or leaves it as it was.
bool writeRecord(BinFile& file, uint64_t at, uint64_t dataOffset, uint64_t dataSize) {
    std::array<uint8_t, recordBytes> old;
    if (!file.seek_set(at) || file.readAll(old.data(), old.size()) != old.size() || !file.seek_set(at)) {
        return false;
    }
    const bool written = file.write64(dataOffset) && file.write64(dataSize);
    if (!written && file.seek_set(at)) {
        file.writeAll(old.data(), old.size());
    }
    return written;
}

} // namespace

bool Container::isSpatialDataExist() const {
    return root != nullptr && std::any_of(root->children.begin(), root->children.end(),
                                          [](const auto& box) { return isSpatial(*box); });
}

bool Container::appendSpatialData(FileIO& source, unsigned long long offset, unsigned long long length) {
    return appendBlock(offset, [&](FileIO& file) {
        return source.seek_set(offset) && source.copyTo(file, length) == length;
    });
}

bool Container::trimSpatialData(FileIO& source, unsigned long long offset, const SpatialSound& sound) {
    const uint64_t kept = sound.endOffset - sound.startOffset;
    const uint64_t content = headerBytes + kept + sound.trimmedTrack.size();
    return appendBlock(offset, [&](FileIO& file) {
        if (!fitsBox(content)) {
            return false;
        }
        const auto prefix =
            UUID::prefix(static_cast<uint32_t>(UUID::prefixSize + content), SpatialData::_UUID);
        ByteArray data = makeBox(fourcc("ZADT"), {});
        storeBigEndian(data.data(), static_cast<uint32_t>(headerBytes + kept));
        return file.writeAll(prefix.data(), prefix.size()) == prefix.size() &&
               file.writeAll(data.data(), data.size()) == data.size() &&
               source.seek_set(sound.dataOffset + sound.startOffset) && source.copyTo(file, kept) == kept &&
               sound.writeTrimmedZATR(file);
    });
}

bool Container::appendBlock(uint64_t sourceOffset, std::function<bool(FileIO&)> write) {
    if (isSpatialDataExist()) {
        Brisa::Console::out(L"MP4: SpatialData is existed.\n");
        return true;
    }
    Tail before;
    if (!append(std::move(write), before)) {
        return false;
    }
    attach(path);
    if (overwriteSpatialDataOffset(sourceOffset)) {
        return true;
    }
    open_a([&before](FileIO& file) { cutBack(file, before); });
    attach(path);
    return false;
}

bool Container::overwriteSpatialDataOffset(unsigned long long oldOffset) {
    constexpr const wchar_t* recordOperation = L"overwriteSpatialDataOffset_ZDT9";
    const BOX* const data = firstSpatialBox(*this, "uuid.ZADT", 0);
    const uint64_t dataOffset = data != nullptr ? data->offset : 0;
    const uint64_t dataSize = data != nullptr ? data->boxSize : 0;
    const uint64_t blockOffset = data != nullptr ? data->parent->offset : oldOffset;
    const bool known = oldOffset <= INT64_MAX;
    const long long change = known ? distance(oldOffset, blockOffset) : 0;

    const BOX* const record = recordOf(moov);
    const bool recorded = record != nullptr;
    const uint64_t at = recorded ? record->offset + record->headerSize() : 0;
    if (recorded && !holdsRecord(*record)) { // known before anything is written
        return modifyContainer(recordOperation, [](BinFile&) { return false; });
    }
    if (!modifyContainer(L"overwriteSpatialDataOffset_ZADT",
                         [&](BinFile& file) { return known && modifySpatialTrakSTCOIndex(file, change); })) {
        return false;
    }
    if (!recorded || modifyContainer(recordOperation, [&](BinFile& file) {
            return writeRecord(file, at, dataOffset, dataSize);
        })) {
        return true;
    }
    open_a([&](FileIO& handle) {
        BinFile file(handle);
        modifySpatialTrakSTCOIndex(file, -change);
    });
    return false;
}

bool Container::correctSpatialOffsets(Container& written, BinFile& file, const Moves& moves) const {
    for (const auto& box : root->children) {
        const long long by = moves.at(box->offset);
        if (!isSpatial(*box) || by == 0) {
            continue;
        }
        const auto& boxes = written.root->children;
        const auto block = std::find_if(boxes.begin(), boxes.end(), [&](const auto& candidate) {
            return isSpatial(*candidate) && candidate->offset == shifted(box->offset, by);
        });
        if (block == boxes.end()) {
            return false;
        }
        const ChunkOffsets offsets(static_cast<const NestedBox&>(**block), tablesOfBlock);
        if (!offsets.shift(file, Moves::everything(by)) ||
            !correctRecord(recordOf(written.moov), file, *box, by)) {
            return false;
        }
    }
    return true;
}

} // namespace MP4
