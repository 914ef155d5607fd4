// Console, files and conversions.

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaFileIO.h"
#include "ByteArray.h"
#include "support/Scratch.h"

using Brisa::Console;
using Brisa::FileIO;
using namespace test;

TEST(Console, PrintsAtOnceAndDumpsInHexadecimal) {
    const auto [out, err] = printed([] {
        const unsigned char bytes[] = {0x00, 0xAB, 0x10};
        Console::dump(L"bytes:", bytes, sizeof bytes);
        Console::dump(L"none:", bytes, 0);
        Console::err(L"reason %d", 7);
        Console::out(L"no newline");
    });
    EXPECT_EQ(out, "bytes: 00 AB 10\nnone:\nno newline");
    EXPECT_EQ(err, "reason 7");
}

TEST(FileIO, ModesOpenCreateAndTruncate) {
    const Scratch scratch;
    const auto path = scratch.file("old", "content");
    const auto missing = scratch / "missing";
    const auto [out, err] = printed([&] {
        EXPECT_FALSE(FileIO::open_a(missing, [](FileIO&) { ADD_FAILURE(); }));
        EXPECT_FALSE(FileIO::exist(missing));
        EXPECT_TRUE(FileIO::open_a(path, [](FileIO& file) { EXPECT_EQ(file.write("X", 1), 1U); }));
    });
    EXPECT_EQ(out, "open(" + std::string(missing.begin(), missing.end()) + ", 'a') failed.\nopen(" +
                       std::string(missing.begin(), missing.end()) + ", 'r') failed.\n");
    EXPECT_EQ(contentOf(path), "Xontent") << "update mode starts at offset 0 and truncates nothing";

    Brisa::FileIO_show_process_file_name = true;
    EXPECT_EQ(printed([&] { FileIO::open(path, [](FileIO&) {}); }).out,
              "processing " + std::string(path.begin(), path.end()) + " ...\n");
    Brisa::FileIO_show_process_file_name = false;
    EXPECT_TRUE(FileIO::open_w(path, [](FileIO& file) { EXPECT_EQ(file.length(), 0U); }));
    EXPECT_TRUE(FileIO::open_w(missing, [](FileIO&) {}));
    struct stat status {};
    ASSERT_EQ(::stat(Brisa::wchar::wcs2mbs(missing).c_str(), &status), 0);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(status.st_mode & 07777, 0644 & ~mask);
    EXPECT_THROW(FileIO::open(path, nullptr), std::bad_function_call);
}

TEST(FileIO, ReportsAFailedSeekAndStays) {
    const Scratch scratch;
    const auto path = scratch.file("f", "0123456789");
    const auto [out, err] = printed([&] {
        FileIO::open(path, [](FileIO& file) {
            EXPECT_TRUE(file.seek_set(4));
            EXPECT_FALSE(file.seek_cur(-5));
            EXPECT_FALSE(file.seek_set(~uint64_t{0}));
            EXPECT_EQ(file.position(), 4U);
            EXPECT_EQ(file.write("x", 1), ~uint64_t{0}) << "read-only";
        });
        FileIO closed(path + L"/no", 'r');
        char byte;
        EXPECT_FALSE(closed.seek_set(0));
        EXPECT_EQ(closed.read(&byte, 1), ~uint64_t{0});
        EXPECT_EQ(closed.length(), 0U);
    });
    EXPECT_EQ(out.substr(0, out.find("open(")), "seek_cur(-5) failed - Invalid argument(22)\n"
                                                "seek_set(-1) failed - Invalid argument(22)\n");
}

TEST(FileIO, CopiesBlocksAndEndsWhereTheSourceEnds) {
    const Scratch scratch;
    Bytes content;
    for (uint32_t i = 0; content.size() < 65537; ++i) {
        content += u32(i);
    }
    const auto source = scratch.file("source", content);
    const auto copy = scratch / "copy";
    FileIO::open(source, [&](FileIO& from) {
        FileIO::open_w(copy, [&](FileIO& to) {
            EXPECT_EQ(from.copyTo(to, 65537), 65537U);
            EXPECT_EQ(from.position(), 65537U);
            EXPECT_EQ(from.copyTo(to, 1000), content.size() - 65537) << "the source ends there";
            EXPECT_EQ(from.copyTo(to, 0), 0U);
        });
    });
    EXPECT_EQ(contentOf(copy), content);
}

TEST(FileIO, NeverTakesTheNumberOfAStandardStream) {
    const Scratch scratch;
    const auto path = scratch.file("f", "precious");
    EXPECT_EXIT(
        {
            ::close(0);
            ::close(1);
            ::close(2);
            bool opened = false;
            FileIO::open_a(path, [&](FileIO&) {
                opened = true;
                Console::out(L"must not reach the file");
            });
            _exit(opened ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(contentOf(path), "precious");
}

TEST(FileIO, KnowsItsFileUnderAnyName) {
    const Scratch scratch;
    const auto path = scratch.file("f", "x");
    std::filesystem::create_hard_link(path, scratch / "hard");
    std::filesystem::create_symlink(path, scratch / "soft");
    FileIO::open(path, [&](FileIO& file) {
        EXPECT_TRUE(file.isFileAt(scratch / "hard"));
        EXPECT_TRUE(file.isFileAt(scratch / "soft"));
        EXPECT_FALSE(file.isFileAt(scratch.file("other", "x")));
        EXPECT_FALSE(file.isFileAt(scratch / "missing"));
    });
}

TEST(Conversion, CutsAtTheCapacityAndAtForeignCharacters) {
    using Brisa::wchar::mbs2wcs;
    using Brisa::wchar::wcs2mbs;
    EXPECT_EQ(mbs2wcs(""), L"");
    EXPECT_EQ(mbs2wcs(std::string("ab\0c", 4)), L"ab");
    EXPECT_EQ(mbs2wcs("caf\xC3\xA9"), L"caf");
    EXPECT_EQ(mbs2wcs(std::string(3000, 'x')), std::wstring(2048, L'x'));
    EXPECT_EQ(wcs2mbs(L"ab"), std::string("ab") + std::string(10, '\0'));
    EXPECT_EQ(wcs2mbs(std::wstring(3000, L'x')), std::string(2048, 'x'));
}

TEST(BinFile, ReadsUpToTheLimitAndNoFurther) {
    const Scratch scratch;
    const auto path = scratch.file("f", "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C");
    FileIO::open(path, [](FileIO& file) {
        {
            MP4::BinFile view(file);
            view.limit = 10;
            EXPECT_EQ(view.read8(), 0x01U);
            EXPECT_EQ(view.read16(), 0x0203U);
            EXPECT_EQ(view.read32(), 0x04050607U);
            EXPECT_EQ(view.read32(), 0U) << "refused: one byte too far";
            EXPECT_EQ(view.position(), 7U);
            EXPECT_EQ(view.read16(), 0x0809U);
            view.seek_set(0);
            EXPECT_EQ(view.read64(), 0x0102030405060708U);
            view.limit = 3; // smaller than the width: nothing may wrap
            view.seek_set(0);
            EXPECT_EQ(view.read32(), 0U);
            uint8_t kept[4] = {9, 9, 9, 9};
            view.readBytes(kept, 4);
            EXPECT_EQ(kept[0], 9);
            EXPECT_EQ(view.available(), 3U);
            view.limit = 100;
            EXPECT_EQ(view.available(), 12U);
        }
        char byte = 0;
        EXPECT_TRUE(file.seek_set(0));
        EXPECT_EQ(file.read(&byte, 1), 1U) << "the borrowed descriptor stays open";
    });
}

TEST(ByteArray, HoldsExactlyItsBytes) {
    ByteArray array;
    array.append("abc", 3);
    array.append(array); // from itself
    array.resize(8);
    EXPECT_EQ(Bytes(array.begin(), array.end()), Bytes("abcabc\0\0", 8));
    array.assign(array.data() + 1, 2);
    ByteArray copy = array;
    const ByteArray moved = std::move(array);
    copy[0] = 'x';
    EXPECT_EQ(Bytes(moved.begin(), moved.end()), "bc");
    EXPECT_EQ(Bytes(copy.begin(), copy.end()), "xc");
    copy.clear();
    EXPECT_TRUE(copy.empty());
}
