// Box headers, nesting, search and dump.

#include <sstream>

#include <gtest/gtest.h>

#include "MP4Box.h"
#include "MP4Container.h"
#include "support/Cases.h"
#include "support/Scratch.h"

using namespace test;

namespace {

/// A file of the given bytes, parsed.
class Parsed {
public:
    explicit Parsed(const Bytes& content, unsigned long long limit = ~0ULL) {
        EXPECT_TRUE(container.attach(scratch.file("f.mp4", content), limit));
    }
    MP4::Container* operator->() { return &container; }
    [[nodiscard]] std::string dump() const {
        return printed([&] { container.dump(); }).out;
    }
    /// The dump without the line of the root.
    [[nodiscard]] std::string lines() const {
        const std::string all = dump();
        return all.substr(all.find('\n') + 1);
    }

private:
    Scratch scratch;
    MP4::Container container;
};

struct DumpCase {
    std::string name;
    Bytes content;
    std::string lines;
};

class Dump : public testing::TestWithParam<DumpCase> {};

constexpr uint32_t created = 3'600'000'000;

constexpr const char* stblPath = "moov.trak.mdia.minf.stbl";

/// A movie whose only track has nothing but these tables, from offset 40 on.
Bytes sampleTable(Parts tables) {
    return box("moov", {box("trak", {box("mdia", {box("minf", {box("stbl", tables)})})})});
}

/// A movie with nothing but these user data, from offset 16 on.
Bytes userData(Parts boxes) {
    return box("moov", {box("udta", boxes)});
}

Bytes locationText(const Bytes& position) {
    return box("\xA9xyz", {u16(static_cast<uint16_t>(position.size())), u16(0x15C7), position});
}

Bytes handler(const Bytes& name) {
    return fullBox("hdlr", 0, {zeros(4), text("mdir"), zeros(12), name});
}

/// As DumpCase, with the lines of the boxes inside the innermost one of `path` only.
struct InnerDumpCase {
    std::string name;
    const char* path;
    Bytes content;
    std::string lines; ///< without indentation
};

class InnerDump : public testing::TestWithParam<InnerDumpCase> {};

} // namespace

TEST_P(Dump, ShowsWhatTheBytesMean) {
    EXPECT_EQ(Parsed(GetParam().content).lines(), GetParam().lines);
}

TEST_P(InnerDump, ShowsWhatTheBytesMean) {
    Parsed file(GetParam().content);
    const auto& around = static_cast<MP4::NestedBox&>(*file->root->first(GetParam().path));
    const std::string printedLines = printed([&] { around.dump(); }).out;
    std::istringstream lines(printedLines.substr(printedLines.find('\n') + 1));
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        found += line.substr(line.find('<')) + '\n';
    }
    EXPECT_EQ(found, GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Dump,
    testing::Values(
        DumpCase{"Empty", "", ""},
        DumpCase{"Tree", cat({box("ftyp", {zeros(16)}), box("moov", {fullBox("mvhd", 0, {zeros(96)})})}),
                 "MP4: <'ftyp': start=0 bytes=24 >\n"
                 "MP4: <'moov': start=24 bytes=116 children=1 >\n"
                 "MP4:     <'mvhd': start=32 bytes=108 timeStamp=0 >\n"},
        DumpCase{
            "SizeBeyondWhatCanBeSought",
            cat({u32(1), text("moov"), u64(~0ULL - 15), u32(1), text("free"), u64(1ULL << 63), box("free")}),
            "MP4: <'moov': start=0 bytes=18446744073709551600 children=1 >\n"
            "MP4:     <'free': start=16 bytes=9223372036854775808 >\n"},
        DumpCase{"LyingContentsHideNothing",
                 cat({sampleTable({withSize(fullBox("stts", 0, {u32(2'000'000)}), 20)}),
                      uuidBox(MP4::XMP::_UUID)}),
                 "MP4: <'moov': start=0 bytes=56 children=1 >\n"
                 "MP4:     <'trak': start=8 bytes=48 children=1 >\n"
                 "MP4:         <'mdia': start=16 bytes=40 children=1 >\n"
                 "MP4:             <'minf': start=24 bytes=32 children=1 >\n"
                 "MP4:                 <'stbl': start=32 bytes=24 children=1 >\n"
                 "MP4:                     <'stts': start=40 bytes=20 entryCount=2000000 >\n"
                 "MP4: <'uuid': start=56 bytes=24 uuid=BE7ACFCB-97A9-42E8-9C71-999491E3AFAC >\n"},
        DumpCase{"TailOfSevenBytes", cat({box("free"), zeros(3), text("tail")}),
                 "MP4: <'free': start=0 bytes=8 >\n"},
        DumpCase{"TailOfEightBytes", cat({box("free"), text("sizetype")}),
                 "MP4: <'free': start=0 bytes=8 >\nMP4: <'type': start=8 bytes=1936292453 >\n"},
        DumpCase{"OpenEnded", cat({box("free"), withSize(box("mdat", {zeros(100)}), 0)}),
                 "MP4: <'free': start=0 bytes=8 >\nMP4: <'mdat': start=8 bytes=108 >\n"},
        DumpCase{"LargeSize", cat({largeBox("mdat", {zeros(4)}), box("free")}),
                 "MP4: <'mdat': start=0 bytes=20 >\nMP4: <'free': start=20 bytes=8 >\n"},
        DumpCase{"LargeSizeZero", cat({u32(1), text("mdat"), u64(0), box("free")}), ""},
        DumpCase{"LargeSizeCutOff", cat({box("free"), u32(1), text("mdat"), zeros(7)}),
                 "MP4: <'free': start=0 bytes=8 >\n"},
        DumpCase{"LargeSizeOverflows", cat({box("free"), u32(1), text("mdat"), u64(~0ULL), box("free")}),
                 "MP4: <'free': start=0 bytes=8 >\nMP4: <'mdat': start=8 bytes=18446744073709551615 >\n"},
        DumpCase{"ZeroTypeEndsTheScan", cat({box("free"), u32(8), zeros(4), box("free")}),
                 "MP4: <'free': start=0 bytes=8 >\n"},
        DumpCase{"SmallSizesAdvance", cat({withSize(box("free"), 4), text("dmoo")}),
                 "MP4: <'free': start=0 bytes=4 >\nMP4: <'dmoo': start=4 bytes=1718773093 >\n"},
        DumpCase{"ChildReachesPastItsParent",
                 cat({withSize(box("moov", {box("trak", {tkhd(2, 3)})}), 16), zeros(8)}),
                 "MP4: <'moov': start=0 bytes=16 children=1 >\n"
                 "MP4:     <'trak': start=8 bytes=100 children=1 >\n"
                 "MP4:         <'tkhd': start=16 bytes=92 timeStamp=0 width=2 height=3 >\n"
                 "MP4: <'tkhd': start=16 bytes=92 >\n"},
        DumpCase{"TypeIsCutAtAForeignByte", box("\xA9nam"), "MP4: <'': start=0 bytes=8 >\n"},
        DumpCase{
            "ClassDependsOnThePlace",
            cat({box("trak", {tkhd(1, 1)}), box("udta", {box("meta")}), fullBox("meta", 0, {box("free")})}),
            "MP4: <'trak': start=0 bytes=100 >\n"
            "MP4: <'udta': start=100 bytes=16 >\n"
            "MP4: <'meta': start=116 bytes=20 children=1 >\n"
            "MP4:     <'free': start=128 bytes=8 >\n"}),
    nameOf<DumpCase>);

INSTANTIATE_TEST_SUITE_P(
    HeaderBoxes, Dump,
    testing::Values(
        DumpCase{"MediaHeaderVersion1",
                 box("moov", {box("trak", {box("mdia", {fullBox("mdhd", 1,
                                                                {u64(created), u64(0), u32(24000), u64(48048),
                                                                 zeros(4)})})})}),
                 "MP4: <'moov': start=0 bytes=68 children=1 >\n"
                 "MP4:     <'trak': start=8 bytes=60 children=1 >\n"
                 "MP4:         <'mdia': start=16 bytes=52 children=1 >\n"
                 "MP4:             <'mdhd': start=24 bytes=44 timeStamp=3600000000 duration=48048.000000 "
                 "time_scale=24000.000000 >\n"},
        DumpCase{"MediaHeaderVersion2IsReadAs0",
                 box("moov",
                     {box("trak", {box("mdia", {fullBox("mdhd", 2, {u32(7), u32(0), u32(600), u32(60)})})})}),
                 "MP4: <'moov': start=0 bytes=52 children=1 >\n"
                 "MP4:     <'trak': start=8 bytes=44 children=1 >\n"
                 "MP4:         <'mdia': start=16 bytes=36 children=1 >\n"
                 "MP4:             <'mdhd': start=24 bytes=28 timeStamp=7 duration=60.000000 "
                 "time_scale=600.000000 >\n"},
        DumpCase{"TrackHeaderTruncatesTowardZero",
                 box("moov", {box("trak", {fullBox("tkhd", 1,
                                                   {u64(5), zeros(76), u32(0x07808000), u32(0xFFFE8000)})})}),
                 "MP4: <'moov': start=0 bytes=120 children=1 >\n"
                 "MP4:     <'trak': start=8 bytes=112 children=1 >\n"
                 "MP4:         <'tkhd': start=16 bytes=104 timeStamp=5 width=1920 height=4294967295 >\n"},
        DumpCase{"HeaderTooShortForItsFields", box("moov", {box("mvhd", {u8(0), zeros(3), u16(0xFFFF)})}),
                 "MP4: <'moov': start=0 bytes=22 children=1 >\n"
                 "MP4:     <'mvhd': start=8 bytes=14 timeStamp=0 >\n"}),
    nameOf<DumpCase>);

INSTANTIATE_TEST_SUITE_P(
    IdentifiedBoxes, Dump,
    testing::Values(
        DumpCase{"Packet", cat({box("free", {zeros(92)}), uuidBox(MP4::XMP::_UUID)}),
                 "MP4: <'free': start=0 bytes=100 >\n"
                 "MP4: <'uuid': start=100 bytes=24 uuid=BE7ACFCB-97A9-42E8-9C71-999491E3AFAC >\n"},
        DumpCase{"SpatialDataHasChildren",
                 uuidBox(MP4::SpatialData::_UUID, {box("ZADT"), box("ZATR", {tkhd(0, 0)})}),
                 "MP4: <'uuid': start=0 bytes=132 uuid=28F311E2-B791-4F6F-94E2-4F5DEACB3C01 >\n"
                 "MP4:     <'ZADT': start=24 bytes=8 >\n"
                 "MP4:     <'ZATR': start=32 bytes=100 children=1 >\n"
                 "MP4:         <'tkhd': start=40 bytes=92 timeStamp=0 width=0 height=0 >\n"},
        DumpCase{"NoRoomForTheIdentity", cat({box("uuid", {text("short")}), box("free")}),
                 "MP4: <'uuid': start=0 bytes=13 uuid=00000000-0000-0000-0000-000000000000 >\n"
                 "MP4: <'free': start=13 bytes=8 >\n"}),
    nameOf<DumpCase>);

INSTANTIATE_TEST_SUITE_P(
    SampleTables, InnerDump,
    testing::Values(
        InnerDumpCase{
            "ConstantSize", stblPath, sampleTable({fullBox("stsz", 0, {u32(1000), u32(5'000'000)})}),
            "<'stsz': start=40 bytes=20 sampleSize=1000 sample_count=5000000 sample_total=5000000000 >\n"},
        InnerDumpCase{"ListedSizes", stblPath,
                      sampleTable({fullBox("stsz", 0, {u32(0), u32(3), u32(3), u32(5), u32(7)})}),
                      "<'stsz': start=40 bytes=32 sampleSize=0 sample_count=3 sample_total=15 >\n"},
        InnerDumpCase{"ChunkOffsets", stblPath, sampleTable({stco({1, 2}), co64({3})}),
                      "<'stco': start=40 bytes=24 indexes=2 >\n<'co64': start=64 bytes=24 indexes=1 >\n"},
        InnerDumpCase{
            "SampleEntries", stblPath,
            sampleTable({fullBox("stsd", 0,
                                 {u32(7), // the loop runs over the bytes, not over the count
                                  box("sowt", {zeros(7), u8(1), zeros(8), u16(4), u16(16), zeros(4),
                                               u16(48000), u16(0), box("chan")}),
                                  box("avc1", {zeros(78), box("pasp")}), box("avc1", {box("pasp")})})}),
            "<'stsd': start=40 bytes=170 children=3 >\n"
            "<'sowt': start=56 bytes=44 data_reference_index=1 channel_count=4 sample_size=16 "
            "pre_defined=0 samplelate=bb80>\n"
            "<'chan': start=92 bytes=8 >\n"
            "<'avc1': start=100 bytes=94 children=1 >\n"
            "<'pasp': start=186 bytes=8 >\n"
            "<'avc1': start=194 bytes=16 children=1 >\n"
            "<'pasp': start=202 bytes=8 >\n"}),
    nameOf<InnerDumpCase>);

INSTANTIATE_TEST_SUITE_P(
    Metadata, InnerDump,
    testing::Values(
        InnerDumpCase{"LocationText", "moov.udta", userData({locationText("+35.6895+139.6917/")}),
                      "<'': start=16 bytes=30 xyz=+35.6895+139.6917/ 15c7 >\n"},
        InnerDumpCase{"LongLocationText", "moov.udta", userData({locationText(Bytes(600, 'x'))}),
                      "<'': start=16 bytes=612 xyz=" + std::string(512, 'x') + " 15c7 >\n"},
        InnerDumpCase{"LocationTextTooShort", "moov.udta", userData({box("\xA9xyz", {u16(9)})}),
                      "<'': start=16 bytes=10 xyz= 0000 >\n"},
        InnerDumpCase{"LocationTextRunsPastTheFile", "moov.udta",
                      userData({withSize(locationText("+35"), 60)}),
                      "<'': start=16 bytes=60 xyz=+35 15c7 >\n"},
        InnerDumpCase{
            "Location", "moov.udta",
            userData({fullBox("loci", 0, {zeros(4), u32(0x008B0000), u32(0xFFDC8000), u32(0x000C8000)})}),
            "<'loci': start=16 bytes=28 loci=139.000000 -35.500000 12.500000 >\n"},
        InnerDumpCase{"LocationWithoutAltitude", "moov.udta",
                      userData({fullBox("loci", 0, {zeros(4), u32(0x10000), u32(0x20000)})}),
                      "<'loci': start=16 bytes=24 loci=1.000000 2.000000 0.000000 >\n"},
        InnerDumpCase{"LookAlikesArePlain", "moov.udta",
                      userData({box("@xyz", {text("+1+2/")}), fullBox("meta", 0, {handler("n")})}),
                      "<'@xyz': start=16 bytes=13 >\n<'meta': start=29 bytes=45 >\n"},
        InnerDumpCase{"Handler", "meta", fullBox("meta", 0, {handler("thirteen chrs")}),
                      "<'hdlr': start=12 bytes=45 handler=mdir name=thirteen chrs(13) >\n"},
        InnerDumpCase{"HandlerWithEmptyName", "meta", fullBox("meta", 0, {handler(zeros(1))}),
                      "<'hdlr': start=12 bytes=33 handler=mdir name=(1) >\n"},
        InnerDumpCase{"HandlerTooShort", "meta", fullBox("meta", 0, {box("hdlr", {zeros(8), text("mdir")})}),
                      "<'hdlr': start=12 bytes=20 handler= name=(0) >\n"},
        InnerDumpCase{"HandlerRunsPastTheFile", "meta", fullBox("meta", 0, {withSize(handler("name"), 100)}),
                      "<'hdlr': start=12 bytes=100 handler=mdir name=name(68) >\n"}),
    nameOf<InnerDumpCase>);

TEST(Metadata, IsZerosWhereTheLimitCutsIt) {
    Parsed file(cat({userData({locationText("+35.6895+139.6917/")}), fullBox("meta", 0, {handler("name")})}),
                40);
    EXPECT_EQ(static_cast<MP4::XYZ*>(file->root->first("moov.udta.\xA9xyz"))->text, zeros(18));
}

TEST(SampleTables, BelieveACountOnlyAsFarAsMemoryStaysInProportion) {
    struct Case {
        const char* name;
        uint32_t stored; ///< the count in the file; the box holds two entries
        size_t entries;
    };
    for (const auto& [name, stored, entries] :
         {Case{"less than there is", 1, 1}, Case{"what is there", 2, 2}, Case{"a few short", 4, 4},
          Case{"all that a number can say", ~0U, 2}}) {
        Parsed file(
            sampleTable({fullBox("stts", 0, {u32(stored), u32(1), u32(2), u32(3), u32(4)}),
                         fullBox("stsc", 0, {u32(stored), u32(1), u32(2), u32(3), u32(4), u32(5), u32(6)}),
                         fullBox("stsz", 0, {u32(0), u32(stored), u32(5), u32(6)})}));
        const auto at = [&](const char* box) {
            return file->root->first((std::string(stblPath) + '.' + box).c_str());
        };
        const auto& stts = static_cast<MP4::STTS&>(*at("stts"));
        const auto& stsc = static_cast<MP4::STSC&>(*at("stsc"));
        const auto& stsz = static_cast<MP4::STSZ&>(*at("stsz"));
        ASSERT_EQ(stts.entries.size(), entries) << name;
        ASSERT_EQ(stsc.entries.size(), entries) << name;
        ASSERT_EQ(stsz.entries.size(), entries) << name;
        EXPECT_EQ(stts.entryCount + stsc.entryCount + stsz.sample_count, 3 * entries) << name;
        EXPECT_EQ(stts.entries.front().sample_delta, 2U) << name;
        EXPECT_EQ(stsc.entries.front().sample_description_index, 3U) << name;
        EXPECT_EQ(stsz.sample_total, entries == 1 ? 5U : 11U) << name;
        EXPECT_EQ(stts.entries.back().sample_count, entries == 1 ? 1U : entries == 2 ? 3U : 0U) << name;
    }
}

TEST(SampleTables, KnowWhereTheirEntriesLie) {
    Parsed file(cat(
        {box("free", {zeros(960)}), sampleTable({stco({9}), largeBox("stco", {zeros(4), u32(1), u32(9)})})}));
    std::vector<uint64_t> tables;
    file->find("moov.trak.mdia.minf.stbl.stco", [&](MP4::BOX& table) {
        tables.push_back(static_cast<MP4::STCO&>(table).tableOffset);
        return true;
    });
    EXPECT_EQ(tables, (std::vector<uint64_t>{968 + 40 + 16, 968 + 40 + 20 + 24}));
}

TEST(Dump, BeginsWithTheRootAndHonoursTheLimit) {
    const Bytes content = cat({box("ftyp", {zeros(16)}), box("free"), box("mdat", {zeros(960)})});
    EXPECT_EQ(Parsed(content).dump().substr(0, 40), "MP4: == 'root': start=0 bytes=1000 ==\nMP");
    EXPECT_EQ(Parsed(content, 30).dump(), "MP4: == 'root': start=0 bytes=30 ==\n"
                                          "MP4: <'ftyp': start=0 bytes=24 >\n");
}

TEST(Find, VisitsMatchesInFileOrderAndStopsPerParent) {
    const Bytes movie = box("moov", {box("trak", {tkhd(1, 1), tkhd(2, 2)}), box("trak", {tkhd(3, 3)})});
    Parsed file(cat({movie, box("moov", {box("trak")})}));
    struct Case {
        const char* path;
        bool goOn;
        std::vector<uint64_t> offsets;
    };
    const Case cases[] = {
        {"moov", true, {0, 300}},
        {"moov.trak", true, {8, 200, 308}},
        {"moov.trak", false, {8, 308}},
        {"moov.trak.tkhd", true, {16, 108, 208}},
        {"moov.trak.tkhd", false, {16, 208}},
        {"moov.trak.tkhd.xxxx", true, {}}, // a plain box reports no children
        {"moov.", true, {}},
        {"moovtrak", true, {}},
        {"moo", true, {}},
        {"", true, {}},
    };
    for (const Case& expected : cases) {
        std::vector<uint64_t> offsets;
        file->find(expected.path, [&](MP4::BOX& box) {
            offsets.push_back(box.offset);
            return expected.goOn;
        });
        EXPECT_EQ(offsets, expected.offsets) << expected.path << ' ' << expected.goOn;
        int missing = 0;
        file->root->if_not_found(expected.path, [&] { ++missing; });
        EXPECT_EQ(missing, expected.offsets.empty() ? 1 : 0) << expected.path;
    }
}

TEST(Find, DescendsOnlyIntoIdentifiedBoxesThatHaveChildren) {
    const Bytes inside = box("ZATR", {box("mdia", {box("minf", {box("stbl")})})});
    Parsed file(cat({uuidBox(MP4::XMP::_UUID, {inside}), uuidBox(MP4::SpatialData::_UUID, {inside})}));
    const MP4::BOX* const found = file->root->first("uuid.ZATR.mdia.minf.stbl");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->offset, 56U + 24 + 24);
    EXPECT_EQ(found->parent->parent->parent->parent->parent, nullptr) << "a top-level uuid ends the chain";
}

TEST(Box, RewritesItsSizeInTheFormItHas) {
    const Scratch scratch;
    const auto path = scratch.file("f", cat({box("free"), largeBox("free")}));
    MP4::Container container;
    ASSERT_TRUE(container.attach(path));
    container.open_a([&](Brisa::FileIO& file) {
        MP4::BinFile view(file);
        view.seek_set(5);
        EXPECT_TRUE(container.root->children[0]->size(view, 0x11223344));
        EXPECT_TRUE(container.root->children[1]->size(view, 0x1122334455667788));
        EXPECT_EQ(view.position(), 5U);
    });
    EXPECT_EQ(contentOf(path),
              cat({u32(0x11223344), text("free"), u32(1), text("free"), u64(0x1122334455667788)}));
}

TEST(Box, CopiesItselfWhole) {
    for (const size_t body : {0U, 1016U, 1017U, 2041U, 70000U}) {
        const Scratch scratch;
        const Bytes copied = box("skip", {Bytes(body, 'b')});
        const auto path = scratch.file("f", cat({box("free"), copied, box("free")}));
        MP4::Container container;
        ASSERT_TRUE(container.attach(path));
        const MP4::BOX& skip = *container.root->children[1];
        Brisa::FileIO::open_w(scratch / "copy", [&](Brisa::FileIO& copy) {
            container.open([&](Brisa::FileIO& file) { EXPECT_TRUE(skip.copyTo(file, copy)); });
        });
        EXPECT_EQ(contentOf(scratch / "copy"), copied);
        std::filesystem::resize_file(path, 8 + copied.size() - 1);
        Brisa::FileIO::open_w(scratch / "copy", [&](Brisa::FileIO& copy) {
            container.open([&](Brisa::FileIO& file) { EXPECT_FALSE(skip.copyTo(file, copy)) << body; });
        });
    }
}

TEST(HeaderBoxes, TellTimesInSeconds) {
    Parsed file(box("moov", {fullBox("mvhd", 1, {u64(1), u64(~0ULL), u32(600), u64(6000)})}));
    const auto& header = static_cast<MP4::MVHD&>(*file->root->first("moov.mvhd"));
    EXPECT_FLOAT_EQ(header.duration, 10);
    EXPECT_FLOAT_EQ(header.time_scale, 600);
    Parsed cut(box("moov", {fullBox("mvhd", 1, {u64(1), zeros(2), u32(600)})}));
    EXPECT_EQ(static_cast<MP4::MVHD&>(*cut->root->first("moov.mvhd")).time_scale, 0)
        << "nothing read in its place";
}

TEST(HeaderBoxes, SetTheCreationTimeAndNothingElse) {
    const auto header = [](const char* type, uint8_t version, Parts rest) {
        return fullBox(type, version, {cat(rest), zeros(100)});
    };
    const Bytes content =
        cat({box("moov", {header("mvhd", 0, {u32(1)}),
                          box("trak", {header("tkhd", 1, {u64(1)}),
                                       box("mdia", {cat({u32(1), text("mdhd"), u64(120), u8(0), zeros(3),
                                                         u32(1), zeros(96)})})}),
                          box("trak", {box("tkhd")})})});
    const Scratch scratch;
    const auto path = scratch.file("f", content);
    MP4::Container container;
    ASSERT_TRUE(container.attach(path));
    const uint64_t time = 0x1'2233'4455;
    container.open_a([&](Brisa::FileIO& file) {
        MP4::BinFile view(file);
        view.seek_set(3);
        const auto at = [&](const char* boxPath) { return container.root->first(boxPath); };
        EXPECT_TRUE(static_cast<MP4::MVHD*>(at("moov.mvhd"))->setTimeStamp(view, time));
        EXPECT_TRUE(static_cast<MP4::TKHD*>(at("moov.trak.tkhd"))->setTimeStamp(view, time));
        EXPECT_TRUE(static_cast<MP4::MDHD*>(at("moov.trak.mdia.mdhd"))->setTimeStamp(view, time));
        EXPECT_EQ(view.position(), 3U);
        const auto& tooShort = static_cast<MP4::NestedBox&>(*container.moov->children.back());
        EXPECT_TRUE(static_cast<MP4::TKHD&>(*tooShort.children[0]).setTimeStamp(view, time)) << "left alone";
    });
    Bytes expected = content;
    expected.replace(8 + 12, 4, u32(0x22334455));
    expected.replace(132 + 12, 8, u64(time));
    expected.replace(260 + 20, 4, u32(0x22334455));
    EXPECT_EQ(contentOf(path), expected);
}

TEST(Uuid, KeepsThePayloadByteForByte) {
    Bytes payload;
    for (int i = 0; i < 1300; ++i) {
        payload += static_cast<char>(i % 251);
    }
    const Bytes identity(MP4::AXIS::_UUID.begin(), MP4::AXIS::_UUID.end());
    const Bytes whole = uuidBox(MP4::AXIS::_UUID, {payload});
    struct Case {
        const char* name;
        Bytes content;
        Bytes kept;
    };
    const Case cases[] = {
        {"whole", whole, payload},
        {"64-bit size", largeBox("uuid", {identity, payload}), payload},
        {"runs past the end of the file", whole.substr(0, 100), payload.substr(0, 76)},
        {"ends inside the identity", whole.substr(0, 20), ""},
        {"no payload", uuidBox(MP4::AXIS::_UUID), ""},
    };
    for (const Case& expected : cases) {
        Parsed file(expected.content);
        EXPECT_EQ(static_cast<MP4::UUID&>(*file->root->children[0]).payload, expected.kept) << expected.name;
    }
    MP4::Container light;
    light.keepContents = false;
    const Scratch scratch;
    ASSERT_TRUE(light.attach(scratch.file("f", whole)));
    const auto& located = static_cast<MP4::UUID&>(*light.root->children[0]);
    EXPECT_TRUE(located.is(MP4::AXIS::_UUID));
    EXPECT_TRUE(located.payload.empty());
}

TEST(Uuid, IsBuiltFromAPayload) {
    MP4::XMP packet(Bytes("ten\0bytes!", 10));
    EXPECT_EQ(packet.boxSize, 34U);
    packet.usertype = MP4::XMP::_UUID;
    const Bytes expected = uuidBox(MP4::XMP::_UUID, {Bytes("ten\0bytes!", 10)});
    ByteArray bytes;
    bytes.resize(3);
    packet.to_byteArray(bytes);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), expected);
    const Scratch scratch;
    Brisa::FileIO::open_w(scratch / "f", [&](Brisa::FileIO& file) { EXPECT_TRUE(packet.write(file)); });
    EXPECT_EQ(contentOf(scratch / "f"), expected);
}
