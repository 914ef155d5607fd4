// Console, files and conversions.

#include <sys/stat.h>
#include <unistd.h>

#include "Brisa/BrisaConsole.h"
#include "ByteArray.h"
#include "support/Scratch.h"

using Brisa::Console;
using Brisa::FileIO;
using namespace test;

namespace {

std::string narrow(const std::wstring& path) {
    return {path.begin(), path.end()};
}

} // namespace

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
    const auto path = scratch.file("content");
    const auto missing = scratch / "missing";
    bool updated = true;
    const auto [out, err] = printed([&] {
        updated = FileIO::open_a(missing, [](FileIO&) {}) || FileIO::exist(missing);
        Brisa::FileIO_show_process_file_name = true;
        updated = !updated && FileIO::open_a(path, [](FileIO& file) { file.write("X", 1); });
        Brisa::FileIO_show_process_file_name = false;
    });
    EXPECT_TRUE(updated);
    EXPECT_EQ(out, "open(" + narrow(missing) + ", 'a') failed.\nopen(" + narrow(missing) + ", 'r') failed.\nprocessing " + narrow(path) +
                       " ...\n");
    EXPECT_EQ(contentOf(path), "Xontent") << "update mode starts at offset 0 and truncates nothing";
    EXPECT_TRUE(FileIO::open_w(path, [](FileIO&) {}) && FileIO::open_w(missing, [](FileIO&) {}));
    EXPECT_EQ(contentOf(path), "");
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(static_cast<mode_t>(std::filesystem::status(missing).permissions()), 0644 & ~mask);
    EXPECT_THROW(FileIO::open(path, nullptr), std::bad_function_call);
}

TEST(FileIO, FailsInWordsAndStaysWhereItWas) {
    const Scratch scratch;
    const auto path = scratch.file("0123456789");
    char byte = 0;
    uint64_t results[5] = {};
    const auto [out, err] = printed([&] {
        FileIO::open(path, [&](FileIO& file) {
            results[0] = static_cast<uint64_t>(file.seek_set(4) && !file.seek_cur(-5) && !file.seek_set(~0ULL) && file.failed());
            results[1] = file.position();
            results[2] = file.write("x", 1); // read-only
        });
        FileIO closed(path + L"/no", 'r');
        results[3] = closed.read(&byte, 1);
        results[4] = closed.length() + static_cast<uint64_t>(closed.seek_set(0));
    });
    EXPECT_THAT(results, testing::ElementsAre(1, 4, ~0ULL, ~0ULL, 0));
    EXPECT_EQ(out, "seek_cur(-5) failed - Invalid argument(22)\nseek_set(-1) failed - Invalid argument(22)\nopen(" + narrow(path) +
                       "/no, 'r') failed.\n");
}

TEST(FileIO, CopiesBlocksAndEndsWhereTheSourceEnds) {
    const Scratch scratch;
    Bytes content;
    for (uint32_t i = 0; content.size() < 65537; ++i) {
        content += u32(i);
    }
    const auto source = scratch.file(content);
    FileIO::open(source, [&](FileIO& from) {
        FileIO::open_w(scratch / "copy", [&](FileIO& to) {
            EXPECT_EQ(from.copyTo(to, 65537), 65537U);
            EXPECT_EQ(from.copyTo(to, 1000), content.size() - 65537) << "the source ends there";
            EXPECT_EQ(from.copyTo(to, 0), 0U);
        });
    });
    EXPECT_EQ(contentOf(scratch / "copy"), content);
}

TEST(FileIO, NeverTakesTheNumberOfAStandardStream) {
    const Scratch scratch;
    const auto path = scratch.file("precious");
    const auto printIntoClosedStreams = [&path] {
        ::close(0);
        ::close(1);
        ::close(2);
        const bool opened = FileIO::open_a(path, [](FileIO&) { Console::out(L"must not reach the file"); });
        _exit(opened ? 0 : 1);
    };
    EXPECT_EXIT(printIntoClosedStreams(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(contentOf(path), "precious");
}

TEST(Conversion, CutsAtTheCapacityAndAtForeignCharacters) {
    using namespace Brisa::wchar;
    EXPECT_EQ(mbs2wcs(""), L"");
    EXPECT_EQ(mbs2wcs(std::string("ab\0c", 4)), L"ab");
    EXPECT_EQ(mbs2wcs("caf\xC3\xA9"), L"caf");
    EXPECT_EQ(mbs2wcs(std::string(3000, 'x')), std::wstring(2048, L'x'));
    EXPECT_EQ(wcs2mbs(L"ab"), "ab" + zeros(10));
    EXPECT_EQ(wcs2mbs(std::wstring(3000, L'x')), std::string(2048, 'x'));
}

TEST(BinFile, ReadsUpToTheLimitAndNoFurther) {
    const Scratch scratch;
    FileIO::open(scratch.file("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C"), [](FileIO& file) {
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
            EXPECT_EQ(view.read32() + view.position(), 0U);
            EXPECT_EQ(view.available(), 3U);
            view.limit = 100;
            EXPECT_EQ(view.available(), 12U);
        }
        char byte = 0;
        EXPECT_TRUE(file.seek_set(0) && file.read(&byte, 1) == 1) << "the borrowed descriptor stays open";
    });
}

TEST(ByteArray, HoldsExactlyItsBytes) {
    ByteArray array;
    array.append("abc", 3);
    array.append(array); // from itself
    array.resize(8);
    EXPECT_EQ(Bytes(array.begin(), array.end()), "abcabc" + zeros(2));
    array.assign(array.data() + 1, 2);
    ByteArray copy = array;
    const ByteArray moved = std::move(array);
    copy[0] = 'x';
    EXPECT_EQ(Bytes(moved.begin(), moved.end()) + Bytes(copy.begin(), copy.end()), "bcxc");
}
