// SPDX-License-Identifier: MIT
#include "Brisa/BrisaConsole.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <new>
#include <utility>

#include "Brisa/BrisaErrno.h"
#include "Brisa/BrisaFileIO.h"

namespace Brisa {

namespace {

constexpr size_t shortText = 1024;
constexpr size_t longestText = size_t{1} << 26; // a format that fails for another reason than room ends here

Console::Sink& sink() {
    static Console::Sink installed;
    return installed;
}

std::atomic<bool> lostText{false};

std::wstring formatted(const wchar_t* format, std::va_list arguments) {
    wchar_t buffer[shortText];
    std::wstring grown;
    for (size_t room = shortText; room <= longestText; room *= 4) {
        if (room > shortText) {
            grown.resize(room);
        }
        wchar_t* const text = room > shortText ? grown.data() : buffer;
        std::va_list again;
        va_copy(again, arguments);
        errno = 0;
        const int length = std::vswprintf(text, room, format, again);
        va_end(again);
        if (length >= 0) {
            return {text, static_cast<size_t>(length)};
        }
        if (errno == EILSEQ) {
            break;
        }
    }
    return {};
}

/// What a stream that its program made wide-oriented can take: it gives up at a character that the
/// locale cannot express.
std::wstring expressible(std::wstring text) {
    std::replace_if(
        text.begin(), text.end(),
        [](wchar_t character) {
            char bytes[MB_LEN_MAX];
            std::mbstate_t state{};
            return std::wcrtomb(bytes, character, &state) == static_cast<size_t>(-1);
        },
        L'?');
    return text;
}

void print(Console::Stream stream, const wchar_t* format, std::va_list arguments) try {
    const int reason = errno;
    const ErrnoKept kept;
    const std::wstring text = formatted(format, arguments);
    if (sink()) {
        const std::string bytes = wchar::toBytes(text);
        errno = reason; // the sink may want to tell it
        sink()(stream, bytes);
        return;
    }
    std::FILE* const file = stream == Console::Stream::out ? stdout : stderr;
    if (std::fwide(file, 0) > 0) {
        std::fputws(expressible(text).c_str(), file);
    } else {
        const std::string bytes = wchar::toBytes(text);
        std::fwrite(bytes.data(), 1, bytes.size(), file);
    }
    std::fflush(file);
} catch (const std::bad_alloc&) {
    lostText = true;
    // Texts are printed on the way out of failures, destructors included.
}

} // namespace

void Console::setSink(Sink sink_) {
    sink() = std::move(sink_);
}

bool Console::hasLostText() {
    return lostText;
}

void Console::out(const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(Stream::out, format, arguments);
    va_end(arguments);
}

void Console::err(const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(Stream::err, format, arguments);
    va_end(arguments);
}

void Console::dump(const wchar_t* title, const unsigned char* data, unsigned long size) {
    out(title);
    for (unsigned long i = 0; i < size; ++i) {
        out(L" %02X", data[i]);
    }
    out(L"\n");
}

void Console::init_locale() {}

Console::LocaleC::LocaleC() {
    static const locale_t posix = ::newlocale(LC_ALL_MASK, "C", nullptr);
    before = ::uselocale(posix);
}

Console::LocaleC::~LocaleC() {
    ::uselocale(before);
}

} // namespace Brisa
