// Attaching to files, appending to them, and the bounds of a parse.

#include <sys/resource.h>

#include "MP4Container.h"
#include "support/Edit.h"

using namespace test;
using MP4::Container;

namespace {

size_t boxesIn(const MP4::BOX& box) {
    size_t count = 1;
    if (box.hasChild()) {
        for (const auto& child : static_cast<const MP4::NestedBox&>(box).children) {
            count += boxesIn(*child);
        }
    }
    return count;
}

} // namespace

TEST(Attach, RecordsTheMainBoxesUntilTheNextSucceeds) {
    const Scratch scratch;
    const auto path = scratch.file(cat({box("ftyp"), track({}), box("moov", {track({}, 1), track({}, 2), track({}, 0), track({}, 0x8000)}),
                                        box("mdat", {"first"}), box("mdat"), box("meta")}));
    Container container;
    ASSERT_TRUE(container.attach(path));
    const auto& top = container.root->children;
    EXPECT_EQ(container.moov, top[2].get());
    EXPECT_EQ(container.mdat, top[3].get());
    EXPECT_EQ(container.trak, container.moov->children[1].get()) << "the last track whose width is above 0";
    EXPECT_EQ(container.mdat->parent, container.root.get());
    EXPECT_TRUE(container.moov->parent == nullptr && top[5]->parent == nullptr);

    EXPECT_FALSE(quietly([&] { return container.attach(scratch / "missing"); }));
    EXPECT_EQ(container.path, path);
    EXPECT_FALSE(container.moov == nullptr || container.incomplete());
    EXPECT_TRUE(container.attach(scratch.file("", "empty.mp4")));
    EXPECT_TRUE(container.root->children.empty() && container.moov == nullptr && container.trak == nullptr);
    EXPECT_FALSE(quietly([&] { return container.attach(scratch / ""); })) << "a folder is no file";
}

struct AppendCase {
    std::string name;
    Bytes before;
    Bytes after; ///< what stands in front of the appended box; empty: it is refused
    std::string reason = "";
};

class Append : public testing::TestWithParam<AppendCase> {};

TEST_P(Append, LeavesABoxThatReadersFindOrNothing) {
    const auto& [name, before, after, reason] = GetParam();
    const Scratch scratch;
    const auto path = scratch.file(before);
    const Bytes left = before.substr(0, after.empty() ? before.size() : std::min(before.size(), after.size()));
    Container container;
    ASSERT_TRUE(container.attach(path));
    const ByteArray header = arrayOf(u32(12) + "uuid");
    quietly([&] { return container.append(header, [](Brisa::FileIO& file) { return file.writeAll("half", 4) != 4; }); });
    EXPECT_EQ(contentOf(path), left);
    if (reason.empty()) {
        EXPECT_THROW(container.append(header, [](Brisa::FileIO& file) -> bool { throw file.writeAll("half", 4); }), uint64_t);
        EXPECT_EQ(contentOf(path), left);
        ASSERT_TRUE(container.attach(path)); // an exception leaves that to the caller
    }
    bool appended = false;
    const auto [out, err] =
        printed([&] { appended = container.append(header, [](Brisa::FileIO& file) { return file.writeAll("body", 4) == 4; }); });
    EXPECT_TRUE(appended == reason.empty() && out.empty());
    EXPECT_TRUE(reason.empty() ? err.empty() : err.find(reason) != std::string::npos) << err;
    EXPECT_EQ(contentOf(path), reason.empty() ? after + box("uuid", {"body"}) : before);
    EXPECT_EQ(container.root->first("uuid") != nullptr, reason.empty());
}

INSTANTIATE_TEST_SUITE_P(Tails, Append,
                         testing::Values(AppendCase{"Empty", "", ""}, AppendCase{"Plain", box("free"), box("free")},
                                         AppendCase{"OpenEnded", withSize(box("mdat", {zeros(50)}), 0), box("mdat", {zeros(50)})},
                                         AppendCase{"Leftover", box("mdat") + withSize(box("free", {"half"}), 90), box("mdat")},
                                         AppendCase{"DamagedOpenEnded", box("mdat") + u32(0) + "\1abc" + zeros(8), "", "is damaged"},
                                         AppendCase{"CutOff", withSize(box("mdat"), 9), "", "is cut off"},
                                         AppendCase{"SevenBytes", box("free") + zeros(7), "", "are no box"},
                                         AppendCase{"ZeroType", box("free") + u32(8) + zeros(9), "", "without a type"}),
                         nameOf<AppendCase>);

TEST(Append, RefusesAnOpenEndedBoxThatNeedsMoreThan32Bits) {
    const Scratch scratch;
    const auto path = scratch.file(withSize(box("mdat"), 0));
    constexpr uint64_t length = (uint64_t{1} << 32) + 8;
    std::filesystem::resize_file(path, length);
    Container container;
    ASSERT_TRUE(container.attach(path));
    bool appended = true;
    const auto [out, err] = printed([&] { appended = container.append(arrayOf(u32(8) + "uuid"), [](Brisa::FileIO&) { return true; }); });
    EXPECT_FALSE(appended);
    EXPECT_NE(err.find("too long for a 32-bit size"), std::string::npos) << err;
    EXPECT_EQ(std::filesystem::file_size(path), length);
}

// Files that are damaged, or made to do harm: every one must parse, and cost no more than it is worth.

TEST(Hostile, EveryPrefixAndEveryChangedByteParses) {
    const Bytes good = cat({box("ftyp"), uuidBox(MP4::SpatialData::_UUID, {box("ZADT"), track({stco({1, 2})})}),
                            box("moov", {track({stco({1}), co64({2})}, 1, {uuidBox(MP4::XMP::_UUID, {"text"})})}), box("mdat")});
    const Scratch scratch;
    size_t tooMany = 0;
    const auto tryOut = [&](const Bytes& content) {
        Container container;
        container.attach(scratch.file(content));
        tooMany += boxesIn(*container.root) > 65 + content.size() / 8 ? 1 : 0;
        container.dump();
    };
    const auto [out, err] = printed([&] {
        for (size_t i = 0; i < good.size(); ++i) {
            tryOut(good.substr(0, i));
            for (const char value : {'\0', '\xFF', static_cast<char>(good[i] ^ 0x80)}) {
                tryOut(Bytes(good).replace(i, 1, 1, value));
            }
            for (const uint32_t word : {1U, 7U, 1U << 31}) {
                tryOut(Bytes(good).replace(i, 4, u32(word)));
            }
        }
    });
    EXPECT_EQ(tooMany, 0U);
    EXPECT_EQ(err, "");
    EXPECT_EQ(out.find("failed"), std::string::npos) << "parsers print nothing";
}

TEST(Hostile, WorkAndMemoryStayInProportionToTheFile) {
    const auto repeat = [](const Bytes& unit, size_t times) {
        Bytes all;
        for (size_t i = 0; i < times; ++i) {
            all += unit;
        }
        return all;
    };
    const Bytes spatial(MP4::SpatialData::_UUID.begin(), MP4::SpatialData::_UUID.end());
    const Bytes movieToTheEnd = withSize(box("moov", {withSize(box("trak"), 0)}), 16);
    const Bytes payloadToTheEnd = withSize(box("moov", {withSize(box("trak", {withSize(box("uuid", {zeros(16)}), 0)}), 0)}), 40);
    for (const Bytes& content :
         {repeat(withSize(box("uuid", {spatial, withSize(box("ZATR"), 0)}), 0), 100'000), // nested without end
          repeat(movieToTheEnd, 200'000), repeat(payloadToTheEnd, 50'000), repeat(box("free"), 500'000), repeat(box("uuid"), 8'500'000),
          repeat(box("moov", {withSize(box("udta"), 0)}), 60) + repeat(withSize(box("\xA9xyz"), 520), 20'000)}) {
        const Scratch scratch;
        const auto path = scratch.file(content);
        const auto parse = [&] {
            rusage before{};
            rusage after{};
            ::getrusage(RUSAGE_SELF, &before);
            Container container;
            container.attach(path);
            const bool few = boxesIn(*container.root) <= content.size() / 8 + 65;
            ::getrusage(RUSAGE_SELF, &after); // in KiB; a sanitizer's own memory cannot be told apart
            const bool small = PELLMOR_SANITIZED || after.ru_maxrss - before.ru_maxrss <= static_cast<long>(content.size() / 64 + 65536);
            _exit(few && small ? 0 : 1);
        };
        EXPECT_EXIT(parse(), testing::ExitedWithCode(0), "") << content.substr(0, 8);
    }
}
