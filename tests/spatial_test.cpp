// Spatial sound: stretches of it, and blocks carried from file to file.

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "MP4Container.h"
#include "SpatialSound.h"
#include "support/Cases.h"
#include "support/Faults.h"

using namespace test;
using MP4::Container;
using MP4::SpatialSound;

namespace {

// Sound of 1,000 samples a second, 8 bytes each: 5,000 samples, three whole chunks and a rest.
constexpr uint32_t seconds = 5;
constexpr uint32_t rate = 1000;

Bytes samples(uint32_t from, uint32_t to) {
    Bytes bytes;
    for (uint32_t i = from; i < to; ++i) {
        bytes += u64(i);
    }
    return bytes;
}

/// The parts of a track that a stretch changes.
struct Tables {
    Bytes mdhd;
    Bytes stts;
    Bytes stsc;
    Bytes chunks;
    uint32_t count;
};

Bytes track(const Tables& tables) {
    return box(
        "ZATR",
        {tkhd(0, 0),
         box("mdia",
             {tables.mdhd, box("hdlr", {zeros(24)}),
              box("minf", {box("dinf", {box("dref")}),
                           box("stbl", {fullBox("stsd", 0, {u32(1), box("sowt", {zeros(28)})}), tables.stts,
                                        tables.stsc, fullBox("stsz", 0, {u32(8), u32(tables.count)}),
                                        tables.chunks})})})});
}

Bytes mdhd(uint8_t version, uint32_t duration) {
    const Bytes time = version == 1 ? u64(7) : u32(7);
    return fullBox("mdhd", version,
                   {time, time, u32(rate), version == 1 ? u64(duration) : u32(duration), u32(0x55C40000)});
}

Bytes chunkTable(bool wide, uint64_t data, uint32_t count) {
    Bytes entries;
    for (uint32_t i = 0; i < count; ++i) {
        entries += wide ? u64(data + i * 1536 * 8) : u32(static_cast<uint32_t>(data + i * 1536 * 8));
    }
    return fullBox(wide ? "co64" : "stco", 0, {u32(count), entries});
}

/// The track that describes the samples from `from` to `to` at file offset `data`.
Bytes rebuilt(uint64_t data, uint32_t from, uint32_t to, bool wide = true, uint8_t version = 0) {
    const uint32_t count = to - from;
    const uint32_t chunks = count / 1536 + 1;
    return track(
        {mdhd(version, count), fullBox("stts", 0, {u32(1), u32(count), u32(1)}),
         fullBox("stsc", 0, {u32(2), u32(1), u32(1536), u32(1), u32(chunks), u32(count % 1536), u32(1)}),
         chunkTable(wide, data, chunks), count});
}

Bytes block(const Bytes& data, const Bytes& zatr) {
    return uuidBox(MP4::SpatialData::_UUID, {box("ZADT", {data}), zatr});
}

const Bytes ftyp = box("ftyp", {text("isom"), u32(512)});
constexpr uint64_t dataOffset = 16 + 24 + 8;

/// A recording with all of the sound, described as an encoder might have done it.
Bytes recording(bool wide = true, uint8_t version = 0) {
    return cat({ftyp, block(samples(0, seconds * rate),
                            track({mdhd(version, 5000),
                                   fullBox("stts", 0, {u32(2), u32(2000), u32(1), u32(3000), u32(1)}),
                                   fullBox("stsc", 0, {u32(1), u32(1), u32(5000), u32(1)}),
                                   chunkTable(wide, dataOffset, 1), 5000}))});
}

/// Another file, into which sound is carried; `record` is the content of its `ZDT9` box.
Bytes target(const Bytes& record) {
    return cat({ftyp, box("moov", {box("mvhd"), box("udta", {box("ZDT9", {record})})}),
                box("mdat", {text("media")})});
}

} // namespace

TEST(SpatialSound, CoversTheRangeAskedFor) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", recording());
    const double infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double start;
        double end;
        bool taken;
        uint32_t from; ///< samples
        uint32_t to;
    };
    for (const auto& [start, end, taken, from, to] :
         {Case{1, 2, true, 1000, 2000}, Case{0.5, -1, true, 500, 5000}, Case{-3, 1.5364, true, 0, 1536},
          Case{0, 5, true, 0, 5000}, Case{2, 2, true, 2000, 2000}, Case{5, -1, true, 5000, 5000},
          Case{0, -1, true, 0, 0}, Case{2, 1, false, 0, 0}, Case{5.001, -1, false, 0, 0},
          Case{0, 5.001, false, 0, 0}, Case{1e300, -1, false, 0, 0}, Case{infinity, -1, false, 0, 0},
          Case{0, infinity, false, 0, 0}, Case{std::nan(""), 1, false, 0, 0}}) {
        SpatialSound sound;
        EXPECT_EQ(sound.attach(path, start, end), taken) << start << ' ' << end;
        const bool trimmed = taken && (start > 0 || end >= 0);
        EXPECT_EQ(sound.trimmed, trimmed);
        if (!trimmed) {
            EXPECT_TRUE(sound.trimmedTrack.empty());
            continue;
        }
        EXPECT_EQ(sound.startOffset, from * 8) << start << ' ' << end;
        EXPECT_EQ(sound.endOffset, to * 8);
        EXPECT_EQ(sound.sampleCount, to - from);
        EXPECT_EQ(sound.chunkCount, (to - from) / 1536 + 1);
        EXPECT_EQ(sound.lastChunkBytes, (to - from) % 1536 * 8);
        EXPECT_EQ(Bytes(sound.trimmedTrack.begin(), sound.trimmedTrack.end()), rebuilt(dataOffset, from, to));
    }
}

TEST(SpatialSound, RebuildsTheTrackInItsOwnForm) {
    const Scratch scratch;
    SpatialSound sound;
    const auto bytes = [&](const Bytes& content) {
        EXPECT_TRUE(sound.attach(scratch.file("f.mp4", content), 1, 4.5));
        return Bytes(sound.trimmedTrack.begin(), sound.trimmedTrack.end());
    };
    EXPECT_EQ(bytes(recording(false)), rebuilt(dataOffset, 1000, 4500, false)) << "32-bit chunk offsets";
    EXPECT_EQ(bytes(recording(true, 1)), rebuilt(dataOffset, 1000, 4500, true, 1)) << "64-bit times";

    const auto fails = [&](const Bytes& content) {
        const auto path = scratch.file("f.mp4", content);
        return printed([&] { EXPECT_FALSE(sound.attach(path, 1, 2)); }).out;
    };
    EXPECT_EQ(fails(cat({ftyp, block(samples(0, 5000), box("ZATR", {tkhd(0, 0)}))})),
              "No Spatial Metadata.\n");
    EXPECT_EQ(fails(cat({ftyp, block(samples(0, 5000) + "x", Bytes())})), "No Spatial Metadata.\n");
    EXPECT_TRUE(sound.attach(scratch.file("f.mp4", cat({ftyp, block("", Bytes())})), 1, 2)) << "no data";
    EXPECT_TRUE(sound.trimmedTrack.empty());
}

TEST(SpatialSound, IsDumpedAsItIs) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", recording());
    Container container;
    SpatialSound sound;
    ASSERT_TRUE(container.attach(path) && sound.attach(path, 1, 2));
    sound.dump(scratch / "track");
    sound.dumpWAV(container, scratch / "wav");
    EXPECT_EQ(contentOf(scratch / "track"), rebuilt(dataOffset, 1000, 2000));
    EXPECT_EQ(contentOf(scratch / "wav"),
              Bytes("RIFF\x64\x1F\x00\x00WAVEfmt "
                    "\x10\x00\x00\x00\x01\x00\x04\x00\x80\xBB\x00\x00\x00\xDC\x05\x00\x08\x00\x10\x00"
                    "data\x40\x1F\x00\x00",
                    44) +
                  samples(1000, 2000));
}

namespace {

/// Carries a stretch, or all, of the sound into the file at `path`.
bool carry(const std::wstring& path, const std::wstring& from, bool whole) {
    Container container;
    SpatialSound sound;
    bool carried = false;
    const bool read = container.attach(path) && sound.attach(from, whole ? 0 : 1, whole ? 5 : 2);
    Brisa::FileIO::open(from, [&](Brisa::FileIO& source) {
        carried = read && (whole ? container.appendSpatialData(source, 16, recording().size() - 16)
                                 : container.trimSpatialData(source, 16, sound));
    });
    return carried;
}

} // namespace

TEST(SpatialBlock, IsCarriedWholeOrTrimmed) {
    const Scratch scratch;
    const auto source = scratch.file("source.mp4", recording());
    const uint64_t at = target(zeros(16)).size();
    const auto record = [at](uint32_t count) { return u64(at + 24) + u64(8 + count * 8); };
    const Bytes whole = recording().substr(16);
    Bytes shiftedWhole = whole;
    shiftedWhole.replace(whole.find("co64") + 12, 8, u64(at + 32));
    const std::pair<Bytes, Bytes> cases[] = {
        {target(zeros(16)), target(record(5000)) + shiftedWhole},
        {target(zeros(16)), target(record(1000)) + block(samples(1000, 2000), rebuilt(at + 32, 1000, 2000))},
    };
    for (const auto& [before, after] : cases) {
        const bool all = after == cases[0].second;
        const auto path = scratch.file("f.mp4", before);
        EXPECT_TRUE(carry(path, source, all));
        EXPECT_EQ(contentOf(path), after);
        const auto [out, err] = printed([&, all = all] { EXPECT_TRUE(carry(path, source, all)); });
        EXPECT_EQ(out, "MP4: SpatialData is existed.\n");
        EXPECT_EQ(contentOf(path), after);
        for (const Fault fault : {Fault::error, Fault::shortWrite}) {
            expectAllOrNothing(fault, before, after,
                               [&, all = all](const std::wstring& file) { return carry(file, source, all); });
        }
    }
}

TEST(SpatialBlock, IsTakenBackWhenItCannotBePointedTo) {
    const Scratch scratch;
    const auto source = scratch.file("source.mp4", recording());
    const auto withoutTable =
        scratch.file("bare.mp4", cat({ftyp, block(samples(0, 8), box("ZATR", {tkhd(0, 0)}))}));
    const Bytes before = target(zeros(15));
    const auto path = scratch.file("f.mp4", before);
    const std::string name(path.begin(), path.end());
    const auto failure = [&](const std::wstring& from, bool whole) {
        return printed([&] { EXPECT_FALSE(carry(path, from, whole)); }).out;
    };
    EXPECT_EQ(failure(source, false),
              "Container::modifyContainer::overwriteSpatialDataOffset_ZDT9(" + name + ") failed.\n")
        << "a record without room";
    EXPECT_EQ(contentOf(path), before);

    Container container;
    const auto open = scratch.file("g.mp4", withSize(box("mdat", {text("media")}), 0));
    ASSERT_TRUE(container.attach(open));
    bool carried = true;
    Brisa::FileIO::open(withoutTable, [&](Brisa::FileIO& file) {
        carried = quietly([&] { return container.appendSpatialData(file, 16, file.length() - 16); });
    });
    EXPECT_FALSE(carried) << "no chunk offsets";
    EXPECT_EQ(contentOf(open), withSize(box("mdat", {text("media")}), 0));
}

TEST(SpatialBlock, KeepsItsPointersWhenItMoves) {
    const Bytes movie =
        box("moov", {box("mvhd"), box("udta", {box("ZDT9", {u64(40) + u64(16)})}), track({stco({8})})});
    const auto sound = [](uint64_t data) { return block("8 bytes.", rebuilt(data, 0, 1)); };
    const Bytes media = box("mdat", {text("01234567")});
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", cat({media, sound(48), movie}));
    Container container;
    ASSERT_TRUE(container.attach(path));
    EXPECT_TRUE(container.moovFirst());
    Bytes moved = movie;
    const uint64_t by = movie.size();
    moved.replace(moved.find("ZDT9") + 4, 8, u64(40 + by))
        .replace(moved.find("stco") + 12, 4, u32(static_cast<uint32_t>(8 + by)));
    EXPECT_EQ(contentOf(path), cat({moved, media, sound(48 + by)}));
}
