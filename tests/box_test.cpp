// SPDX-License-Identifier: MIT
// Box headers, nesting, search, dump, and the fields of every class.

#include <regex>

#include "MP4Box.h"
#include "MP4Container.h"
#include "support/Scratch.h"

using namespace test;

namespace {

/// A file of the given bytes, parsed.
class Parsed {
public:
    explicit Parsed(const Bytes& content, unsigned long long limit = ~0ULL, bool lean = false) {
        container.keepContents = !lean;
        container.tableTotals = lean;
        EXPECT_TRUE(container.attach(scratch.file(content), limit));
    }
    MP4::Container* operator->() { return &container; }
    [[nodiscard]] std::string dump() const {
        return printed([&] { container.dump(); }).out;
    }
    template <class Box>
    Box& at(const char* path) {
        return dynamic_cast<Box&>(*container.root->first(path));
    }

private:
    Scratch scratch;
    MP4::Container container;
};

/// A dump in short: for each box its level, type, offset, size and fields, one row behind the other.
std::string inShort(const std::string& dump) {
    std::string rows;
    const std::regex line("MP4: ( *)<'(.*?)': start=(\\d+) bytes=(\\d+) ?(.*?) ?>");
    for (std::sregex_iterator match(dump.begin(), dump.end(), line), end; match != end; ++match) {
        const auto& box = *match;
        rows += std::to_string(box.length(1) / 4) + ' ' + box.str(2) + ' ' + box.str(3) + '+' + box.str(4) +
                (box.length(5) != 0 ? " " : "") + box.str(5) + "; ";
    }
    return rows;
}

struct DumpCase {
    std::string name;
    Bytes content;
    std::string rows;
};

class Dump : public testing::TestWithParam<DumpCase> {};

/// A movie whose only track has nothing but these tables, from offset 40 on.
Bytes sampleTable(Parts tables) {
    return box("moov", {box("trak", {box("mdia", {box("minf", {box("stbl", tables)})})})});
}

Bytes mediaHeader(uint8_t version, Parts times) {
    return box("moov", {box("trak", {box("mdia", {fullBox("mdhd", version, times)})})});
}

Bytes locationText(const Bytes& position) {
    return box("\xA9xyz", {u16(static_cast<uint16_t>(position.size())), u16(0x15C7), position});
}

Bytes handler(const Bytes& name) {
    return fullBox("hdlr", 0, {zeros(4), "mdir", zeros(12), name});
}

} // namespace

TEST_P(Dump, ShowsWhatTheBytesMean) {
    const Bytes& content = GetParam().content;
    EXPECT_EQ(inShort(Parsed(content).dump()), GetParam().rows);
    EXPECT_EQ(inShort(Parsed(content, ~0ULL, true).dump()), GetParam().rows) << "whether or not the contents are kept";
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Dump,
    testing::Values(
        DumpCase{"TailOfSevenBytes", cat({box("free"), zeros(3), "tail"}), "0 free 0+8; "},
        DumpCase{"LargeSize", cat({largeBox("mdat", {zeros(4)}), box("free")}), "0 mdat 0+20; 0 free 20+8; "},
        DumpCase{"ChildPastItsParent", cat({withSize(box("moov", {box("trak", {tkhd(2)})}), 16), zeros(8)}),
                 "0 moov 0+16 children=1; 1 trak 8+100 children=1; 2 tkhd 16+92 timeStamp=0 width=2 height=360; 0 tkhd 16+92; "},
        DumpCase{"SpatialDataHasChildren", uuidBox(MP4::SpatialData::_UUID, {box("ZADT"), box("ZATR", {box("mdia")})}),
                 "0 uuid 0+48 uuid=28F311E2-B791-4F6F-94E2-4F5DEACB3C01; 1 ZADT 24+8; 1 ZATR 32+16 children=1; 2 mdia 40+8 children=0; "}),
    nameOf<DumpCase>);

INSTANTIATE_TEST_SUITE_P(
    Fields, Dump,
    testing::Values(
        DumpCase{"MediaHeader2IsReadAs0", mediaHeader(2, {u32(7), u32(0), u32(600), u32(60)}),
                 "0 moov 0+52 children=1; 1 trak 8+44 children=1; 2 mdia 16+36 children=1; "
                 "3 mdhd 24+28 timeStamp=7 duration=60.000000 time_scale=600.000000; "},
        DumpCase{"UserData",
                 box("moov", {box("udta", {locationText("+35.6895+139.6917/"), box("\xA9xyz", {u16(9)}), box("@xyz"),
                                           fullBox("loci", 0, {zeros(4), u32(0x008B0000), u32(0xFFDC8000), u32(0x000C8000)}),
                                           fullBox("loci", 0, {zeros(4), u32(0x10000), u32(0x20000)})})}),
                 "0 moov 0+116 children=1; 1 udta 8+108 children=5; 2  16+30 xyz=+35.6895+139.6917/ 15c7; 2  46+10 xyz= 0000; 2 @xyz 56+8; "
                 "2 loci 64+28 loci=139.000000 -35.500000 12.500000; 2 loci 92+24 loci=1.000000 2.000000 0.000000; "},
        DumpCase{"Handlers", fullBox("meta", 0, {handler("thirteen chrs"), handler(zeros(1)), box("hdlr"), withSize(handler("name"), 100)}),
                 "0 meta 0+134 children=4; 1 hdlr 12+45 handler=mdir name=thirteen chrs(13); 1 hdlr 57+33 handler=mdir name=(1); "
                 "1 hdlr 90+8 handler= name=(0); 1 hdlr 98+100 handler=mdir name=name(68); "},
        DumpCase{
            "SampleTables",
            sampleTable({fullBox("stsd", 0,
                                 {u32(7), // the children are what is there, not what the count says
                                  box("sowt", {zeros(7), u8(1), zeros(8), u16(4), u16(16), zeros(4), u16(48000), u16(0), box("chan")}),
                                  box("avc1", {zeros(78), box("pasp")}), box("avc1", {box("pasp")})}),
                         fullBox("stsz", 0, {u32(1000), u32(5'000'000)}), fullBox("stsz", 0, {u32(0), counted({3U, 5U, 7U})}), stco({1, 2}),
                         co64({3})}),
            "0 moov 0+310 children=1; 1 trak 8+302 children=1; 2 mdia 16+294 children=1; 3 minf 24+286 children=1; 4 stbl 32+278 "
            "children=5; "
            "5 stsd 40+170 children=3; 6 sowt 56+44 data_reference_index=1 channel_count=4 sample_size=16 pre_defined=0 samplelate=bb80; "
            "7 chan 92+8; 6 avc1 100+94 children=1; 7 pasp 186+8; 6 avc1 194+16 children=1; 7 pasp 202+8; "
            "5 stsz 210+20 sampleSize=1000 sample_count=5000000 sample_total=5000000000; "
            "5 stsz 230+32 sampleSize=0 sample_count=3 sample_total=15; 5 stco 262+24 indexes=2; 5 co64 286+24 indexes=1; "}),
    nameOf<DumpCase>);

TEST(Fields, AreReadFromTheirOwnBoxAlone) {
    Parsed file(cat({box("moov", {fullBox("mvhd", 1, {u64(1), u64(~0ULL), u32(600), u64(6000)})}),
                     box("moov", {fullBox("mvhd", 1, {u64(1), zeros(2), u32(600)})})}));
    EXPECT_EQ(file.at<MP4::MVHD>("moov.mvhd").duration, 10) << "seconds";
    const auto* const second = MP4::as<MP4::MOOV>(*file->root->children[1]);
    EXPECT_EQ(MP4::as<MP4::MVHD>(*second->children[0])->time_scale, 0) << "nothing else is read in its place";
    EXPECT_EQ(MP4::as<MP4::UUID>(second->children[0].get()), nullptr);
    Parsed media(box("moov", {box("trak", {box("mdia", {handler("?")})}), box("trak", {box("mdia", {withSize(handler("?"), 19)})})}));
    std::vector<uint32_t> handlers;
    media->find("moov.trak.mdia", [&handlers](MP4::BOX& found) {
        handlers.push_back(MP4::as<MP4::MDIA>(found)->handler);
        return true;
    });
    EXPECT_THAT(handlers, testing::ElementsAre(MP4::fourcc("mdir"), 0));
    const Bytes flat = fullBox("loci", 0, {zeros(4), u32(0x10000), u32(0x20000)});
    Parsed places(box("moov", {box("udta", {flat, fullBox("loci", 0, {zeros(16)})})}));
    std::vector<bool> altitudes;
    places->find("moov.udta.loci", [&altitudes](MP4::BOX& found) {
        altitudes.push_back(MP4::as<MP4::LOCI>(found)->hasAltitude);
        return MP4::as<MP4::LOCI>(found)->hasPosition;
    });
    EXPECT_THAT(altitudes, testing::ElementsAre(false, true));
    Parsed limited(box("moov", {box("udta", {locationText("+35.6895+139.6917/")})}), 40);
    EXPECT_EQ(limited.at<MP4::XYZ>("moov.udta.\xA9xyz").text, zeros(18));
}

TEST(Fields, BelieveACountOnlyAsFarAsMemoryStaysInProportion) {
    for (const auto& [stored, entries] : {std::pair{1U, 1U}, {2U, 2U}, {4U, 4U}, {~0U, 2U}}) {
        Parsed file(sampleTable({fullBox("stts", 0, {u32(stored), u32(1), u32(2), u32(3), u32(4)}),
                                 fullBox("stsc", 0, {u32(stored), u32(1), u32(2), u32(3), u32(4), u32(5), u32(6)}),
                                 fullBox("stsz", 0, {u32(0), u32(stored), u32(5), u32(6)})}));
        const auto& stts = file.at<MP4::STTS>("moov.trak.mdia.minf.stbl.stts");
        const auto& stsc = file.at<MP4::STSC>("moov.trak.mdia.minf.stbl.stsc");
        const auto& stsz = file.at<MP4::STSZ>("moov.trak.mdia.minf.stbl.stsz");
        EXPECT_EQ(stts.entries.size() + stsc.entries.size() + stsz.entries.size(), 3 * entries);
        EXPECT_EQ(stts.entryCount + stsc.entryCount + stsz.sample_count, 3 * entries) << stored;
        EXPECT_EQ(stts.entries.at(0).sample_delta + stsc.entries.at(0).sample_description_index, 2U + 3U);
        EXPECT_EQ(stsz.sample_total, entries == 1 ? 5U : 11U);
        EXPECT_EQ(stts.entries.back().sample_count, entries == 1 ? 1U : entries == 2 ? 3U : 0U) << "filled up with zeros";
    }
}

TEST(Find, VisitsMatchesInFileOrderAndStopsPerParent) {
    const Bytes inside = box("ZATR", {box("mdia")});
    const Bytes movie = box("moov", {box("trak", {tkhd(1), tkhd(2)}), box("trak", {tkhd(3)})});
    Parsed file(cat({movie, box("moov", {box("trak")}), uuidBox(MP4::XMP::_UUID, {inside}), uuidBox(MP4::SpatialData::_UUID, {inside})}));
    using enum MP4::Search;
    struct Case {
        const char* path;
        MP4::Search then;
        std::vector<uint64_t> offsets;
    };
    for (const auto& [path, then, expected] : {Case{"moov", next, {0, 300}},
                                               {"moov.trak", next, {8, 200, 308}},
                                               {"moov.trak", endScan, {8, 308}},
                                               {"moov.trak.tkhd", next, {16, 108, 208}},
                                               {"moov.trak.tkhd", endScan, {16, 208}},
                                               {"moov.trak.tkhd", stop, {16}},
                                               {"moov.trak.tkhd.xxxx", next, {}},
                                               {"moov.", next, {}},
                                               {"moovtrak", next, {}},
                                               {"moo", next, {}},
                                               {"", next, {}},
                                               {"uuid.ZATR.mdia", next, {388}}}) {
        std::vector<uint64_t> offsets;
        file->root->find(path, [&, go = then](const MP4::BOX& found) {
            offsets.push_back(found.offset);
            return go;
        });
        EXPECT_EQ(offsets, expected) << path << ' ' << static_cast<int>(then);
        int missing = 0;
        file->root->if_not_found(path, [&missing] { ++missing; });
        EXPECT_EQ(missing, expected.empty() ? 1 : 0) << path;
    }
    EXPECT_EQ(file.at<MP4::BOX>("uuid.ZATR.mdia").parent->parent->parent, nullptr) << "a top-level uuid ends the chain";
}

TEST(Box, IsCopiedWholeOrNotAtAll) {
    const Scratch scratch;
    for (const size_t body : {1U, 1017U, 70000U}) {
        const Bytes copied = largeBox("skip", {Bytes(body, 'b')});
        for (const bool whole : {true, false}) {
            MP4::Container container;
            ASSERT_TRUE(container.attach(scratch.file(cat({box("free"), copied}).substr(0, 8 + copied.size() - (whole ? 0 : 1)))));
            bool done = !whole;
            Brisa::FileIO::open_w(scratch / "copy", [&](Brisa::FileIO& copy) {
                container.open([&](Brisa::FileIO& file) { done = container.root->children[1]->copyTo(file, copy); });
            });
            EXPECT_EQ(done, whole);
            EXPECT_EQ(contentOf(scratch / "copy") == copied, whole);
        }
    }
}

TEST(Uuid, KeepsWhatTheFileHasOfThePayload) {
    const Bytes payload(1300, 'p');
    const Bytes whole = uuidBox(MP4::AXIS::_UUID, {payload});
    for (const size_t length : {whole.size(), size_t{100}, size_t{24}, size_t{20}}) {
        EXPECT_EQ(Parsed(whole.substr(0, length)).at<MP4::UUID>("uuid").payload, payload.substr(0, std::max(length, size_t{24}) - 24));
    }
    Parsed file(whole);
    file->open([&](Brisa::FileIO& handle) {
        MP4::BinFile view(handle);
        for (int parses = 0; parses < 3; ++parses) {
            file->parse(view, ~0ULL);
            EXPECT_EQ(file.at<MP4::UUID>("uuid").payload, payload) << "one view serves many parses";
            view.seek_set(0);
        }
    });
    EXPECT_EQ(Parsed(repeated(box("uuid"), 1000) + whole)->root->children.size(), 1001U) << "those that are too short cost what they are";
    const MP4::AXIS built(payload);
    ByteArray bytes(3);
    built.to_byteArray(bytes);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), whole);
}

TEST(Box, HasAHeaderThatFitsItsSize) {
    const auto header = [](uint64_t content) {
        const ByteArray bytes = MP4::headerOf(MP4::fourcc("\xA9xyz"), content);
        return Bytes(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(header(UINT32_MAX - 8), u32(UINT32_MAX) + "\xA9xyz");
    EXPECT_EQ(header(UINT32_MAX - 7), u32(1) + "\xA9xyz" + u64(16 + uint64_t{UINT32_MAX} - 7));
    EXPECT_EQ(MP4::BOX(0, 8, MP4::fourcc("\xA9\nyz"), nullptr).type(), L"\u00A9?yz");
}
