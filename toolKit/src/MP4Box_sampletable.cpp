// SPDX-License-Identifier: MIT
#include "MP4Box.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Box_fields.h"

namespace MP4 {

namespace {

using Brisa::Console;

constexpr uint64_t blockBytes = 65536; // of a table, read at a time

/// Turns `bytes` of big-endian 32-bit numbers, in place, into numbers of this machine.
void toHostOrder(uint8_t* words, uint64_t bytes) {
    for (uint8_t* word = words; word != words + bytes; word += sizeof(uint32_t)) {
        const auto value = loadBigEndian<uint32_t>(word);
        std::memcpy(word, &value, sizeof value);
    }
}

/// Reads a table of `count` entries, each a row of 32-bit numbers, and sets `count` to the number of entries
/// that the table has, whether or not they are kept.
template <class Entry>
void readEntries(BinFile& file, uint32_t& count, std::vector<Entry>& entries) {
    static_assert(sizeof(Entry) % sizeof(uint32_t) == 0);
    constexpr uint64_t block = blockBytes / sizeof(Entry) * sizeof(Entry);
    const uint64_t there = file.available() / sizeof(Entry) * sizeof(Entry);
    count = static_cast<uint32_t>(file.allowance.takeContents(count * sizeof(Entry), there) / sizeof(Entry));
    if (!file.allowance.keepContents) {
        return;
    }
    entries.resize(count);
    auto* const bytes = reinterpret_cast<uint8_t*>(entries.data());
    const uint64_t stored = std::min<uint64_t>(there, count * sizeof(Entry));
    for (uint64_t done = 0; done < stored; done += block) {
        const uint64_t read = std::min(block, stored - done);
        file.readBytes(bytes + done, read);
        toHostOrder(bytes + done, read);
    }
}

/// The sum of the next `count` 32-bit numbers, as far as they are there.
uint64_t readTotal(BinFile& file, uint32_t count) {
    constexpr uint64_t width = sizeof(uint32_t);
    std::array<uint8_t, blockBytes + width> block;
    uint64_t total = 0;
    for (uint64_t left = std::min<uint64_t>(count, file.available() / width) * width; left != 0;) {
        const uint64_t bytes = std::min(left, blockBytes);
        file.readBytes(block.data(), bytes);
        std::memset(&block[bytes], 0, width); // two are added at a time, in half the time; an odd one and 0
        for (uint64_t at = 0; at < bytes; at += 2 * width) {
            const auto two = loadBigEndian<uint64_t>(&block[at]);
            total += (two >> 32) + (two & 0xFFFFFFFF);
        }
        left -= bytes;
    }
    return total;
}

} // namespace

void STSD::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.readBytes(&versionFlags, sizeof versionFlags);
    entryCount = file.read32();
    parseChildren(file, limit);
}

void AVC1::parseBox(BinFile& file, uint64_t limit) {
    constexpr int64_t fixedFields = 78;
    enter(file, limit);
    if (file.fits(fixedFields)) {
        file.seek_cur(fixedFields);
    }
    parseChildren(file, limit);
}

void SOWT::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.seek_cur(6); // reserved
    data_reference_index = file.read16();
    file.seek_cur(8); // reserved
    channel_count = file.read16();
    sample_size = file.read16();
    pre_defined = file.read16();
    file.seek_cur(2); // reserved
    samplerate = static_cast<uint16_t>(file.read32() >> 16);
    parseChildren(file, limit);
}

void SOWT::dump() const {
    Console::out(L"MP4: %ls<%ls data_reference_index=%u channel_count=%u sample_size=%u pre_defined=%u "
                 L"samplelate=%x>\n",
                 indentation().c_str(), basicTag().c_str(), data_reference_index, channel_count, sample_size,
                 pre_defined, samplerate);
    dumpChildren();
}

void STTS::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    readEntries(file, entryCount, entries);
}

void STTS::dump() const {
    Console::out(L"MP4: %ls<%ls entryCount=%d >\n", indentation().c_str(), basicTag().c_str(), entryCount);
}

void STSC::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    readEntries(file, entryCount, entries);
}

void STSC::dump() const {
    Console::out(L"MP4: %ls<%ls entryCount=%d >\n", indentation().c_str(), basicTag().c_str(), entryCount);
}

void STSZ::parseBox(BinFile& file, uint64_t limit) {
    constexpr uint64_t fixedFields = 12;
    enter(file, limit);
    if (!file.allowance.takeHeader(fixedFields)) {
        return;
    }
    readVersionAndFlags(file, version, flags);
    sampleSize = file.read32();
    sample_count = file.read32();
    if (sampleSize == 0) {
        readEntries(file, sample_count, entries);
        sample_total = file.allowance.tableTotals && !file.allowance.keepContents
                           ? readTotal(file, sample_count)
                           : std::accumulate(entries.begin(), entries.end(), uint64_t{0});
    } else {
        sample_total = uint64_t{sampleSize} * sample_count;
    }
}

void STSZ::dump() const {
    Console::out(L"MP4: %ls<%ls sampleSize=%d sample_count=%d sample_total=%llu >\n", indentation().c_str(),
                 basicTag().c_str(), sampleSize, sample_count, sample_total);
}

void STCO::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    readVersionAndFlags(file, version, flags);
    entryCount = file.read32();
    tableOffset = file.position();
}

void STCO::dump() const {
    Console::out(L"MP4: %ls<%ls indexes=%u >\n", indentation().c_str(), basicTag().c_str(), entryCount);
}

} // namespace MP4
