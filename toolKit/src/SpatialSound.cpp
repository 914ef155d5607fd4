// SPDX-License-Identifier: MIT
#include "SpatialSound.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"

namespace MP4 {

namespace {

using Brisa::Console;
using Brisa::FileIO;

constexpr uint32_t samplesPerChunk = 1536;
constexpr uint64_t fullBoxHeader = 12;

template <class Integer>
void append(ByteArray& output, Integer value) {
    value = inOrder<std::endian::big>(value);
    output.append(&value, sizeof value);
}

/// Appends the next `count` bytes of the file.
bool appendFrom(FileIO& file, uint64_t count, ByteArray& output) {
    const size_t at = output.size();
    output.resize(at + count);
    return file.readAll(output.data() + at, count) == count;
}

/// Whether the box lies within the boxes around it, and within the file.
bool isWhole(const Container& container, const BOX& box) {
    return box.endWithin(container.root->boxSize) == box.end();
}

/// Whether a track tells each thing about its samples once at most. Only a damaged one does not, and each of
/// its many boxes would be rebuilt as long as the sound needs.
bool tellsOnce(const NestedBox& track) {
    const auto count = [&track](const char* path) {
        int boxes = 0;
        track.find(path, [&boxes](BOX&) {
            ++boxes;
            return true;
        });
        return boxes;
    };
    return count("mdia.mdhd") <= 1 && count("mdia.minf.stbl.stts") <= 1 &&
           count("mdia.minf.stbl.stsc") <= 1 && count("mdia.minf.stbl.stsz") <= 1 &&
           count("mdia.minf.stbl.stco") + count("mdia.minf.stbl.co64") <= 1;
}

} // namespace

BOX* firstSpatialBox(const Container& container, const char* path, uint64_t size) {
    BOX* found = nullptr;
    if (container.root) {
        container.root->find(path, [&](BOX& box) {
            found = box.boxSize >= size ? &box : nullptr;
            return found == nullptr ? Search::next : Search::stop;
        });
    }
    return found;
}

void SpatialSound::clear() {
    const uint64_t kept = dataOffset;
    *this = SpatialSound();
    dataOffset = kept;
}

bool SpatialSound::attach(const std::wstring& path, double start, double end) {
    clear();
    if (!std::isfinite(start) || !std::isfinite(end) || (end >= 0 && start > end)) {
        return false;
    }
    if (start <= 0 && end < 0) {
        return true;
    }
    Container container;
    container.keepContents = false;
    if (!container.attach(path) || container.incomplete()) {
        return false;
    }
    const bool located = locate(container);
    if (dataLength == 0) {
        return true;
    }
    trimmed = located && cover(start, end) && buildTrimmedZATR(container);
    if (!trimmed) {
        clear();
        return false;
    }
    return true;
}

bool SpatialSound::locate(const Container& container) {
    clear();
    const BOX* const data = firstSpatialBox(container, "uuid.ZADT", sizeWithContent);
    if (data == nullptr || data->boxSize <= data->headerSize()) {
        return false;
    }
    dataOffset = data->offset + data->headerSize();
    dataLength = data->boxSize - data->headerSize();
    const auto* const header = as<MDHD>(firstSpatialBox(container, "uuid.ZATR.mdia.mdhd", sizeWithContent));
    const auto* const sizes =
        as<STSZ>(firstSpatialBox(container, "uuid.ZATR.mdia.minf.stbl.stsz", sizeWithContent));
    const auto* const entry =
        as<SOWT>(firstSpatialBox(container, "uuid.ZATR.mdia.minf.stbl.stsd.sowt", sizeWithContent));
    timeScale = header != nullptr ? header->time_scale : 0;
    sampleSize = sizes != nullptr ? sizes->sampleSize : 0;
    channels = entry != nullptr ? entry->channel_count : 0;
    const bool whole = isWhole(container, *data);
    if (!whole) {
        Console::err(L"MP4: %ls: the spatial data are cut off.\n", container.path.c_str());
    }
    return whole;
}

bool SpatialSound::cover(double start, double end) {
    startOffset = endOffset = sampleCount = chunkCount = lastChunkBytes = 0;
    if (timeScale == 0 || sampleSize == 0) {
        Console::out(L"No Spatial Metadata.\n");
        return false;
    }
    if (dataLength > UINT32_MAX) {
        Console::err(L"MP4: spatial data of %llu bytes are too long to be trimmed.\n",
                     static_cast<unsigned long long>(dataLength));
        return false;
    }
    const auto samples = static_cast<double>(dataLength / sampleSize);
    const double first = std::trunc(std::max(start, 0.0) * timeScale);
    const double last = end < 0 ? samples : std::trunc(end * timeScale);
    const bool within = first <= last && last <= samples; // not so where one of them is no number
    if (!within || (end < 0 && dataLength % sampleSize != 0)) {
        return false;
    }
    const uint64_t chunkBytes = uint64_t{samplesPerChunk} * sampleSize;
    startOffset = static_cast<uint32_t>(first) * sampleSize;
    endOffset = static_cast<uint32_t>(last) * sampleSize;
    const uint32_t kept = endOffset - startOffset;
    sampleCount = kept / sampleSize;
    chunkCount = static_cast<uint32_t>(kept / chunkBytes) + 1;
    lastChunkBytes = static_cast<uint32_t>(kept % chunkBytes);
    return true;
}

bool SpatialSound::buildTrimmedZATR(const Container& container) {
    trimmedTrack.clear();
    const auto* const track = as<TRAK>(firstSpatialBox(container, "uuid.ZATR", sizeWithContent));
    if (sampleSize == 0 || track == nullptr || !isWhole(container, *track)) {
        return false;
    }
    if (!tellsOnce(*track)) {
        Console::err(L"MP4: %ls: the spatial track has a table more than once.\n", container.path.c_str());
        return false;
    }
    bool built = false;
    container.open([&](FileIO& file) {
        unsigned int size = 0;
        source = &file;
        built = copyBox(container, *track, trimmedTrack, size);
        source = nullptr;
    });
    return built;
}

bool SpatialSound::writeTrimmedZATR(FileIO& file) const {
    return file.writeAll(trimmedTrack.data(), trimmedTrack.size()) == trimmedTrack.size();
}

bool SpatialSound::copyBox(const Container& container, const BOX& box, ByteArray& output,
                           unsigned int& size) const {
    const bool whole = box.tag == fourcc("dinf") || box.tag == fourcc("stsd") || box.tag == fourcc("uuid");
    unsigned int bytes = 0;
    if (!box.hasChild() || whole) {
        const bool copied = copyAndModify(container, box, output, bytes);
        size += bytes;
        return copied;
    }
    const auto& nested = static_cast<const NestedBox&>(box);
    const size_t at = output.size();
    append(output, bytes);
    output.append(&box.tag, sizeof box.tag);
    bytes = BOX::compactHeader;
    const bool copied = std::all_of(nested.children.begin(), nested.children.end(), [&](const auto& child) {
        return copyBox(container, *child, output, bytes);
    });
    storeBigEndian<uint32_t>(&output[at], bytes);
    size += bytes;
    return copied && !nested.children.empty();
}

bool SpatialSound::copyAndModify(const Container& container, const BOX& box, ByteArray& output,
                                 unsigned int& size) const {
    size = 0;
    if (const auto* const co64 = dynamic_cast<const CO64*>(&box)) {
        size = modifyCO64(container, *co64, output);
    } else if (const auto* const stco = dynamic_cast<const STCO*>(&box)) {
        size = modifySTCO(container, *stco, output);
    } else if (const auto* const mdhd = dynamic_cast<const MDHD*>(&box)) {
        size = modifyMDHD(container, *mdhd, output);
    } else if (const auto* const stsc = dynamic_cast<const STSC*>(&box)) {
        size = modifySTSC(container, *stsc, output);
    } else if (const auto* const stsz = dynamic_cast<const STSZ*>(&box)) {
        size = modifySTSZ(container, *stsz, output);
    } else if (const auto* const stts = dynamic_cast<const STTS*>(&box)) {
        size = modifySTTS(container, *stts, output);
    } else if (isWhole(container, box)) { // what reaches into its neighbours would be copied with them again
        size = bytesAppended(container, output, [&](FileIO& file) {
            return file.seek_set(box.offset) && appendFrom(file, box.boxSize, output);
        });
    }
    return size != 0;
}

unsigned int SpatialSound::bytesAppended(const Container& container, const ByteArray& output,
                                         const std::function<bool(FileIO&)>& steps) const {
    const size_t before = output.size();
    bool done = false;
    if (source != nullptr) {
        done = steps(*source);
    } else {
        container.open([&](FileIO& file) { done = steps(file); });
    }
    return done ? static_cast<unsigned int>(output.size() - before) : 0;
}

unsigned int SpatialSound::appendNumbers(const Container& container, const BOX& box,
                                         const std::vector<uint32_t>& numbers, ByteArray& output) const {
    return bytesAppended(container, output, [&](FileIO& file) {
        const auto size = static_cast<unsigned int>(fullBoxHeader + numbers.size() * sizeof(uint32_t));
        const bool begun = writeFullBoxHeader(box, file, output, size);
        size_t at = output.size();
        output.resize(at + numbers.size() * sizeof(uint32_t));
        for (const uint32_t number : numbers) {
            storeBigEndian(&output[at], number);
            at += sizeof number;
        }
        return begun;
    });
}

bool SpatialSound::writeFullBoxHeader(const BOX& box, FileIO& file, ByteArray& output, unsigned int size) {
    append(output, size != 0 ? size : static_cast<uint32_t>(box.boxSize & 0xFFFFFFFF));
    output.append(&box.tag, sizeof box.tag);
    return file.seek_set(box.offset + box.headerSize()) && appendFrom(file, 4, output);
}

unsigned int SpatialSound::modifyMDHD(const Container& container, const MDHD& box, ByteArray& output) const {
    const bool wide = box.version == 1;
    const uint64_t timesAndScale = wide ? 20 : 12;
    const uint64_t durationWidth = wide ? 8 : 4;
    const uint64_t size = fullBoxHeader + timesAndScale + durationWidth + 4;
    return bytesAppended(container, output, [&](FileIO& file) {
        if (!writeFullBoxHeader(box, file, output, static_cast<unsigned int>(size)) ||
            !appendFrom(file, timesAndScale, output)) {
            return false;
        }
        wide ? append(output, uint64_t{sampleCount}) : append(output, sampleCount);
        return file.seek_cur(static_cast<int64_t>(durationWidth)) && appendFrom(file, 4, output); // language
    });
}

unsigned int SpatialSound::modifySTTS(const Container& container, const STTS& box, ByteArray& output) const {
    return appendNumbers(container, box, {1, sampleCount, 1}, output);
}

unsigned int SpatialSound::modifySTSC(const Container& container, const STSC& box, ByteArray& output) const {
    const uint32_t lastChunk = sampleSize != 0 ? lastChunkBytes / sampleSize : 0;
    return appendNumbers(container, box, {2, 1, samplesPerChunk, 1, chunkCount, lastChunk, 1}, output);
}

unsigned int SpatialSound::modifySTSZ(const Container& container, const STSZ& box, ByteArray& output) const {
    return appendNumbers(container, box, {sampleSize, sampleCount}, output);
}

unsigned int SpatialSound::modifySTCO(const Container& container, const STCO& box, ByteArray& output) const {
    const uint64_t last = chunkOffset(std::max(chunkCount, 1U) - 1);
    if (last > UINT32_MAX) {
        Console::err(L"MP4: a chunk offset of %llu does not fit 32 bits.\n",
                     static_cast<unsigned long long>(last));
        return 0;
    }
    std::vector<uint32_t> numbers{chunkCount};
    numbers.reserve(1 + size_t{chunkCount});
    for (uint32_t i = 0; i < chunkCount; ++i) {
        numbers.push_back(static_cast<uint32_t>(chunkOffset(i)));
    }
    return appendNumbers(container, box, numbers, output);
}

unsigned int SpatialSound::modifyCO64(const Container& container, const CO64& box, ByteArray& output) const {
    std::vector<uint32_t> numbers{chunkCount};
    numbers.reserve(1 + 2 * size_t{chunkCount});
    for (uint32_t i = 0; i < chunkCount; ++i) {
        numbers.push_back(static_cast<uint32_t>(chunkOffset(i) >> 32));
        numbers.push_back(static_cast<uint32_t>(chunkOffset(i) & 0xFFFFFFFF));
    }
    return appendNumbers(container, box, numbers, output);
}

uint64_t SpatialSound::chunkOffset(uint32_t chunk) const {
    return dataOffset + uint64_t{chunk} * samplesPerChunk * sampleSize;
}

} // namespace MP4
