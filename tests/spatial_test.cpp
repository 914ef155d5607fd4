// SPDX-License-Identifier: MIT
// Spatial sound: stretches of it, and blocks carried from file to file.

#include <cmath>
#include <fstream>
#include <limits>

#include "SpatialSound.h"
#include "support/Edit.h"

using namespace test;
using MP4::Container;
using MP4::SpatialSound;

namespace {

// Sound of 1,000 samples a second, 8 bytes each: 5,000 samples, three whole chunks and a rest.

Bytes samples(uint32_t from, uint32_t to) {
    Bytes bytes;
    for (uint32_t i = from; i < to; ++i) {
        bytes += u64(i);
    }
    return bytes;
}

Bytes mdhd(uint8_t version, uint32_t duration) {
    const Bytes time = version == 1 ? u64(7) : u32(7);
    return fullBox("mdhd", version, {time, time, u32(1000), version == 1 ? u64(duration) : u32(duration), u32(0x55C40000)});
}

Bytes chunkTable(bool wide, uint64_t data, uint32_t count) {
    Bytes entries;
    for (uint32_t i = 0; i < count; ++i) {
        entries += wide ? u64(data + i * 1536 * 8) : u32(static_cast<uint32_t>(data + i * 1536 * 8));
    }
    return fullBox(wide ? "co64" : "stco", 0, {u32(count), entries});
}

/// A track whose media header and tables are given, with what a stretch does not change around them.
Bytes zatr(const Bytes& header, Parts tables) {
    return box("ZATR",
               {tkhd(0), box("mdia", {header, box("hdlr", {zeros(24)}),
                                      box("minf", {box("dinf", {box("dref")}),
                                                   box("stbl", {fullBox("stsd", 0, {u32(1), box("sowt", {zeros(16), u16(4), zeros(10)})}),
                                                                cat(tables)})})})});
}

/// The track that describes the samples from `from` to `to` at file offset `data`.
Bytes rebuilt(uint64_t data, uint32_t from, uint32_t to, bool wide = true, uint8_t version = 0) {
    const uint32_t count = to - from;
    const uint32_t chunks = count / 1536 + 1;
    return zatr(mdhd(version, count), {fullBox("stts", 0, {u32(1), u32(count), u32(1)}),
                                       fullBox("stsc", 0, {u32(2), u32(1), u32(1536), u32(1), u32(chunks), u32(count % 1536), u32(1)}),
                                       fullBox("stsz", 0, {u32(8), u32(count)}), chunkTable(wide, data, chunks)});
}

Bytes block(const Bytes& data, const Bytes& track) {
    return uuidBox(MP4::SpatialData::_UUID, {box("ZADT", {data}), track});
}

const Bytes ftyp = box("ftyp", {"isom", u32(512)});
constexpr uint64_t dataOffset = 16 + 24 + 8;

/// A recording with all of the sound, described as an encoder might have done it.
Bytes recording(bool wide = true, uint8_t version = 0, uint64_t behind = 0) {
    return ftyp + block(samples(0, 5000),
                        zatr(mdhd(version, 5000), {fullBox("stts", 0, {u32(2), u32(2000), u32(1), u32(3000), u32(1)}),
                                                   fullBox("stsc", 0, {counted({1U, 5000U, 1U})}), fullBox("stsz", 0, {u32(8), u32(5000)}),
                                                   chunkTable(wide, behind + dataOffset, 1)}));
}

/// Another file, into which sound is carried; `record` is the content of its `ZDT9` box.
Bytes target(const Bytes& record) {
    return ftyp + box("moov", {box("mvhd"), box("udta", {box("ZDT9", {record})})}) + box("mdat", {"media"});
}

Bytes trackOf(const SpatialSound& sound) {
    return {sound.trimmedTrack.begin(), sound.trimmedTrack.end()};
}

} // namespace

TEST(SpatialSound, CoversTheRangeAskedFor) {
    const Scratch scratch;
    const auto path = scratch.file(recording());
    constexpr double infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double start;
        double end;
        bool taken;
        uint32_t from = 0; ///< samples; none: nothing is trimmed
        uint32_t to = 0;
    };
    for (const auto& [start, end, taken, from, to] :
         {Case{1, 2, true, 1000, 2000}, Case{0.5, -1, true, 500, 5000}, Case{-3, 1.5364, true, 0, 1536}, Case{0, 5, true, 0, 5000},
          Case{2, 2, true, 2000, 2000}, Case{5, -1, true, 5000, 5000}, Case{0, -1, true}, Case{2, 1, false}, Case{5.001, -1, false},
          Case{0, 5.001, false}, Case{1e300, -1, false}, Case{infinity, -1, false}, Case{0, infinity, false},
          Case{std::nan(""), 1, false}}) {
        SpatialSound sound;
        EXPECT_EQ(sound.attach(path, start, end), taken) << start << ' ' << end;
        EXPECT_EQ(sound.trimmed, to != 0);
        EXPECT_EQ(trackOf(sound), to != 0 ? rebuilt(dataOffset, from, to) : "");
        if (sound.trimmed) {
            EXPECT_THAT((std::array{sound.startOffset, sound.endOffset, sound.sampleCount, sound.chunkCount, sound.lastChunkBytes}),
                        testing::ElementsAre(from * 8, to * 8, to - from, (to - from) / 1536 + 1, (to - from) % 1536 * 8))
                << start << ' ' << end;
        }
    }
}

TEST(SpatialSound, RebuildsTheTrackInItsOwnFormOrNotAtAll) {
    const Scratch scratch;
    SpatialSound sound;
    for (const auto& [wide, version] : {std::pair{false, uint8_t{0}}, {true, uint8_t{1}}}) {
        EXPECT_TRUE(sound.attach(scratch.file(recording(wide, version)), 1, 4.5));
        EXPECT_EQ(trackOf(sound), rebuilt(dataOffset, 1000, 4500, wide, version));
    }
    const Bytes& track = recording().substr(recording().find("ZATR") - 4);
    const Bytes dataBeyond = uuidBox(MP4::SpatialData::_UUID, {track, withSize(box("ZADT", {samples(0, 5000)}), 40009)});
    const Bytes twoTables = zatr(mdhd(0, 9), {fullBox("stsz", 0, {u32(8), u32(9)}), stco({8}), co64({8})});
    const Bytes leafBeyond = zatr(mdhd(0, 9), {fullBox("stsz", 0, {u32(8), u32(9)}), withSize(box("free"), 99)});
    for (const auto& [content, taken, text] :
         {std::tuple{ftyp + block(samples(0, 5000), box("ZATR", {tkhd(0)})), false, "No Spatial Metadata.\n"},
          {ftyp + block(samples(0, 5000), leafBeyond), false, ""},
          {ftyp + block(samples(0, 5000), twoTables), false, ""},
          {ftyp + dataBeyond, false, ""},
          {ftyp + block("", Bytes()), true, ""},
          {ftyp, true, ""}}) {
        const auto path = scratch.file(content);
        bool done = !taken;
        const auto [out, err] = printed([&] { done = sound.attach(path, 1, 2); });
        EXPECT_EQ(done, taken);
        EXPECT_EQ(out, text);
        EXPECT_TRUE(!sound.trimmed && sound.endOffset == 0 && sound.trimmedTrack.empty()) << "nothing is left of a failure";
    }
}

TEST(SpatialSound, IsDumpedAsItIs) {
    const Scratch scratch;
    const auto path = scratch.file(recording());
    Container container;
    SpatialSound sound;
    SpatialSound located;
    ASSERT_TRUE(container.attach(path) && sound.attach(path, 1, 2) && located.locate(container) && located.cover(0, -1));
    EXPECT_EQ(located.channels, 4);
    EXPECT_TRUE(sound.dump(scratch / "track") && sound.dumpWAV(container, scratch / "wav") && located.dumpWAV(container, scratch / "all"));
    EXPECT_FALSE(quietly([&] { return sound.dump(L"/dev/full") || located.dumpWAV(container, L"/dev/full"); }));
    EXPECT_EQ(contentOf(scratch / "track"), rebuilt(dataOffset, 1000, 2000));
    EXPECT_EQ(contentOf(scratch / "wav"),
              Bytes("RIFF\x64\x1F\0\0WAVEfmt \x10\0\0\0\x01\0\x04\0\x80\xBB\0\0\0\xDC\x05\0\x08\0\x10\0data\x40\x1F\0\0", 44) +
                  samples(1000, 2000));
    EXPECT_EQ(contentOf(scratch / "all").substr(44), samples(0, 5000));
}

namespace {

/// Carries all of the sound of a file, or its second second, into another; in the source, the block may lie that much further behind.
std::function<bool(Container&)> carry(const Bytes& from, bool whole, uint64_t behind = 0) {
    return [from, whole, behind](Container& container) {
        const Scratch scratch;
        const auto path = scratch.file(behind == 0 ? from : largeBox("free").replace(8, 8, u64(behind)));
        if (behind != 0) {
            std::filesystem::resize_file(path, behind);
            std::ofstream(std::filesystem::path(path), std::ios::app) << from;
        }
        SpatialSound sound;
        bool carried = whole || sound.attach(path, 1, 2);
        Brisa::FileIO::open(path, [&](Brisa::FileIO& source) {
            carried = carried && (whole ? container.appendSpatialData(source, behind + 16, from.size() - 16)
                                        : container.trimSpatialData(source, behind + 16, sound));
        });
        return carried;
    };
}

bool carryBackwards(Container& container) {
    SpatialSound sound;
    sound.startOffset = 8;
    Brisa::FileIO source(container.path, 'r');
    return container.trimSpatialData(source, 16, sound);
}

bool carryTwice(Container& container) {
    return carry(recording(), false)(container) && carry(recording(), true)(container);
}

const uint64_t at = target(zeros(16)).size();
constexpr uint64_t farOff = (uint64_t{1} << 32) + 5;
const Bytes carriedWhole = [] {
    Bytes whole = recording().substr(16);
    return whole.replace(whole.find("co64") + 12, 8, u64(at + 32));
}();
Bytes record(uint32_t count) {
    return u64(at + 24) + u64(8 + uint64_t{count} * 8);
}

const Bytes media = box("mdat", {"01234567"});
const Bytes recordBeyond = box("moov", {box("mvhd"), box("udta", {withSize(box("ZDT9"), 24)})}) + box("mdat", {zeros(40)});
const Bytes withoutTable = ftyp + block(samples(0, 8), box("ZATR", {tkhd(0)}));

Bytes movie(uint64_t by) {
    return box("moov", {box("mvhd"), box("udta", {box("ZDT9", {u64(40 + by) + u64(16)})}), track({stco({static_cast<uint32_t>(8 + by)})})});
}
Bytes sound(uint64_t by) {
    return block("8 bytes.", rebuilt(48 + by, 0, 1));
}

/// The track of a block with this table, and nothing else.
Bytes bare(const Bytes& table) {
    return box("ZATR", {box("mdia", {box("minf", {box("stbl", {table})})})});
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Spatial, Edit,
    testing::Values(EditCase{"Whole", carry(recording(), true), target(zeros(16)), target(record(5000)) + carriedWhole},
                    EditCase{"Trimmed", carry(recording(), false), target(zeros(16)),
                             target(record(1000)) + block(samples(1000, 2000), rebuilt(at + 32, 1000, 2000))},
                    EditCase{"Twice", carryTwice, target(zeros(16)),
                             target(record(1000)) + block(samples(1000, 2000), rebuilt(at + 32, 1000, 2000)),
                             "MP4: SpatialData is existed.\n"},
                    EditCase{"TrimmedBeyond4GiB", carry(recording(true, 0, farOff), false, farOff), target(zeros(16)),
                             target(record(1000)) + block(samples(1000, 2000), rebuilt(at + 32, 1000, 2000))},
                    EditCase{"WholeBeyond4GiB", carry(recording(true, 0, farOff), true, farOff), target(zeros(16)),
                             target(record(5000)) + carriedWhole},
                    EditCase{"Backwards", carryBackwards, target(zeros(16)), "", refused, "ahead of its start"},
                    EditCase{"PointedToAgain", edit(&Container::overwriteSpatialDataOffset, 1000ULL),
                             target(zeros(16)) + block("8 bytes.", bare(co64({1032}))),
                             target(u64(at + 24) + u64(16)) + block("8 bytes.", bare(co64({at + 32})))},
                    EditCase{"BecomesWide", edit(&Container::moovFirst), media + block("8 bytes.", bare(stco({48, ~0U}))) + movie(0),
                             movie(movie(0).size()) + media + block("8 bytes.", bare(co64({48 + movie(0).size(), ~0U + movie(0).size()})))},
                    EditCase{"RecordBeyondItsBoxes", carry(recording(), false), recordBeyond, "", failed},
                    EditCase{"NoChunkOffsets", carry(withoutTable, true), withSize(media, 0), "", failed},
                    EditCase{"MovedByTheMovie", edit(&Container::moovFirst), media + sound(0) + movie(0),
                             movie(movie(0).size()) + media + sound(movie(0).size())}),
    nameOf<EditCase>);

TEST(SpatialSound, GetsAWiderTableBehind4GiB) {
    const Scratch scratch;
    const auto path = scratch.file(largeBox("free").replace(8, 8, u64(farOff)));
    std::filesystem::resize_file(path, farOff);
    Container container;
    ASSERT_TRUE(container.attach(path) && carry(ftyp + block("8 bytes.", bare(stco({48, 50}))), true)(container));
    Bytes appended(104, ' ');
    std::ifstream(std::filesystem::path(path)).seekg(farOff).read(appended.data(), 104);
    EXPECT_EQ(appended, block("8 bytes.", bare(co64({farOff + 32, farOff + 34}))));
}
