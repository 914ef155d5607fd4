#include "Brisa/BrisaConsole.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace Brisa {

void Console::out(const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vfwprintf(stdout, format, arguments);
    va_end(arguments);
    std::fflush(stdout);
}

void Console::err(const wchar_t* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vfwprintf(stderr, format, arguments);
    va_end(arguments);
    std::fflush(stderr);
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
