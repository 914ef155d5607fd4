// Console, files and conversions.

#include <sys/stat.h>

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

TEST(FileIO, OpensReadsAndFailsInWords) {
    const Scratch scratch;
    const auto path = scratch.file("0123456789");
    const auto missing = scratch / "missing";
    char byte = 0;
    std::vector<uint64_t> results;
    const auto [out, err] = printed([&] {
        FileIO closed(missing, 'a');
        results = {closed.read(&byte, 1), closed.write(&byte, 1), closed.length(), static_cast<uint64_t>(closed.seek_set(0))};
        Brisa::FileIO_show_process_file_name = true;
        FileIO::open_a(path, [](FileIO& file) { file.write("X", 1); });
        Brisa::FileIO_show_process_file_name = false;
        FileIO::open(path, [&](FileIO& file) {
            results.push_back(static_cast<uint64_t>(file.seek_set(4) && !file.seek_cur(-5) && !file.seek_set(~0ULL) && file.failed()));
            results.insert(results.end(), {file.position(), file.write("x", 1)});
        });
    });
    EXPECT_THAT(results, testing::ElementsAre(~0ULL, ~0ULL, 0, 0, 1, 4, ~0ULL));
    EXPECT_EQ(out, "open(" + narrow(missing) + ", 'a') failed.\nprocessing " + narrow(path) + " ...\n" +
                       "seek_cur(-5) failed - Invalid argument(22)\nseek_set(-1) failed - Invalid argument(22)\n");
    EXPECT_EQ(contentOf(path), "X123456789") << "update mode starts at offset 0 and truncates nothing";
    EXPECT_TRUE(FileIO::open_w(path, [](FileIO&) {}) && FileIO::open_w(missing, [](FileIO&) {}));
    EXPECT_EQ(contentOf(path), "");
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(static_cast<mode_t>(std::filesystem::status(missing).permissions()), 0644 & ~mask);
    EXPECT_THROW(FileIO::open(path, nullptr), std::bad_function_call);
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
        MP4::BinFile view(file);
        view.limit = 10;
        EXPECT_EQ((std::array<uint64_t, 3>{view.read8(), view.read16(), view.read32()}), (std::array<uint64_t, 3>{1, 0x0203, 0x04050607}));
        EXPECT_EQ(view.read32(), 0U) << "refused: one byte too far";
        EXPECT_EQ(view.position(), 7U);
        view.seek_set(0);
        EXPECT_EQ(view.read64(), 0x0102030405060708U);
        view.limit = 3; // smaller than the width: nothing may wrap
        view.seek_set(0);
        EXPECT_EQ(view.read32() + view.position(), 0U);
        EXPECT_EQ(view.available(), 3U);
        view.limit = 100;
        EXPECT_EQ(view.available(), 12U);
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
