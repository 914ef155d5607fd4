#include <algorithm>
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

constexpr const wchar_t* tablesOperation = L"overwriteSpatialDataOffset_ZADT";
constexpr const wchar_t* recordOperation = L"overwriteSpatialDataOffset_ZDT9";

/// The `ZDT9` record: where the `ZADT` box lies, and how long it is.
constexpr uint64_t recordBytes = 16;

bool isSpatial(const BOX& box) {
    return box.tag == fourcc("uuid") && box.hasChild();
}

BOX* recordOf(const MOOV* moov) {
    return moov != nullptr ? moov->first("udta.ZDT9") : nullptr;
}

bool holdsRecord(const BOX& box, uint64_t fileLength) {
    return box.boxSize >= box.headerSize() + recordBytes &&
           liesWithin(box.offset, box.end(), box.parent, fileLength);
}

ByteArray recordOfData(const BOX* data) {
    ByteArray record(recordBytes);
    if (data != nullptr) {
        storeBigEndian(&record[0], data->offset);
        storeBigEndian(&record[8], data->boxSize);
    }
    return record;
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
    const uint64_t content = BOX::compactHeader + kept + sound.trimmedTrack.size();
    // The rebuilt track points to where the data are in the source, whatever headers they have there.
    const uint64_t headers = UUID::prefixSize + BOX::compactHeader;
    const uint64_t asIfFrom = sound.dataOffset < headers ? offset : sound.dataOffset - headers;
    return appendBlock(asIfFrom, [&](FileIO& file) {
        if (!fitsBox(content)) {
            return false;
        }
        const auto prefix =
            UUID::prefix(static_cast<uint32_t>(UUID::prefixSize + content), SpatialData::_UUID);
        ByteArray data = makeBox(fourcc("ZADT"), {});
        storeBigEndian(data.data(), static_cast<uint32_t>(BOX::compactHeader + kept));
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
    bool parsedAgain = false;
    const bool appended = append([&](FileIO& handle) {
        parsedAgain = write(handle) && attach(path);
        BinFile file(handle);
        return parsedAgain && !partial && pointToSpatialData(file, sourceOffset);
    });
    if (!appended && parsedAgain) {
        attach(path); // the block is gone again
    }
    return appended;
}

bool Container::overwriteSpatialDataOffset(unsigned long long oldOffset) {
    bool done = false;
    const bool opened = open_a([&](FileIO& handle) {
        BinFile file(handle);
        done = describes(handle) ? pointToSpatialData(file, oldOffset) : patchFailed(tablesOperation);
    });
    if (!opened) {
        patchFailed(tablesOperation);
    }
    attach(path);
    return done;
}

bool Container::pointToSpatialData(BinFile& file, uint64_t oldOffset) {
    const BOX* const data = firstSpatialBox(*this, "uuid.ZADT", 0);
    const uint64_t blockOffset = data != nullptr ? data->parent->offset : oldOffset;
    const BOX* const record = recordOf(moov);
    if (record != nullptr && !holdsRecord(*record, root->boxSize)) { // known before an offset is changed
        return patchFailed(recordOperation);
    }
    if (oldOffset > INT64_MAX || !modifySpatialTrakSTCOIndex(file, distance(oldOffset, blockOffset))) {
        return patchFailed(tablesOperation);
    }
    if (record != nullptr && !overwrite(file, record->offset + record->headerSize(), recordOfData(data))) {
        modifySpatialTrakSTCOIndex(file, distance(blockOffset, oldOffset));
        return patchFailed(recordOperation);
    }
    return true;
}

bool Container::correctSpatialOffsets(Container& written, BinFile& file, const Moves& moves) const {
    const BOX* const record = recordOf(written.moov);
    const bool recorded = record != nullptr && holdsRecord(*record, written.root->boxSize);
    const uint64_t recordAt = recorded ? record->offset + record->headerSize() : 0;
    if (recorded && !file.seek_set(recordAt)) {
        return false;
    }
    const uint64_t dataOffset = recorded ? file.read64() : 0;
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
        if (!offsets.shift(file, Moves::everything(by))) {
            return false;
        }
        if (recorded && dataOffset >= box->offset && dataOffset < box->end() &&
            !(file.seek_set(recordAt) && file.write64(shifted(dataOffset, by)))) {
            return false;
        }
    }
    return true;
}

} // namespace MP4
