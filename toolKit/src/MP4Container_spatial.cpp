// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"
#include "SpatialSound.h"

namespace MP4 {

namespace {

using Brisa::FileIO;

constexpr const wchar_t* tablesOperation = L"overwriteSpatialDataOffset_ZADT";
constexpr const wchar_t* recordOperation = L"overwriteSpatialDataOffset_ZDT9";

/// The `ZDT9` record: where the `ZADT` box lies, and how long it is.
constexpr uint64_t recordBytes = 16;

ByteArray recordOf(uint64_t dataOffset, uint64_t dataSize) {
    ByteArray record = bytesOf(dataOffset);
    record.append(bytesOf(dataSize));
    return record;
}

bool lacksRoomForRecord(const Container& container) {
    return container.moov != nullptr && container.moov->first("udta.ZDT9") != nullptr &&
           recordOfSound(*container.root) == nullptr;
}

bool writeRecord(const Container& container, Attempt& attempt, const ByteArray& content) {
    const BOX* const record = recordOfSound(*container.root);
    return record == nullptr || attempt.overwrite(record->offset + record->headerSize(), content);
}

/// A spatial-data block on its way into a file.
struct Block {
    uint64_t size = 0;
    uint64_t dataOffset = 0; ///< of its `ZADT` box, in the file it gets into
    uint64_t dataSize = 0;
    std::function<bool(FileIO&)> write; ///< with `free` as its type
};

/// Puts a block at the end of the file. `prepare` tells what it is made of when it lies at an offset, or why
/// it cannot be.
bool appendBlock(Container& container, const std::function<Objection(uint64_t at, Block&)>& prepare) {
    if (container.isSpatialDataExist()) {
        Brisa::Console::out(L"MP4: SpatialData is existed.\n");
        return true;
    }
    Claim claim(container);
    Objection reason = objectionToAppend(container, claim);
    if (!reason.empty()) {
        return refuse(container.path, reason);
    }
    if (lacksRoomForRecord(container)) {
        return patchFailed(container, recordOperation);
    }
    Block block;
    reason = prepare(endForAppend(container), block);
    if (!reason.empty()) {
        refuse(container.path, reason);
        return patchFailed(container, tablesOperation);
    }
    if (!mayWrite(container)) {
        return false;
    }
    if (container.dryRun) {
        return tellAppend(container, block.size);
    }
    const auto putRecord = [&](Attempt& attempt) {
        return writeRecord(container, attempt, recordOf(block.dataOffset, block.dataSize));
    };
    const NewBox box{
        .size = block.size, .type = fourcc("uuid"), .write = block.write, .beforeItCounts = putRecord};
    const bool done = claim.update([&](FileIO& file) { return appendBox(container, file, box); });
    claim.letGo();
    reattach(container);
    return done;
}

/// Appends a track in memory to `output`, its chunk offsets moved; a table that needs it becomes `co64`.
/// Whether it has any.
bool appendMoved(const uint8_t* box, uint64_t size, long long by, ByteArray& output) {
    uint32_t tag;
    std::memcpy(&tag, box + sizeof(uint32_t), sizeof tag);
    const uint8_t* body = box + BOX::compactHeader;
    const uint64_t length = size - BOX::compactHeader;
    ByteArray moved;
    bool found = false;
    switch (tag) {
    case fourcc("ZATR"):
    case fourcc("mdia"):
    case fourcc("minf"):
    case fourcc("stbl"):
        for (uint64_t at = 0; length - at >= BOX::compactHeader;) {
            const uint64_t child = loadBigEndian<uint32_t>(body + at);
            if (child < BOX::compactHeader || child > length - at) {
                break;
            }
            found = appendMoved(body + at, child, by, moved) || found;
            at += child;
        }
        break;
    case fourcc("stco"):
    case fourcc("co64"): {
        constexpr uint64_t front = 8; // version, flags and count
        const uint64_t width = tag == fourcc("co64") ? sizeof(uint64_t) : sizeof(uint32_t);
        ByteArray entries(length < front ? 0 : (length - front) / width * sizeof(uint64_t));
        for (uint64_t i = 0; i < entries.size() / sizeof(uint64_t); ++i) {
            const uint8_t* const entry = body + front + i * width;
            const uint64_t value =
                width == sizeof(uint32_t) ? loadBigEndian<uint32_t>(entry) : loadBigEndian<uint64_t>(entry);
            storeBigEndian(&entries[i * sizeof(uint64_t)], shifted(value, by));
        }
        tag = fourcc("co64");
        moved.assign(body, std::min(length, front));
        moved.append(entries);
        found = true;
        break;
    }
    default:
        moved.assign(body, length);
        break;
    }
    output.append(boxOf(tag, moved));
    return found;
}

} // namespace

bool isSpatial(const BOX& box) {
    return box.tag == fourcc("uuid") && box.hasChild();
}

const BOX* recordOfSound(const NestedBox& root) {
    const BOX* const movie = root.first("moov");
    const BOX* const record =
        movie != nullptr ? static_cast<const MOOV*>(movie)->first("udta.ZDT9") : nullptr;
    const bool hasRoom = record != nullptr && record->boxSize >= record->headerSize() + recordBytes &&
                         record->endWithin(root.boxSize) == record->end();
    return hasRoom ? record : nullptr;
}

bool forgetSound(const Container& container, Attempt& attempt) {
    return writeRecord(container, attempt, ByteArray(recordBytes));
}

bool Container::isSpatialDataExist() const {
    return root != nullptr && std::any_of(root->children.begin(), root->children.end(),
                                          [](const auto& box) { return isSpatial(*box); });
}

bool Container::appendSpatialData(FileIO& source, unsigned long long offset, unsigned long long length) {
    BinFile view(source);
    if (!view.seek_set(offset)) {
        return false;
    }
    UUID block(BOX(view, 0, nullptr), nullptr);
    Pointers pointers;
    Plan plan(block);
    return appendBlock(*this, [&](uint64_t at, Block& out) -> Objection {
        if (block.tag == fourcc("uuid") && block.boxSize == length && block.end() <= view.length()) {
            block.parseBox(view, block.end());
        }
        view.limit = ~uint64_t{0};
        pointersOfBlock(block, pointers);
        if (pointers.tables.empty()) {
            return L"the block to be appended has no chunk offsets";
        }
        plan.keepOnly(offset, offset + length, at);
        plan.replace(offset + sizeof(uint32_t), offset + BOX::compactHeader, typeBytes(fourcc("free")));
        if (Objection reason = plan.complete(view, pointers); !reason.empty()) {
            return reason;
        }
        const BOX* const data = block.first("ZADT");
        out = {.size = plan.size(),
               .dataOffset = data != nullptr ? plan.newPlaceOf(data->offset) : 0,
               .dataSize = data != nullptr ? data->boxSize : 0,
               .write = [&](FileIO& file) { return plan.write(view, file); }};
        return {};
    });
}

bool Container::trimSpatialData(FileIO& source, unsigned long long, const SpatialSound& sound) {
    if (sound.endOffset < sound.startOffset) {
        return refuse(path, L"the stretch of sound ends ahead of its start");
    }
    const uint64_t kept = sound.endOffset - sound.startOffset;
    ByteArray track;
    return appendBlock(*this, [&](uint64_t at, Block& out) -> Objection {
        const uint64_t dataAt = at + UUID::prefixSize;
        const long long by = distance(sound.dataOffset, dataAt + BOX::compactHeader);
        const ByteArray& old = sound.trimmedTrack;
        if (old.size() < BOX::compactHeader || !appendMoved(old.data(), old.size(), by, track)) {
            return L"the stretch of sound has no chunk offsets";
        }
        const uint64_t size = UUID::prefixSize + BOX::compactHeader + kept + track.size();
        if (size > UINT32_MAX) {
            return text(L"a block of %llu bytes does not fit a 32-bit size",
                        static_cast<unsigned long long>(size));
        }
        out = {.size = size, .dataOffset = dataAt, .dataSize = BOX::compactHeader + kept, .write = {}};
        out.write = [&, size, kept](FileIO& file) {
            auto prefix = UUID::prefix(static_cast<uint32_t>(size), SpatialData::_UUID);
            std::memcpy(&prefix[sizeof(uint32_t)], "free", sizeof(uint32_t));
            const ByteArray data = headerOf(fourcc("ZADT"), kept);
            return file.writeAll(prefix.data(), prefix.size()) == prefix.size() &&
                   file.writeAll(data.data(), data.size()) == data.size() &&
                   source.seek_set(sound.dataOffset + sound.startOffset) &&
                   source.copyTo(file, kept) == kept &&
                   file.writeAll(track.data(), track.size()) == track.size();
        };
        return {};
    });
}

bool Container::overwriteSpatialDataOffset(unsigned long long oldOffset) {
    const BOX* const data = root != nullptr ? firstSpatialBox(*this, "uuid.ZADT", 0) : nullptr;
    const uint64_t blockOffset = data != nullptr ? data->parent->offset : oldOffset;
    const wchar_t* failing = tablesOperation;
    bool done = false;
    {
        Claim claim(*this);
        if (!claim.objection().empty()) {
            refuse(path, claim.objection());
        } else if (lacksRoomForRecord(*this)) {
            failing = recordOperation;
        } else {
            done = claim.update([&](FileIO& handle) {
                BinFile file(handle);
                if (oldOffset > INT64_MAX ||
                    !modifySpatialTrakSTCOIndex(file, distance(oldOffset, blockOffset))) {
                    return false;
                }
                failing = recordOperation;
                Attempt attempt(handle);
                const bool written = writeRecord(*this, attempt,
                                                 data != nullptr ? recordOf(data->offset, data->boxSize)
                                                                 : ByteArray(recordBytes));
                if (!written || !handle.flush()) {
                    modifySpatialTrakSTCOIndex(file, distance(blockOffset, oldOffset));
                    return false;
                }
                attempt.keep();
                return true;
            });
        }
    }
    if (!done) {
        return patchFailed(*this, failing);
    }
    reattach(*this);
    return true;
}

} // namespace MP4
