// SPDX-License-Identifier: MIT
#include "ByteOrder.h"
#include "SpatialSound.h"

namespace MP4 {

namespace {

constexpr uint16_t pcm = 1;
constexpr uint16_t channels = 4;
constexpr uint32_t sampleRate = 48000;
constexpr uint16_t bitsPerSample = 16;

void append(ByteArray& header, const char (&text)[5]) {
    header.append(text, 4);
}

template <std::unsigned_integral Integer>
void append(ByteArray& header, Integer value) {
    value = inOrder<std::endian::little>(value);
    header.append(&value, sizeof value);
}

/// What stands in front of the samples of a WAV file, 44 bytes.
ByteArray wavHeader(uint32_t sampleSize, uint32_t dataSize) {
    constexpr uint32_t behindItsSize = 36;
    ByteArray header;
    append(header, "RIFF");
    append(header, static_cast<uint32_t>((uint64_t{dataSize} + behindItsSize) & 0xFFFFFFFF));
    append(header, "WAVE");
    append(header, "fmt ");
    append(header, uint32_t{16});
    append(header, pcm);
    append(header, channels);
    append(header, sampleRate);
    append(header, static_cast<uint32_t>((uint64_t{sampleSize} * sampleRate) & 0xFFFFFFFF));
    append(header, static_cast<uint16_t>(sampleSize & 0xFFFF));
    append(header, bitsPerSample);
    append(header, "data");
    append(header, dataSize);
    return header;
}

} // namespace

bool SpatialSound::dump(const std::wstring& path) const {
    bool written = false;
    Brisa::FileIO::open_w(path, [&](Brisa::FileIO& file) { written = writeTrimmedZATR(file); });
    return written;
}

bool SpatialSound::dumpWAV(const Container& container, const std::wstring& path) const {
    const uint32_t dataSize = endOffset - startOffset;
    const ByteArray header = wavHeader(sampleSize, dataSize);
    const bool sound = firstSpatialBox(container, "uuid.ZADT", sizeWithContent) != nullptr;
    bool written = false;
    Brisa::FileIO::open_w(path, [&](Brisa::FileIO& wav) {
        written = wav.writeAll(header.data(), header.size()) == header.size();
        if (!written || !sound) {
            return;
        }
        written = false;
        container.open([&](Brisa::FileIO& file) {
            written = file.seek_set(dataOffset + startOffset) && file.copyTo(wav, dataSize) == dataSize;
        });
    });
    return written;
}

} // namespace MP4
