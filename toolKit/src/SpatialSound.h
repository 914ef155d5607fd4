// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ByteArray.h"
#include "MP4Container.h"

namespace MP4 {

inline constexpr uint64_t sizeWithContent = BOX::compactHeader + 1; ///< the least that a box with a body has

/// The first box at `path` ("uuid.ZADT", "uuid.ZATR") in a spatial-data block of the file, if it is at
/// least `size` bytes long; null if there is none.
BOX* firstSpatialBox(const Container& container, const char* path, uint64_t size);

/// A stretch of the spatial sound of a recording: which bytes of the audio data it covers, and the track
/// description that fits them.
///
/// The sound lies in a top-level `uuid` box of the identity SpatialData::_UUID: a `ZADT` box with raw
/// samples of a constant size, and a `ZATR` box, which has the content of a `trak`. Three steps lead to a
/// stretch: locate() finds the sound, cover() computes the stretch, buildTrimmedZATR() rebuilds the `ZATR` in
/// memory, in chunks of 1,536 samples. attach() does all three; a WAV file needs only the first two. The
/// rebuilt chunk offsets start at the ZADT data of the file it was read from: Container::trimSpatialData()
/// appends the stretch to a file and shifts them to where it lies there.
///
/// No file stays open between calls, and nothing of a container is kept. Nothing is thrown but what the
/// standard library throws when memory is short. Different objects may be used in different threads.
class SpatialSound {
public:
    ByteArray trimmedTrack;  ///< the rebuilt `ZATR` box, header included; empty until built
    uint32_t sampleSize = 0; ///< bytes of one sample of all channels; 0 when the track tells no constant size
    uint32_t chunkCount = 0; ///< whole chunks, and one for the rest, even if that is empty
    uint32_t sampleCount = 0;    ///< samples in the stretch
    uint32_t lastChunkBytes = 0; ///< bytes in the last chunk
    uint32_t startOffset = 0;    ///< of the stretch, in bytes from the start of the ZADT data
    uint32_t endOffset = 0;      ///< where it ends
    uint64_t dataOffset = 0;     ///< file offset of the ZADT data
    bool trimmed = false;        ///< whether the last attach() built `trimmedTrack`

    uint64_t dataLength = 0; ///< bytes of the ZADT data; 0 without any
    uint32_t timeScale = 0;  ///< samples a second; 0 when the track does not tell
    uint16_t channels = 0;   ///< 0 when the track does not tell

    /// Forgets everything but `dataOffset`.
    void clear();

    /// Takes the stretch from `start` to `end` seconds; a negative end is the end of the data, a negative
    /// start in front of another end is 0. With no end and no start above 0, or without spatial data in
    /// the file, there is nothing to trim: true, and `trimmedTrack` is empty. False, and everything forgotten
    /// but `dataOffset`, when the range is reversed or not finite, when the file does not open, or when one
    /// of the three steps fails.
    bool attach(const std::wstring& path, double start, double end);

    /// Finds the sound in the container's tree and forgets what was known of another one: `dataOffset`,
    /// `dataLength` and what the track tells. False without any, and, with a line on standard error, when the
    /// file ends before the data do.
    bool locate(const Container& container);
    /// Computes the stretch from `start` to `end` seconds of the sound that locate() found; a negative start
    /// is the start of the data, a negative end their end. False, and no stretch,
    /// - with "No Spatial Metadata.\n" when the track tells no time scale or no constant sample size;
    /// - when the range is reversed, not finite, or goes beyond the data;
    /// - when the data are 4 GiB or longer (a line on standard error), or no whole number of samples.
    bool cover(double start, double end);
    /// Rebuilds `trimmedTrack` from the container's `ZATR` box: every box is copied, with a compact header,
    /// but for those that describe the samples (mdhd, stts, stsc, stsz, stco, co64), which are made anew.
    /// False when it cannot be read, does not lie within its block, or has a table more than once; and
    /// before the size of a sample is known.
    bool buildTrimmedZATR(const Container& container);
    /// Writes `trimmedTrack` at the file's position; true as well when it is empty.
    bool writeTrimmedZATR(Brisa::FileIO& file) const;

    /// Writes `trimmedTrack` to a file of its own; whether all of it was written.
    bool dump(const std::wstring& path) const;
    /// Writes the stretch as a WAV file (PCM, 4 channels, 48,000 Hz, 16 bits), of nothing but a header where
    /// the file has no sound; whether all of it was written. The container is attached to the file in which
    /// the sound was found.
    bool dumpWAV(const Container& container, const std::wstring& path) const;

    // The parts of buildTrimmedZATR(). Each appends to `output`; those that return a number return the
    // bytes appended, 0 on failure.
    bool copyBox(const Container& container, const BOX& box, ByteArray& output, unsigned int& size) const;
    bool copyAndModify(const Container& container, const BOX& box, ByteArray& output,
                       unsigned int& size) const;
    unsigned int modifyMDHD(const Container& container, const MDHD& box, ByteArray& output) const;
    unsigned int modifySTTS(const Container& container, const STTS& box, ByteArray& output) const;
    unsigned int modifySTSC(const Container& container, const STSC& box, ByteArray& output) const;
    unsigned int modifySTSZ(const Container& container, const STSZ& box, ByteArray& output) const;
    unsigned int modifySTCO(const Container& container, const STCO& box, ByteArray& output) const;
    unsigned int modifyCO64(const Container& container, const CO64& box, ByteArray& output) const;
    /// Appends the header of a full box in the file (size, type, version and flags), in compact form and with
    /// another size unless that is 0.
    static bool writeFullBoxHeader(const BOX& box, Brisa::FileIO& file, ByteArray& output, unsigned int size);

private:
    /// Runs the steps that append a box, on the file that `source` has open or on a handle of their own; how
    /// many bytes they appended, 0 on failure.
    unsigned int bytesAppended(const Container& container, const ByteArray& output,
                               const std::function<bool(Brisa::FileIO&)>& steps) const;
    /// A full box whose header comes from the file and whose body is a row of 32-bit numbers.
    unsigned int appendNumbers(const Container& container, const BOX& box,
                               const std::vector<uint32_t>& numbers, ByteArray& output) const;
    Brisa::FileIO* source = nullptr; ///< the container's file, while buildTrimmedZATR() is at work

    /// File offset at which a chunk starts, counted from 0.
    [[nodiscard]] uint64_t chunkOffset(uint32_t chunk) const;
};

} // namespace MP4
