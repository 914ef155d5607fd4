// SPDX-License-Identifier: MIT
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
    const auto ofKind = [](const char* handler) {
        return box("trak", {tkhd(640), box("mdia", {fullBox("hdlr", 0, {zeros(4), handler, zeros(13)})})});
    };
    ASSERT_TRUE(container.attach(scratch.file(box("moov", {ofKind("soun"), ofKind("vide"), ofKind("text")}))));
    EXPECT_EQ(container.trak, container.moov->children[1].get()) << "a text track has a picture, too";
    EXPECT_TRUE(container.attach(scratch.file("", "empty.mp4")));
    EXPECT_TRUE(container.root->children.empty() && container.moov == nullptr && container.trak == nullptr);
    EXPECT_FALSE(quietly([&] { return container.attach(scratch / ""); })) << "a folder is no file";
}

struct AppendCase {
    std::string name;
    Bytes before;
    Bytes after; ///< what stands in front of the appended box; empty, though there was something: it is refused
    std::string words = "";
};

class Append : public testing::TestWithParam<AppendCase> {};

TEST_P(Append, LeavesABoxThatReadersFindOrNothing) {
    const auto& [name, before, after, words] = GetParam();
    const bool taken = before.empty() || !after.empty();
    const Scratch scratch;
    const auto path = scratch.file(before);
    const Bytes left = before.substr(0, taken ? std::min(before.size(), after.size()) : before.size());
    Container container;
    ASSERT_TRUE(container.attach(path));
    const ByteArray header = arrayOf(u32(12) + "uuid");
    quietly([&] { return container.append(header, [](Brisa::FileIO& file) { return file.writeAll("half", 4) != 4; }); });
    EXPECT_EQ(contentOf(path), left);
    if (taken) {
        EXPECT_THROW(container.append(header, [](Brisa::FileIO& file) -> bool { throw file.writeAll("half", 4); }), uint64_t);
        EXPECT_EQ(contentOf(path), left);
        ASSERT_TRUE(container.attach(path)); // an exception leaves that to the caller
    }
    bool appended = false;
    const auto content = [&](Brisa::FileIO& file) {
        const bool done = file.writeAll("body", 4) == 4;
        EXPECT_TRUE(contentOf(path).ends_with(box("free", {"body"}))) << "its type comes last";
        return done;
    };
    const auto [out, err] = printed([&] { appended = container.append(header, content); });
    EXPECT_TRUE(appended == taken && out.empty());
    EXPECT_TRUE(words.empty() ? err.empty() : err.find(words) != std::string::npos) << err;
    EXPECT_EQ(contentOf(path), taken ? after + box("uuid", {"body"}) : before);
    EXPECT_EQ(container.root->first("uuid") != nullptr, taken);
}

INSTANTIATE_TEST_SUITE_P(Tails, Append,
                         testing::Values(AppendCase{"Empty", "", ""}, AppendCase{"Plain", box("free"), box("free")},
                                         AppendCase{"OpenEnded", box("free") + withSize(box("mdat", {zeros(50)}), 0),
                                                    box("free") + box("mdat", {zeros(50)})},
                                         AppendCase{"IndexOfFragments", box("mfra"), box("mfra"), "no longer at the end"},
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

TEST(Hostile, WorkAndMemoryStayInProportionToTheFile) {
    const Bytes spatial(MP4::SpatialData::_UUID.begin(), MP4::SpatialData::_UUID.end());
    const Bytes movieToTheEnd = withSize(box("moov", {withSize(box("trak"), 0)}), 16);
    const Bytes payloadToTheEnd = withSize(box("moov", {withSize(box("trak", {withSize(box("uuid", {zeros(16)}), 0)}), 0)}), 40);
    for (const Bytes& content : {repeated(withSize(box("uuid", {spatial, withSize(box("ZATR"), 0)}), 0), 100'000), // nested without end
                                 repeated(movieToTheEnd, 200'000), repeated(payloadToTheEnd, 50'000), repeated(box("free"), 500'000),
                                 repeated(box("uuid"), 8'500'000),
                                 repeated(box("moov", {withSize(box("udta"), 0)}), 60) + repeated(withSize(box("\xA9xyz"), 520), 20'000)}) {
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
