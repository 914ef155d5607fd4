// Attaching to files, appending to them, and the bounds of a parse.

#include <gtest/gtest.h>

#include <sys/resource.h>

#include "MP4Container.h"
#include "support/Cases.h"
#include "support/Faults.h"

using namespace test;

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

const Bytes movie = cat({box("ftyp", {text("isom"), u32(512)}), track({stco({48})}),
                         box("moov", {fullBox("mvhd", 0, {zeros(96)}), track({stco({48})}), track({}, 0)}),
                         box("mdat", {text("first")}), box("mdat", {text("second")})});

} // namespace

TEST(Attach, RecordsTheMainBoxes) {
    const Scratch scratch;
    const Bytes twoPictures = box("moov", {track({}, 1), track({}, 2), track({}, 0)});
    MP4::Container container;
    ASSERT_TRUE(container.attach(scratch.file("f.mp4", cat({movie, twoPictures}))));
    EXPECT_EQ(container.moov, container.root->children[2].get());
    EXPECT_EQ(container.mdat, container.root->children[3].get());
    const auto& second = static_cast<MP4::NestedBox&>(*container.root->children[5]);
    EXPECT_EQ(container.trak, second.children[1].get()) << "the last track with a picture";
    EXPECT_EQ(container.moov->parent, nullptr);
    EXPECT_EQ(container.mdat->parent, container.root.get());

    const Bytes uncommon = cat({box("meta"), box("moov", {track({}, 0x8000)})});
    ASSERT_TRUE(container.attach(scratch.file("g.mp4", uncommon)));
    EXPECT_EQ(container.root->children[0]->parent, nullptr);
    EXPECT_EQ(container.trak, nullptr) << "a negative width is none";
}

TEST(Attach, AFailureKeepsTheOldTree) {
    const Scratch scratch;
    MP4::Container container;
    const auto path = scratch.file("f.mp4", movie);
    EXPECT_TRUE(container.attach(path));
    EXPECT_FALSE(quietly([&] { return container.attach(scratch / "missing"); }));
    EXPECT_EQ(container.path, path);
    EXPECT_NE(container.moov, nullptr);

    EXPECT_TRUE(container.attach(scratch.file("empty.mp4", "")));
    EXPECT_TRUE(container.root->children.empty());
    EXPECT_EQ(container.moov, nullptr);
    EXPECT_FALSE(container.incomplete());
    EXPECT_TRUE(quietly([&] { return container.attach(scratch.folder().wstring()); })) << "a folder opens";
    EXPECT_TRUE(container.incomplete()) << "but cannot be read";
}

struct AppendCase {
    std::string name;
    Bytes before;
    Bytes after; ///< what stands in front of the appended box
    std::string warning;
};

class Append : public testing::TestWithParam<AppendCase> {};

TEST_P(Append, LeavesABoxThatReadersFind) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", GetParam().before);
    MP4::Container container;
    ASSERT_TRUE(container.attach(path));
    const auto [out, err] = printed([&] {
        EXPECT_TRUE(
            container.append([](Brisa::FileIO& file) { return file.writeAll("\0\0\0\x08uuid", 8) == 8; }));
    });
    EXPECT_EQ(out, "");
    EXPECT_NE(err.find(GetParam().warning), std::string::npos) << err;
    EXPECT_EQ(err.empty(), GetParam().warning.empty()) << err;
    EXPECT_EQ(contentOf(path), GetParam().after + box("uuid"));
    ASSERT_TRUE(container.attach(path));
    EXPECT_EQ(container.root->first("uuid") != nullptr, GetParam().warning.empty());
}

INSTANTIATE_TEST_SUITE_P(Tails, Append,
                         testing::Values(AppendCase{"Empty", "", "", ""}, //
                                         AppendCase{"Plain", box("free"), box("free"), ""},
                                         AppendCase{"OpenEnded", withSize(box("mdat", {zeros(50)}), 0),
                                                    box("mdat", {zeros(50)}), ""},
                                         AppendCase{"CutOff", withSize(box("mdat"), 9),
                                                    withSize(box("mdat"), 9), "is cut off"},
                                         AppendCase{"SevenBytes", cat({box("free"), zeros(7)}),
                                                    cat({box("free"), zeros(7)}), "are no box"},
                                         AppendCase{"ZeroType", cat({box("free"), u32(8), zeros(9)}),
                                                    cat({box("free"), u32(8), zeros(9)}), "has no type"}),
                         nameOf<AppendCase>);

TEST(Append, RefusesAnOpenEndedBoxThatNeedsMoreThan32Bits) {
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", withSize(box("mdat"), 0));
    std::filesystem::resize_file(path, (uint64_t{1} << 32) + 8);
    MP4::Container container;
    ASSERT_TRUE(container.attach(path));
    const auto [out, err] =
        printed([&] { EXPECT_FALSE(container.append([](Brisa::FileIO&) { return ADD_FAILURE(), true; })); });
    EXPECT_NE(err.find("too long for a 32-bit size"), std::string::npos) << err;
    EXPECT_EQ(std::filesystem::file_size(path), (uint64_t{1} << 32) + 8);
}

TEST(Append, IsUndoneByAnException) {
    const Scratch scratch;
    const Bytes before = withSize(box("mdat", {text("samples")}), 0);
    const auto path = scratch.file("f.mp4", before);
    MP4::Container container;
    ASSERT_TRUE(container.attach(path));
    EXPECT_THROW(container.append([](Brisa::FileIO& file) -> bool {
        file.writeAll("half", 4);
        throw std::bad_alloc();
    }),
                 std::bad_alloc);
    EXPECT_EQ(contentOf(path), before);
}

class AppendFaults : public testing::TestWithParam<Fault> {};

TEST_P(AppendFaults, AreUndone) {
    const Bytes payload(3000, 'p');
    for (const bool openEnded : {false, true}) {
        const Bytes media = box("mdat", {text("samples")});
        expectAllOrNothing(GetParam(), openEnded ? withSize(media, 0) : media, media + payload,
                           [&](const std::wstring& path) {
                               MP4::Container container;
                               return container.attach(path) && container.append([&](Brisa::FileIO& file) {
                                   return file.writeAll(payload.data(), payload.size()) == payload.size();
                               });
                           });
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, AppendFaults, testing::Values(Fault::error, Fault::shortWrite));

// Files that are damaged, or made to do harm: every one must parse, and cost no more than it is worth.

TEST(Hostile, EveryPrefixAndEveryChangedByteParses) {
    const Bytes good =
        cat({box("ftyp", {zeros(4)}), uuidBox(MP4::SpatialData::_UUID, {box("ZADT"), track({stco({1, 2})})}),
             box("moov", {track({stco({1}), co64({2})}), uuidBox(MP4::XMP::_UUID, {text("text")})}),
             box("mdat")});
    const Scratch scratch;
    const auto path = scratch / "f.mp4";
    const auto tryOut = [&](const Bytes& content) {
        scratch.file("f.mp4", content);
        MP4::Container container;
        ASSERT_TRUE(container.attach(path));
        ASSERT_LE(boxesIn(*container.root), 65 + content.size() / 8);
        container.dump();
    };
    const auto [out, err] = printed([&] {
        for (size_t i = 0; i < good.size(); ++i) {
            tryOut(good.substr(0, i));
            for (const char value : {'\0', '\xFF', static_cast<char>(good[i] ^ 0x80)}) {
                Bytes changed = good;
                changed[i] = value;
                tryOut(changed);
            }
        }
        for (size_t i = 0; i + 4 <= good.size(); i += 4) {
            for (const uint32_t word : {0U, 1U, 7U, 1U << 31, ~0U}) {
                tryOut(Bytes(good).replace(i, 4, u32(word)));
            }
        }
    });
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
    const Bytes openEnded = withSize(box("uuid", {spatial, withSize(box("ZATR"), 0)}), 0);
    const std::pair<const char*, Bytes> cases[] = {
        {"nested without end", repeat(openEnded, 100'000)},
        {"children that all reach to the end",
         repeat(withSize(box("moov", {withSize(box("trak"), 0)}), 16), 200'000)},
        {"payloads that all reach to the end",
         repeat(
             withSize(box("moov", {withSize(box("trak", {withSize(box("uuid", {zeros(16)}), 0)}), 0)}), 40),
             50'000)},
        {"tiny boxes", repeat(box("free"), 500'000)},
        {"tiny identified boxes", repeat(box("uuid"), 500'000)},
    };
    for (const auto& [name, content] : cases) {
        const Scratch scratch;
        const auto path = scratch.file("f.mp4", content);
        const auto memoryInProportion = [allowed =
                                             static_cast<long>(content.size() >> 6) + 65536](long before) {
            rusage used{};
            ::getrusage(RUSAGE_SELF, &used); // in KiB; a sanitizer's own memory cannot be told apart
            return PELLMOR_SANITIZED || used.ru_maxrss - before <= allowed;
        };
        EXPECT_EXIT(
            {
                rusage before{};
                ::getrusage(RUSAGE_SELF, &before);
                MP4::Container container;
                container.attach(path);
                const bool few = boxesIn(*container.root) <= content.size() / 8 + 65;
                _exit(few && memoryInProportion(before.ru_maxrss) ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << name;
    }
}
