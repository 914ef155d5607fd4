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
    ByteArray bytes(count);
    const bool read = file.readAll(bytes.data(), count) == count;
    output.append(bytes);
    return read;
}

/// Runs the steps that append a box on the container's file; how many bytes they appended, 0 on failure.
template <class Steps>
unsigned int bytesAppended(const Container& container, const ByteArray& output, Steps steps) {
    const size_t before = output.size();
    bool done = false;
    container.open([&](FileIO& file) { done = steps(file); });
    return done ? static_cast<unsigned int>(output.size() - before) : 0;
}

/// A full box whose header comes from the file and whose body is a row of 32-bit numbers.
unsigned int appendNumbers(const Container& container, const BOX& box, const std::vector<uint32_t>& numbers,
                           ByteArray& output) {
    ByteArray body(numbers.size() * sizeof(uint32_t));
    for (size_t i = 0; i < numbers.size(); ++i) {
        storeBigEndian(&body[i * sizeof(uint32_t)], numbers[i]);
    }
    return bytesAppended(container, output, [&](FileIO& file) {
        const auto size = static_cast<unsigned int>(fullBoxHeader + body.size());
        const bool begun = SpatialSound::writeFullBoxHeader(box, file, output, size);
        output.append(body);
        return begun;
    });
}

} // namespace

BOX* firstSpatialBox(const Container& container, const char* path, uint64_t size) {
    BOX* found = nullptr;
    container.find(path, [&](BOX& box) {
        found = found == nullptr && box.boxSize >= size ? &box : found;
        return found == nullptr;
    });
    return found;
}

void SpatialSound::clear() {
    const uint64_t kept = dataOffset;
    *this = SpatialSound();
    dataOffset = kept;
}

bool SpatialSound::attach(const std::wstring& path, double start, double end) {
    clear();
    if (!std::isfinite(start) || !std::isfinite(end)) {
        return false;
    }
    if (start <= 0 && end < 0) {
        return true;
    }
    start = std::max(start, 0.0);
    if (end >= 0 && start > end) {
        return false;
    }
    Container container;
    container.keepContents = false;
    if (!container.attach(path) || container.incomplete()) {
        return false;
    }
    const BOX* const data = firstSpatialBox(container, "uuid.ZADT", withContent);
    if (data == nullptr || data->boxSize <= data->headerSize()) {
        return true;
    }
    dataOffset = data->offset + data->headerSize();
    const uint64_t length = data->boxSize - data->headerSize();
    if (length > UINT32_MAX) {
        Console::err(L"MP4: spatial data of %llu bytes are too long to be trimmed.\n",
                     static_cast<unsigned long long>(length));
        return false;
    }
    const auto* const header =
        static_cast<MDHD*>(firstSpatialBox(container, "uuid.ZATR.mdia.mdhd", withContent));
    const auto* const sizes =
        static_cast<STSZ*>(firstSpatialBox(container, "uuid.ZATR.mdia.minf.stbl.stsz", withContent));
    const uint32_t timeScale = header != nullptr ? header->time_scale : 0;
    sampleSize = sizes != nullptr ? sizes->sampleSize : 0;
    if (timeScale == 0 || sampleSize == 0) {
        Console::out(L"No Spatial Metadata.\n");
        return false;
    }
    const auto within = [&](double seconds, uint32_t& offset) {
        const double samples = std::trunc(seconds * timeScale);
        const bool inside = samples <= static_cast<double>(length / sampleSize);
        offset = inside ? static_cast<uint32_t>(samples) * sampleSize : 0;
        return inside;
    };
    endOffset = static_cast<uint32_t>(length);
    if (!within(start, startOffset) || (end >= 0 && !within(end, endOffset))) {
        return false;
    }
    const uint32_t kept = endOffset - startOffset;
    if (kept % sampleSize != 0) {
        return false;
    }
    const uint64_t chunkBytes = uint64_t{samplesPerChunk} * sampleSize;
    sampleCount = kept / sampleSize;
    chunkCount = static_cast<uint32_t>(kept / chunkBytes) + 1;
    lastChunkBytes = static_cast<uint32_t>(kept % chunkBytes);
    trimmed = buildTrimmedZATR(container);
    return trimmed;
}

bool SpatialSound::buildTrimmedZATR(const Container& container) {
    trimmedTrack.clear();
    const BOX* const track = firstSpatialBox(container, "uuid.ZATR", withContent);
    unsigned int size = 0;
    return sampleSize != 0 && track != nullptr && copyBox(container, *track, trimmedTrack, size);
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
    } else if (box.wholeEnd(container.root->boxSize) == box.end()) { // no byte is copied twice
        size = bytesAppended(container, output, [&](FileIO& file) {
            return file.seek_set(box.offset) && appendFrom(file, box.boxSize, output);
        });
    }
    return size != 0;
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
