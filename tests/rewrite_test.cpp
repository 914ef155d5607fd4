// The rewrite engine and the layout operations.

#include <gtest/gtest.h>

#include <algorithm>

#include "ByteOrder.h"
#include "MP4Container.h"
#include "support/Cases.h"
#include "support/Faults.h"

using namespace test;
using MP4::BinFile;
using MP4::BOX;
using MP4::Container;

namespace {

std::string narrow(const std::wstring& path) {
    return {path.begin(), path.end()};
}

const auto goOn = [](Container&, BinFile&) { return true; };

/// The first bytes of every chunk of every track, in the order of the tables.
std::vector<Bytes> chunkStarts(const std::wstring& path, const char* tables = "moov.trak.mdia.minf.stbl") {
    const Bytes content = contentOf(path);
    Container container;
    EXPECT_TRUE(container.attach(path));
    std::vector<Bytes> starts;
    for (const auto& [suffix, width] : {std::pair{".stco", 4U}, std::pair{".co64", 8U}}) {
        container.find((tables + std::string(suffix)).c_str(), [&, width = width](BOX& box) {
            const auto& table = static_cast<MP4::STCO&>(box);
            for (uint32_t i = 0; i < table.entryCount; ++i) {
                const char* const entry = &content.at(table.tableOffset + i * width);
                const uint64_t at =
                    width == 4 ? MP4::loadBigEndian<uint32_t>(entry) : MP4::loadBigEndian<uint64_t>(entry);
                starts.push_back(at < content.size() ? content.substr(at, 4) : "beyond");
            }
            return true;
        });
    }
    return starts;
}

} // namespace

// ---- The engine ------------------------------------------------------------------------------------

TEST(InsertBox, PutsBytesBehindABoxOrInItsPlace) {
    const Bytes content =
        cat({box("free", {zeros(92)}), box("skip", {text("abcdef")}), box("mdat", {text("media")})});
    for (const bool replace : {false, true}) {
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", content);
        std::filesystem::permissions(path, std::filesystem::perms(0640));
        Container container;
        ASSERT_TRUE(container.attach(path));
        uint64_t parsed = 0;
        size_t boxes = 0;
        const auto [out, err] = printed([&] {
            EXPECT_TRUE(container.insertBox(
                L"test", *container.root->children[1], replace,
                [](BinFile& file) { return file.writeAll("\0\0\0\x08new ", 8) == 8; },
                [&](Container& written, BinFile&) {
                    parsed = written.root->boxSize;
                    return true;
                },
                [&](Container& written, BinFile&) {
                    boxes = written.root->children.size();
                    return true;
                }));
        });
        EXPECT_EQ(out + err, "");
        EXPECT_EQ(parsed, replace ? 100U : 114U) << "the new file up to the insertion";
        EXPECT_EQ(boxes, replace ? 3U : 4U);
        EXPECT_EQ(contentOf(path),
                  cat({content.substr(0, parsed), box("new "), box("mdat", {text("media")})}));
        EXPECT_EQ(container.root->children.size(), boxes) << "attached again";
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
        EXPECT_EQ(scratch.count(), 1U);
    }
}

TEST(Rewrite, AFailingStepLeavesTheOldFileAndNoOther) {
    for (const std::string failing : {"copy", "first", "second"}) {
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", box("free"));
        Container container;
        ASSERT_TRUE(container.attach(path));
        std::string called;
        const auto step = [&](const std::string& name) {
            called += name + ' ';
            return name != failing;
        };
        const auto [out, err] = printed([&] {
            EXPECT_FALSE(container.modifyContainer(
                L"test",
                [&](BinFile&, BinFile& file, unsigned long long&) {
                    return file.writeAll("half", 4) == 4 && step("copy");
                },
                [&](Container&, BinFile&) { return step("first"); },
                [&](Container&, BinFile&) { return step("second"); }));
        });
        const std::string path8 = narrow(path);
        EXPECT_EQ(out, "Container::modifyContainer::test(" + path8 + " to " + path8 + ".tmp.mp4) failed.\n");
        EXPECT_EQ(called.substr(called.size() - failing.size() - 1), failing + ' ') << "no later step runs";
        EXPECT_EQ(contentOf(path), box("free"));
        EXPECT_EQ(scratch.count(), 1U);
    }
}

TEST(Rewrite, AnOutputPathLeavesTheOldFileAlone) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", box("free"));
    const auto output = scratch / "out.mp4";
    Container container;
    ASSERT_TRUE(container.attach(path));
    const auto copy = [](bool result) {
        return [result](BinFile& from, BinFile& to, unsigned long long&) {
            return from.copyTo(to, 8) == 8 && result;
        };
    };
    container.outputPath = output.c_str();
    const auto [out, err] =
        printed([&] { EXPECT_FALSE(container.modifyContainer(L"test", copy(false), goOn, goOn)); });
    EXPECT_EQ(out,
              "Container::modifyContainer::test(" + narrow(path) + " to " + narrow(output) + ") failed.\n");
    EXPECT_EQ(scratch.count(), 1U);
    EXPECT_TRUE(container.modifyContainer(L"test", copy(true), goOn, goOn));
    EXPECT_EQ(container.path, output);
    EXPECT_EQ(container.outputPath, nullptr);
    EXPECT_EQ(contentOf(path) + contentOf(output), box("free") + box("free"));
}

TEST(Rewrite, NeverTruncatesTheFileItReadsFrom) {
    const Scratch scratch;
    const auto path =
        scratch.file("f.mp4", cat({box("mdat"), track({stco({8})}), box("moov", {track({stco({8})})})}));
    const Bytes before = contentOf(path);
    const auto hard = scratch / "hard.mp4";
    const auto soft = scratch / "soft.mp4";
    std::filesystem::create_hard_link(path, hard);
    std::filesystem::create_symlink(path, soft);
    for (const auto& output : {path, hard, soft, scratch.folder().wstring()}) {
        Container container;
        ASSERT_TRUE(container.attach(path));
        container.outputPath = output.c_str();
        EXPECT_FALSE(quietly([&] { return container.moovFirst(); }));
        EXPECT_EQ(contentOf(path), before);
    }
    EXPECT_EQ(scratch.count(), 3U);

    // A path so long that the system would see the temporary file's name without its end.
    std::filesystem::path deep = scratch.folder();
    while (deep.native().size() < 2048 - 200) {
        deep /= std::string(180, 'd');
    }
    std::filesystem::create_directories(deep);
    deep /= std::string(2048 - deep.native().size() - 1, 'f');
    std::filesystem::copy_file(path, deep);
    Container container;
    ASSERT_TRUE(container.attach(deep.wstring()));
    EXPECT_FALSE(quietly([&] { return container.moovFirst(); }));
    EXPECT_EQ(contentOf(deep.wstring()), before);
}

TEST(Rewrite, IsRefusedWhereItWouldHarmAnotherFile) {
    const Bytes before = cat({box("mdat"), box("moov", {track({stco({8})})})});
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", before);
    const auto refused = [&] {
        Container container;
        EXPECT_TRUE(container.attach(path));
        EXPECT_FALSE(quietly([&] { return container.moovFirst(); }));
        EXPECT_EQ(contentOf(path), before);
    };
    const auto precious = scratch.file("precious", "other");
    std::filesystem::create_symlink(precious, scratch / "f.mp4.tmp.mp4");
    refused();
    std::filesystem::remove(scratch / "f.mp4.tmp.mp4");
    std::filesystem::create_hard_link(precious, scratch / "f.mp4.tmp.mp4");
    refused();
    EXPECT_EQ(contentOf(precious), "other");
    std::filesystem::remove(scratch / "f.mp4.tmp.mp4");
    Brisa::FileIO::open(path, [&](const Brisa::FileIO& other) {
        EXPECT_TRUE(other.lock());
        refused();
    });
    // A leftover of a killed process is no obstacle. The tree of a container whose file was replaced is.
    scratch.file("f.mp4.tmp.mp4", "left over");
    Container stale;
    Container container;
    ASSERT_TRUE(stale.attach(path) && container.attach(path));
    EXPECT_TRUE(container.moovFirst());
    const Bytes after = contentOf(path);
    EXPECT_FALSE(quietly([&] { return stale.updateTimeStamp(1); }));
    EXPECT_FALSE(quietly([&] { return stale.moovFirst(); }));
    EXPECT_EQ(contentOf(path), after);
}

TEST(InPlace, AFailureIsReportedAndTheFileParsedAgain) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", box("free"));
    Container container;
    ASSERT_TRUE(container.attach(path));
    const auto [out, err] = printed([&] {
        EXPECT_FALSE(container.modifyContainer(L"test", [](BinFile& file) {
            EXPECT_TRUE(file.seek_set(4) && file.writeAll("skip", 4) == 4);
            return false;
        }));
    });
    EXPECT_EQ(out, "Container::modifyContainer::test(" + narrow(path) + ") failed.\n");
    EXPECT_EQ(container.root->children[0]->tag, MP4::fourcc("skip"));
}

// ---- Sizes and chunk offsets -----------------------------------------------------------------------

TEST(ModifyBoxSize, WalksUpToTheTopLevelBox) {
    const Bytes inner = box("stbl");
    const Bytes content = cat({box("free"), box("moov", {largeBox("trak", {box("mdia", {zeros(3)})})})});
    struct Case {
        long long change;
        bool fits;
    };
    for (const auto& [change, fits] :
         {Case{5, true}, Case{-3, true}, Case{(1LL << 32) - 30, false}, Case{-4, false}, Case{-40, false}}) {
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", content);
        Container container;
        ASSERT_TRUE(container.attach(path));
        BOX& mdia = *container.root->first("moov.trak.mdia");
        const auto [out, err] = printed([&, change = change, fits = fits] {
            container.open_a([&](Brisa::FileIO& handle) {
                BinFile file(handle);
                EXPECT_EQ(container.modifyBoxSize(file, mdia, change), fits) << change;
            });
        });
        Bytes expected = content;
        if (fits) {
            const auto size = [change = change](long long old) {
                return static_cast<uint64_t>(old + change);
            };
            const auto word = [&size](long long old) { return u32(static_cast<uint32_t>(size(old))); };
            expected.replace(8, 4, word(35)).replace(24, 8, u64(size(27))).replace(32, 4, word(11));
        }
        EXPECT_EQ(contentOf(path), expected) << change;
        EXPECT_EQ(err.empty(), fits) << err;
    }
}

struct ShiftCase {
    std::string name;
    Bytes tracks;
    long long change;
    bool shifted;
    Bytes expected;
};

class ShiftChunkOffsets : public testing::TestWithParam<ShiftCase> {};

TEST_P(ShiftChunkOffsets, MovesEveryEntryOrNone) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", box("moov", {GetParam().tracks}));
    Container container;
    ASSERT_TRUE(container.attach(path));
    const auto [out, err] = printed([&] {
        container.open_a([&](Brisa::FileIO& handle) {
            BinFile file(handle);
            EXPECT_EQ(container.modifySTCOIndex(file, GetParam().change), GetParam().shifted);
        });
    });
    EXPECT_EQ(contentOf(path), box("moov", {GetParam().expected}));
    EXPECT_EQ(out, "");
    EXPECT_EQ(err.empty(), GetParam().shifted || GetParam().change == 0);
}

namespace {

Bytes tracks(std::initializer_list<uint32_t> narrow, std::initializer_list<uint64_t> wide) {
    return cat({track({stco(narrow)}), track({co64(wide)})});
}

/// A table whose count promises more entries than the box holds.
Bytes boasting(uint32_t entry) {
    return fullBox("stco", 0, {u32(1000), u32(entry)});
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Tables, ShiftChunkOffsets,
    testing::Values(ShiftCase{"BothWidths", tracks({48, 100}, {1ULL << 33}), 10, true,
                              tracks({58, 110}, {(1ULL << 33) + 10})},
                    ShiftCase{"Back", tracks({48}, {~0ULL}), -8, true, tracks({40}, {~0ULL - 8})},
                    ShiftCase{"NoTable", track({}), 0, false, track({})},
                    ShiftCase{"NarrowOverflow", tracks({1, ~0U - 5}, {1}), 6, false,
                              tracks({1, ~0U - 5}, {1})},
                    ShiftCase{"WideOverflow", tracks({1}, {~0ULL - 5}), 6, false, tracks({1}, {~0ULL - 5})},
                    ShiftCase{"BelowZero", tracks({10, 5}, {10}), -6, false, tracks({10, 5}, {10})},
                    ShiftCase{"CountBeyondTheBox", cat({track({boasting(7)}), box("free", {zeros(90)})}), 1,
                              false, cat({track({boasting(7)}), box("free", {zeros(90)})})}),
    nameOf<ShiftCase>);

TEST(ShiftChunkOffsets, TakesTablesOfAnyLengthBlockByBlock) {
    constexpr uint32_t count = 40000; // more than one block of either width
    Bytes narrow;
    Bytes wide;
    Bytes shiftedNarrow;
    Bytes shiftedWide;
    for (uint32_t i = 0; i < count; ++i) {
        narrow += u32(i * 3);
        wide += u64(i * 5);
        shiftedNarrow += u32(i * 3 + 7);
        shiftedWide += u64(i * 5 + 7);
    }
    const Scratch scratch;
    const auto path = scratch.file(
        "f.mp4", cat({fullBox("stco", 0, {u32(count), narrow}), fullBox("co64", 0, {u32(count), wide})}));
    Brisa::FileIO::open_a(path, [&](Brisa::FileIO& handle) {
        BinFile file(handle);
        MP4::STCO stco(file, 0, nullptr);
        stco.parseBox(file, ~0ULL);
        EXPECT_TRUE((MP4::modifyIndex<MP4::STCO, unsigned int>(file, stco, 7)));
        file.seek_set(stco.end());
        file.limit = ~0ULL;
        MP4::CO64 co64(file, 0, nullptr);
        co64.parseBox(file, ~0ULL);
        EXPECT_TRUE((MP4::modifyIndex<MP4::CO64, unsigned long long>(file, co64, 7)));
    });
    EXPECT_EQ(contentOf(path), cat({fullBox("stco", 0, {u32(count), shiftedNarrow}),
                                    fullBox("co64", 0, {u32(count), shiftedWide})}));
}

// ---- Layout ----------------------------------------------------------------------------------------

namespace {

const Bytes ftyp = box("ftyp", {text("isom"), u32(512)});
const Bytes packet = uuidBox(MP4::XMP::_UUID, {text("packet")});

/// A movie of two tracks whose chunks start at the given offsets.
Bytes movie(std::initializer_list<uint32_t> first, std::initializer_list<uint64_t> second) {
    return box("moov", {tracks(first, second)});
}

struct LayoutCase {
    std::string name;
    Bytes before;
    Bytes after; ///< empty: refused, with a reason
    std::string reason;
};

class MoovFirst : public testing::TestWithParam<LayoutCase> {};

const auto grown = static_cast<uint32_t>(movie({1, 2}, {3}).size());

} // namespace

TEST_P(MoovFirst, KeepsEveryChunkAndEveryOtherByte) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", GetParam().before);
    const bool possible = GetParam().reason.empty();
    Container container;
    ASSERT_TRUE(container.attach(path));
    const std::vector<Bytes> chunks = chunkStarts(path);
    EXPECT_TRUE(container.isMdatFirst());
    const auto [out, err] = printed([&] { EXPECT_EQ(container.moovFirst(), possible); });
    EXPECT_EQ(contentOf(path), possible ? GetParam().after : GetParam().before);
    EXPECT_EQ(container.isMdatFirst(), !possible);
    EXPECT_EQ(out.empty(), possible) << out;
    EXPECT_NE(err.find(GetParam().reason), std::string::npos) << err;
    EXPECT_EQ(scratch.count(), 1U);
    if (possible) {
        EXPECT_EQ(chunkStarts(path), chunks);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, MoovFirst,
    testing::Values(
        LayoutCase{"Served", cat({ftyp, box("mdat", {text("0123abcd")}), movie({24, 28}, {24}), packet}),
                   cat({ftyp, movie({24 + grown, 28 + grown}, {24 + grown}), box("mdat", {text("0123abcd")}),
                        packet}),
                   ""},
        LayoutCase{"ServedMovesEvenAStrayOffset", cat({box("mdat", {text("0123")}), movie({8, 999}, {8})}),
                   cat({movie({8 + grown, 999 + grown}, {8 + grown}), box("mdat", {text("0123")})}), ""},
        LayoutCase{"SeveralMediaBoxes",
                   cat({box("mdat", {text("0123")}), box("mdat", {text("abcd")}),
                        movie({8, 20}, {24 + grown + 8}), box("mdat", {text("wxyz")}), zeros(5)}),
                   cat({movie({8 + grown, 20 + grown}, {24 + grown + 8}), box("mdat", {text("0123")}),
                        box("mdat", {text("abcd")}), box("mdat", {text("wxyz")}), zeros(5)}),
                   ""},
        LayoutCase{"BoxesInBetween", cat({box("mdat", {text("0123")}), packet, movie({8, 500}, {8})}),
                   cat({movie({8 + grown, 500}, {8 + grown}), box("mdat", {text("0123")}), packet}), ""},
        LayoutCase{"OpenEndedMovie", cat({box("mdat", {text("0123")}), withSize(movie({8, 8}, {8}), 0)}),
                   cat({movie({8 + grown, 8 + grown}, {8 + grown}), box("mdat", {text("0123")})}), ""},
        LayoutCase{"CutOff", cat({box("mdat", {text("0123")}), movie({8, 8}, {8}), withSize(box("free"), 9)}),
                   "", "cut off"},
        LayoutCase{"OffsetLeaves32Bits", cat({box("mdat", {text("0123")}), movie({8, ~0U}, {8})}), "",
                   "does not fit 32 bits"},
        LayoutCase{"Fragments", cat({box("moof"), box("mdat", {text("0123")}), movie({8, 8}, {8})}), "",
                   "movie fragments"},
        LayoutCase{"TableCutShort",
                   cat({box("mdat"), box("moov", {track({stco({8})}), track({withSize(stco({8}), 19)})})}),
                   "", "has no room"},
        LayoutCase{"TableInABoxTooSmall",
                   cat({box("mdat"), box("moov", {track({stco({8})}), withSize(track({stco({8})}), 110)})}),
                   "", "is damaged"},
        LayoutCase{"OtherOffsets", cat({box("mdat"), box("moov", {track({stco({8}), box("saio")})})}), "",
                   "cannot be corrected"}),
    nameOf<LayoutCase>);

TEST(MoovFirst, HasNothingToDo) {
    for (const Bytes& content : {cat({ftyp, movie({8}, {8}), box("mdat")}), cat({ftyp, box("mdat")}),
                                 cat({ftyp, movie({8}, {8})}), Bytes()}) {
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", content);
        Container container;
        ASSERT_TRUE(container.attach(path));
        const auto [out, err] = printed([&] { EXPECT_FALSE(container.moovFirst()); });
        EXPECT_EQ(out + err, "");
        EXPECT_EQ(contentOf(path), content);
        EXPECT_EQ(container.isMdatFirst(), content == cat({ftyp, box("mdat")}));
    }
}

class MoovFirstFaults : public testing::TestWithParam<Fault> {};

TEST_P(MoovFirstFaults, LeaveTheOldFileOrTheNew) {
    const Bytes media = box("mdat", {Bytes(70000, 'm')});
    expectAllOrNothing(GetParam(), cat({media, movie({8, 8}, {8})}),
                       cat({movie({8 + grown, 8 + grown}, {8 + grown}), media}),
                       [](const std::wstring& path) {
                           Container container;
                           return container.attach(path) && container.moovFirst();
                       });
}

INSTANTIATE_TEST_SUITE_P(Faults, MoovFirstFaults,
                         testing::Values(Fault::error, Fault::shortWrite, Fault::kill));

TEST(UpdateTimeStamp, WritesEveryHeaderAndNothingElse) {
    const auto timed = [](uint32_t time) {
        const auto header = [time](const char* type) { return fullBox(type, 0, {u32(time), zeros(80)}); };
        const Bytes media = box("mdia", {header("mdhd")});
        return box("moov", {header("mvhd"), box("trak", {header("tkhd"), media}),
                            box("trak", {header("tkhd"), media})});
    };
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", timed(1));
    Container container;
    ASSERT_TRUE(container.attach(path));
    EXPECT_TRUE(container.updateTimeStamp(3'600'000'000));
    EXPECT_EQ(contentOf(path), timed(3'600'000'000));
    std::filesystem::remove(path);
    EXPECT_FALSE(quietly([&] { return container.updateTimeStamp(1); }));
}
