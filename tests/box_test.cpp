// Box headers, nesting, search and dump.

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

} // namespace

TEST_P(Dump, ShowsWhatTheBytesMean) {
    EXPECT_EQ(Parsed(GetParam().content).lines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Dump,
    testing::Values(
        DumpCase{"Empty", "", ""},
        DumpCase{"Tree", cat({box("ftyp", {zeros(16)}), box("moov", {fullBox("mvhd", 0, {zeros(96)})})}),
                 "MP4: <'ftyp': start=0 bytes=24 >\n"
                 "MP4: <'moov': start=24 bytes=116 children=1 >\n"
                 "MP4:     <'mvhd': start=32 bytes=108 timeStamp=0 >\n"},
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
        EXPECT_FALSE(static_cast<MP4::TKHD&>(*tooShort.children[0]).setTimeStamp(view, time));
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
    MP4::XMP packet("ten\0bytes!");
    packet.payload.assign("ten\0bytes!", 10);
    packet.boxSize = 34;
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
