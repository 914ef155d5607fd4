#pragma once

#include <locale.h>

namespace Brisa {

/// The one place through which the toolkit writes to the terminal.
///
/// Output goes through the wide functions of the C library, so the first line turns the stream
/// wide-oriented for good; wide text becomes bytes by the rules of the process locale.
class Console {
public:
    /// Formats as vwprintf() does, writes to standard output and flushes it, so that a line is
    /// visible even when the process ends right after it. Wide strings are passed with "%ls".
    /// Output errors are not reported.
    static void out(const wchar_t* format, ...);

    /// The same to standard error: for what a person must know beside the program's own texts,
    /// such as the reason why an edit was refused.
    static void err(const wchar_t* format, ...);

    /// Prints `title` (itself a format without arguments), each of the `size` bytes as a blank and
    /// two upper-case hexadecimal digits, and a newline.
    static void dump(const wchar_t* title, const unsigned char* data, unsigned long size);

    /// Called first in every program. The process keeps the locale it starts with, the POSIX
    /// locale: paths and messages are converted by its rules.
    static void init_locale();

    class LocaleC;
};

/// A scope in which this thread formats and parses numbers as the POSIX locale does, with a full stop
/// as the decimal separator. In a process that keeps that locale it makes no difference.
class Console::LocaleC {
public:
    LocaleC();
    ~LocaleC();
    LocaleC(const LocaleC&) = delete;
    LocaleC& operator=(const LocaleC&) = delete;

private:
    locale_t before;
};

} // namespace Brisa
