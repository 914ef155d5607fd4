// SPDX-License-Identifier: MIT
// The rewrite engine, and every edit of a file's structure.

#include <random>
#include <regex>

#include "MP4Container.h"
#include "support/Edit.h"

using namespace test;
using MP4::BinFile;
using MP4::BOX;
using MP4::Container;

TEST_P(Edit, ChangesWhatItSaysAndNothingElse) {
    const auto& [name, change, before, after, text, reason] = GetParam();
    const Scratch scratch;
    const auto path = scratch.file(before);
    std::filesystem::permissions(path, std::filesystem::perms(0640));
    Container container;
    ASSERT_TRUE(container.attach(path));
    bool done = false;
    const auto [out, err] = printed([&, &run = change] { done = run(container); });
    const std::regex failure("(.*\n)?Container::modifyContainer::\\w+\\([^ ]+( to [^ ]+\\.tmp\\.mp4)?\\) failed\\.\n");
    EXPECT_EQ(done, text != failed && text != refused) << out << err;
    EXPECT_TRUE(text == failed ? std::regex_match(out, failure) : out == (text == refused ? "" : text)) << out;
    EXPECT_TRUE(reason.empty() ? text == failed || err.empty() : err.find(reason) != std::string::npos) << err;
    EXPECT_EQ(contentOf(path), after.empty() ? before : after);
    EXPECT_EQ(scratch.count(), 1U);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(container.root->boxSize, contentOf(path).size()) << "attached again";
}

// ---- The engine ------------------------------------------------------------------------------------

TEST(Rewrite, HarmsNoOtherFile) {
    const Bytes before = cat({box("mdat"), box("moov", {track({stco({8})})})});
    const Scratch scratch;
    const auto path = scratch.file(before);
    const auto tryOut = [&](const wchar_t* output = nullptr) {
        Container container;
        container.outputPath = output;
        EXPECT_TRUE(container.attach(path) && !quietly([&] { return container.moovFirst(); }));
        EXPECT_EQ(contentOf(path), before);
    };
    const auto other = scratch.file("precious", "other");
    const auto temporary = scratch / "f.mp4.tmp.mp4";
    namespace fs = std::filesystem;
    for (const auto& target : {path, other}) {
        fs::create_symlink(target, temporary);
        tryOut();
        tryOut(temporary.c_str());
        fs::remove(temporary);
    }
    tryOut(path.c_str());
    tryOut((scratch / "").c_str());
    EXPECT_EQ(contentOf(other), "precious");
    bool locked = false;
    Brisa::FileIO::open(path, [&](const Brisa::FileIO& file) {
        locked = file.lock();
        tryOut();
    });
    EXPECT_TRUE(locked);

    // A path so long that the temporary file's is longer than a converted text may be.
    fs::path deep = scratch / "";
    while (deep.native().size() < 2048 - 200) {
        deep /= std::string(180, 'd');
    }
    fs::create_directories(deep);
    deep /= std::string(2048 - deep.native().size() - 1, 'f');
    fs::copy_file(path, deep);
    Container container;
    EXPECT_TRUE(container.attach(deep.wstring()) && container.moovFirst());
    EXPECT_NE(contentOf(deep.wstring()), before);

    // A leftover of a killed process is no obstacle. The tree of a container whose file was replaced is.
    (void)scratch.file("left over", "f.mp4.tmp.mp4");
    Container stale;
    EXPECT_TRUE(stale.attach(path) && container.attach(path) && container.moovFirst());
    const Bytes after = contentOf(path);
    EXPECT_FALSE(quietly([&] { return stale.updateTimeStamp(1) || stale.moovFirst(); }));
    EXPECT_TRUE(stale.attach(path));
    fs::last_write_time(fs::path(path), fs::last_write_time(fs::path(path)) + std::chrono::seconds(1));
    EXPECT_FALSE(quietly([&] { return stale.updateTimeStamp(1) || container.overwriteSpatialDataOffset(0); }));
    EXPECT_EQ(contentOf(path), after);
    EXPECT_TRUE(stale.attach(path) && stale.open_a([](Brisa::FileIO& file) { file.write("\0", 1); }) && stale.updateTimeStamp(0) &&
                stale.updateTimeStamp(0))
        << "its own edits are no surprise";
    EXPECT_TRUE(container.attach(path) && stale.appendXMP("") && !quietly([&] { return container.appendXMP(""); }));
    EXPECT_EQ(contentOf(path), after + uuidBox(MP4::XMP::_UUID));
}

TEST(Rewrite, LosesNothingThatOthersDoMeanwhile) {
    const Scratch scratch;
    const auto path = scratch.file(box("free"));
    const Bytes theirs = box("skip", {"theirs"});
    using Meanwhile = std::function<bool()>;
    const Meanwhile write = [&] { return !scratch.file(theirs).empty(); };
    const Meanwhile rename = [&] { return Brisa::FileIO::rename(scratch.file(theirs, "other"), path); };
    const auto append = [](Container& container, const Meanwhile& meanwhile) {
        return container.append(arrayOf(u32(8) + "uuid"), [&](Brisa::FileIO&) { return meanwhile(); });
    };
    const auto rewrite = [](Container& container, const Meanwhile& meanwhile) {
        const auto step = [](Container&, BinFile&) { return true; };
        return container.modifyContainer(
            L"test", [&](BinFile& from, BinFile& to, unsigned long long&) { return from.copyTo(to, 8) == 8 && meanwhile(); }, step, step);
    };
    const auto flush = [&](Container& container, const Meanwhile& meanwhile) { // asked behind it
        const Brisa::Watch watch([&](uint64_t) { return meanwhile(); });
        return rewrite(container, [] { return true; });
    };
    struct Case {
        std::function<bool(Container&, const Meanwhile&)> edit;
        Meanwhile meanwhile;
        const char* words;
    };
    for (const auto& [edit, meanwhile, words] : {Case{append, rename, "no longer names it"},
                                                 {rewrite, rename, "wrote to it"},
                                                 {rewrite, write, "wrote to it"},
                                                 {flush, write, "wrote to it"}}) {
        Container container;
        ASSERT_TRUE(container.attach(scratch.file(box("free"))));
        const auto told = printed([&, &run = edit, &disturb = meanwhile] { EXPECT_FALSE(run(container, disturb)); });
        EXPECT_NE(told.err.find(words), std::string::npos) << told.err;
        EXPECT_EQ(contentOf(path), theirs);
        EXPECT_EQ(scratch.count(), 1U);
    }
    // One that waits for a lock gets the file that is there when it is free.
    auto holder = std::make_unique<Brisa::FileIO>(path, 'r');
    EXPECT_TRUE(holder->lock());
    const Brisa::Watch watch([&](uint64_t) {
        EXPECT_TRUE(holder == nullptr || rename());
        holder.reset();
        return true;
    });
    Container container;
    EXPECT_TRUE(container.claim(path) && container.appendXMP(""));
    EXPECT_EQ(contentOf(path), theirs + uuidBox(MP4::XMP::_UUID));
}

namespace {

/// An edit that puts 8 bytes behind the second box, and whose last step may fail.
std::function<bool(Container&)> insert(bool works) {
    return [works](Container& container) {
        BOX& second = *container.root->children[1];
        uint64_t parsed = 0;
        return container.insertBox(
                   L"test", second, false, [](BinFile& file) { return file.writeAll("\0\0\0\x08new ", 8) == 8; },
                   [&](Container& written, BinFile&) { return (parsed = written.root->boxSize) == second.end(); },
                   [&](Container& written, BinFile&) { return works && written.root->children.size() == 4; }) &&
               parsed != 0;
    };
}

/// An edit in place that shifts every chunk offset, or changes the sizes of a box and those around it.
std::function<bool(Container&)> shift(long long by) {
    return [by](Container& container) {
        return container.modifyContainer(L"test", [&](BinFile& file) { return container.modifySTCOIndex(file, by); });
    };
}
std::function<bool(Container&)> resize(long long by, const char* path = "moov.trak.mdia") {
    return [by, path](Container& container) {
        Container other; // a caller's own tree of the same file
        other.attach(container.path);
        const auto step = [&](BinFile& file) { return container.modifyBoxSize(file, *other.root->first(path), by); };
        return container.modifyContainer(L"test", step);
    };
}

/// Boxes in one another whose sizes are wrong by so much.
Bytes sizes(int by) {
    const auto word = [by](int size) { return u32(static_cast<uint32_t>(size + by)); };
    return cat({box("free"), word(35), "moov", u32(1), "trak", u64(static_cast<uint64_t>(27 + by)), word(11), "mdia", zeros(3)});
}

Bytes tables(std::initializer_list<uint32_t> narrow, std::initializer_list<uint64_t> wide) {
    return box("moov", {track({stco(narrow)}), track({co64(wide)})});
}

/// Tables of more than one block.
Bytes longTables(uint32_t by) {
    Bytes narrow;
    Bytes wide;
    constexpr uint32_t count = 40000;
    for (uint32_t i = 0; i < count; ++i) {
        narrow += u32(3 * i + by);
        wide += u64(5 * i + by);
    }
    return box("moov", {track({fullBox("stco", 0, {u32(count), narrow})}), track({fullBox("co64", 0, {u32(count), wide})})});
}

const Bytes boasting = box("moov", {track({stco({1}), fullBox("stco", 0, {u32(2), u32(7)})}), box("free", {zeros(90)})});

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Engine, Edit,
    testing::Values(EditCase{"InsertBehind", insert(true), cat({box("free"), box("skip", {"abc"}), box("mdat")}),
                             cat({box("free"), box("skip", {"abc"}), box("new "), box("mdat")})},
                    EditCase{"InsertInVain", insert(false), cat({box("free"), box("skip"), box("mdat")}), "", failed},
                    EditCase{"InsertBeforeFragments", insert(true), cat({box("free"), box("skip"), box("moof")}), "", failed,
                             "movie fragments"},
                    EditCase{"ShiftBothWidths", shift(10), tables({48, 100}, {1ULL << 33}), tables({58, 110}, {(1ULL << 33) + 10})},
                    EditCase{"ShiftLongTables", shift(7), longTables(0), longTables(7)},
                    EditCase{"ShiftNoTable", shift(1), box("moov", {track({})}), "", failed},
                    EditCase{"ShiftOutOf32Bits", shift(6), tables({1, ~0U - 5}, {1}), "", failed, "does not fit 32 bits"},
                    EditCase{"ShiftOutOf64Bits", shift(6), tables({1}, {~0ULL - 5}), "", failed, "does not fit 64 bits"},
                    EditCase{"SizeAtTheTop", resize(5, "mdat"), box("ftyp") + box("mdat"), box("ftyp") + withSize(box("mdat"), 13)},
                    EditCase{"SizesGrow", resize(5), sizes(0), sizes(5)},
                    EditCase{"SizeBeyond32Bits", resize((1LL << 32) - 30), sizes(0), "", failed, "size"},
                    EditCase{"CountBeyondTheBox", shift(1), boasting, "", failed, "has no room for its 2 entries"}),
    nameOf<EditCase>);

// ---- Layout ----------------------------------------------------------------------------------------

namespace {

const auto moovFirst = edit(&Container::moovFirst);

const Bytes ftyp = box("ftyp", {"isom", u32(512)});
const Bytes packet = uuidBox(MP4::XMP::_UUID, {"packet"});
const auto moved = static_cast<uint32_t>(tables({1, 2}, {3}).size());

/// A movie whose headers, of each form that there is, have this creation time.
Bytes timed(uint64_t time) {
    const auto narrow = [time](const char* type) { return fullBox(type, 0, {u32(time & 0xFFFFFFFF), zeros(80)}); };
    const Bytes large = cat({u32(1), "mdhd", u64(120), u8(0), zeros(3), u32(time & 0xFFFFFFFF), zeros(96)});
    return box("moov", {narrow("mvhd"), box("trak", {fullBox("tkhd", 1, {u64(time), zeros(92)}), box("mdia", {large})}),
                        box("trak", {narrow("tkhd"), box("mdia", {narrow("mdhd")})}),
                        box("trak", {box("tkhd"), box("mdia", {withSize(box("mdhd"), 40)})})});
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    MoovFirst, Edit,
    testing::Values(EditCase{"Served", moovFirst, cat({ftyp, box("mdat", {"0123abcd"}), tables({24, 999}, {24}), packet}),
                             cat({ftyp, tables({24 + moved, 999 + moved}, {24 + moved}), box("mdat", {"0123abcd"}), packet})},
                    EditCase{"SeveralMediaBoxes", moovFirst,
                             cat({box("mdat", {"0123"}), box("mdat", {"abcd"}), tables({8, 20}, {24 + moved + 8}), box("mdat", {"wxyz"}),
                                  zeros(5)}),
                             cat({tables({8 + moved, 20 + moved}, {24 + moved + 8}), box("mdat", {"0123"}), box("mdat", {"abcd"}),
                                  box("mdat", {"wxyz"}), zeros(5)})},
                    EditCase{"OpenEndedMovie", moovFirst, cat({box("mdat", {"0123"}), withSize(tables({8, 8}, {8}), 0)}),
                             cat({tables({8 + moved, 8 + moved}, {8 + moved}), box("mdat", {"0123"})})},
                    EditCase{"CutOff", moovFirst, cat({box("mdat"), tables({8, 8}, {8}), withSize(box("free"), 9)}), "", failed, "cut off"},
                    EditCase{"Fragments", moovFirst, cat({box("mdat"), tables({8, 8}, {8}), box("moof")}), "", failed, "movie fragments"},
                    EditCase{"TableInTheWrongBox", moovFirst,
                             cat({box("mdat"), box("moov", {track({stco({8})}), box("trak", {box("minf")})})}), "", failed, "is damaged"},
                    EditCase{"OtherOffsets", moovFirst,
                             cat({box("mdat", {zeros(8)}), box("moov", {track({stco({8}), fullBox("saio", 0, {u32(1), u32(12)})})})}), "",
                             failed, "cannot be corrected"},
                    EditCase{"MoreHeadersThanBytes", moovFirst,
                             cat({box("mdat"), box("moov", {track({stco({8})}), withSize(box("trak"), 3000)}), repeated(box("free"), 300)}),
                             "", failed, "parsed whole"},
                    EditCase{"AlreadyFirst", moovFirst, cat({ftyp, tables({8}, {8}), box("mdat")}), "", refused},
                    EditCase{"CreationTimes", edit(&Container::updateTimeStamp, 0x1'2233'4455ULL), timed(1), timed(0x1'2233'4455)}),
    nameOf<EditCase>);

// ---- What moves with what ---------------------------------------------------------------------------

namespace {

const auto newUserData = edit(&Container::replaceUdta, 0ULL, arrayOf(box("udta", {"new!"})));
constexpr uint32_t grown = 4;

bool inANewMovieBox(Container& container) {
    container.newMovieBox = true;
    return newUserData(container);
}

/// A movie with this table, whose user data an edit makes 4 bytes longer.
Bytes film(const Bytes& table, bool edited, Parts inMovie = {}, const Bytes& references = "") {
    const Bytes media = box("mdia", {box("minf", {references, box("stbl", {table})})});
    return box("moov", {box("mvhd"), box("trak", {tkhd(640), media}), cat(inMovie), box("udta", {edited ? "new!" : ""})});
}

/// Media data in front of which a movie box grows, and an edit that moves it.
EditCase follows(
    const std::string& name, const std::function<Bytes(const Bytes& samples)>& around, bool moves = true,
    const std::function<Bytes(const Bytes& table, bool edited)>& movie = [](const Bytes& table,
                                                                            bool edited) { return film(table, edited); },
    const std::string& out = "", const std::string& reason = "") {
    const Bytes media = around("samples");
    const auto at = [&](const Bytes& front) { return static_cast<uint32_t>(front.size() + media.find("samples")); };
    const uint32_t before = at(movie(stco({0}), false));
    const Bytes after = out.empty() ? movie(stco({moves ? before + grown : before}), true) + media : "";
    return {name, newUserData, movie(stco({before}), false) + media, after, out, reason};
}

const auto inMediaBox = [](const Bytes& samples) { return box("mdat", {samples}); };

/// A data reference to this file, or to another one.
Bytes reference(uint8_t flags) {
    return box("dinf", {fullBox("dref", 0, {u32(1), box("url ", {u32(flags)})})});
}

auto withReference(uint8_t flags) {
    return [flags](const Bytes& table, bool edited) { return film(table, edited, {}, reference(flags)); };
}

/// Where an item lies, by an offset in the file; the boxes of these types are around what tells it.
auto withItemAt(uint32_t offset, std::initializer_list<const char*> around = {}) {
    Bytes item = box("meta", {u32(0), fullBox("iloc", 0, {u16(0x4400), u16(1), u16(1), u16(0), u16(1), u32(offset), u32(1)})});
    for (const char* const type : around) {
        item = box(type, {item});
    }
    return [item](const Bytes& table, bool edited) { return film(table, edited, {item}); };
}

/// Of a file whose movie has an item, the place of the first sample, around which there are so many boxes.
uint32_t firstSample(uint32_t levels) {
    return static_cast<uint32_t>(film(stco({0}), false, {zeros(42 + 8 * levels)}).size() + 8);
}

const Bytes front = cat({ftyp, box("mdat", {"0123"})});

/// Two tables, of which one may become wide only because the other one did.
Bytes narrowTables(uint32_t last) {
    return box("moov", {track({stco({8, ~0U})}), track({stco({last})})});
}
const uint64_t narrow = narrowTables(0).size();

Bytes userDataFirst(bool edited) {
    return box("moov", {box("udta", {edited ? "new!" : ""}), box("mvhd")});
}
const Bytes hole = box("free", {box("mvhd"), zeros(film(stco({24}), true).size() - 8)}); ///< 8 bytes more than the film needs
const Bytes rest = box("free", {box("mvhd"), film(stco({24}), false).substr(8)});

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Pointers, Edit,
    testing::Values(
        follows("BehindPadding", [](const Bytes& samples) { return zeros(64) + box("mdat", {samples}); }),
        follows("InFreeBox", [](const Bytes& samples) { return box("free", {samples}) + box("mdat"); }),
        follows("InUuidBox", [](const Bytes& samples) { return uuidBox(MP4::AXIS::_UUID, {samples}); }),
        follows("InItemData",
                [](const Bytes& samples) {
                    return box("meta", {u32(0), box("idat", {samples})});
                }),
        follows("InThisFile", inMediaBox, true, withReference(1)), follows("InAnotherFile", inMediaBox, false, withReference(0)),
        follows("PaddedMovie", inMediaBox, true,
                [](const Bytes& table, bool edited) {
                    return film(table, edited, {box("trak", {tkhd(1), zeros(40)}), box("trak")});
                }),
        follows("ItemOfTheMovie", inMediaBox, true, withItemAt(firstSample(0)), failed, "cannot be corrected"),
        follows("ItemOfATrack", inMediaBox, true, withItemAt(firstSample(1), {"trak"}), failed, "cannot be corrected"),
        follows("ItemInUserData", inMediaBox, true, withItemAt(firstSample(2), {"udta", "trak"}), failed, "cannot be corrected"),
        follows("ItemAtRest", inMediaBox, true, withItemAt(2)),
        EditCase{"BecomesWide", moovFirst, cat({box("mdat", {"0123"}), tables({8, ~0U}, {8})}),
                 cat({box("moov", {track({co64({8 + moved + 8, uint64_t{~0U} + moved + 8})}), track({co64({8 + moved + 8})})}),
                      box("mdat", {"0123"})})},
        EditCase{"BecomesWideInTurn", moovFirst, box("mdat", {"0123"}) + narrowTables(static_cast<uint32_t>(~0U - narrow)),
                 box("moov", {track({co64({8 + narrow + 12, ~0U + narrow + 12})}), track({co64({~0U + uint64_t{12}})})}) +
                     box("mdat", {"0123"})},
        EditCase{"NewMovieBox", inANewMovieBox, front + film(stco({24}), false),
                 cat({front, film(stco({24}), false).replace(4, 4, "free"), film(stco({24}), true)})},
        EditCase{"TwoHolesAsOne", inANewMovieBox,
                 cat({front, box("free", {box("mvhd")}), box("free", {zeros(film(stco({24}), true).size() - 24)}),
                      film(stco({24}), false)}),
                 front + film(stco({24}), true)},
        EditCase{"TheRestOfAHole", inANewMovieBox, cat({front, hole, film(stco({24}), false), packet}),
                 cat({front, film(stco({24}), true), rest, packet})},
        EditCase{"SmallHoleAheadOfTheLastMovie", inANewMovieBox,
                 cat({front, film(stco({24}), true).replace(4, 4, "free"), packet, box("free", {box("mvhd")}), film(stco({24}), false)}),
                 cat({front, film(stco({24}), true), packet})},
        EditCase{"HeaderIsNotFirst", inANewMovieBox, front + userDataFirst(false),
                 cat({front, userDataFirst(false).replace(4, 4, "free").replace(12, 4, "mvhd"), userDataFirst(true)})},
        EditCase{"MovieBoxLeftByAKill", inANewMovieBox, cat({front, film(stco({24}), false), film(stco({24}), true)}),
                 cat({front, box("free", {film(stco({24}), false).substr(8), film(stco({24}), true)}), film(stco({24}), true)})},
        EditCase{"MovieBoxesAroundAHole", inANewMovieBox,
                 cat({front, film(stco({24}), false), box("free", {box("mvhd"), zeros(film(stco({24}), true).size() - 16)}),
                      film(stco({24}), true)}),
                 cat({front, film(stco({24}), false).replace(4, 4, "free"), film(stco({24}), true)})}),
    nameOf<EditCase>);

TEST(NewMovieBox, UsesItsHolesAgain) {
    const Scratch scratch;
    std::minstd_rand random;
    const Bytes filler = box("free", {"no hole"});
    const auto path = scratch.file(cat({front, filler, film(stco({24}), false), packet}));
    Container container;
    container.newMovieBox = true;
    ASSERT_TRUE(container.attach(path));
    for (size_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(container.replaceUdta(0, arrayOf(box("udta", {zeros(random() % 300)}))));
        size_t holes = 0;
        size_t movies = 0;
        container.find("free", [&](MP4::BOX&) { return ++holes != 0; });
        container.find("moov", [&](MP4::BOX&) { return ++movies != 0; });
        EXPECT_TRUE(holes <= 2 + 1 && movies == 1) << i << ": " << holes << " holes, " << movies << " movies";
        EXPECT_TRUE(contentOf(path).size() < 2000 && contentOf(path).starts_with(front + filler) &&
                    container.root->first("uuid") != nullptr);
    }
}
