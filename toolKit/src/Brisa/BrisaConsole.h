// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include <locale.h>

namespace Brisa {

/// The one place through which the toolkit speaks: results and the product's own messages on standard
/// output, reasons and warnings on standard error.
///
/// A text is formatted as wide text and handed on as bytes, converted by wchar::toBytes(): a path
/// appears as it was given, whatever the locale. A program that uses the library keeps its streams:
/// they stay as they are oriented, and what it prints itself appears in order. A stream that is closed
/// or full loses the text and nothing else; so does a text that memory has no room for. No operation
/// changes errno.
///
/// Several threads may print at once: one call is one text. The sink is the only state.
class Console {
public:
    enum class Stream { out, err };
    using Sink = std::function<void(Stream stream, const std::string& text)>;

    /// Gets, from now on, each text that would be printed, as the bytes that would reach the stream;
    /// an empty one has them printed again. It finds errno as it was when the text was handed over. Set
    /// before threads start; it must not throw.
    static void setSink(Sink sink);

    /// Whether memory had no room for a text since the process began, which was lost then.
    static bool hasLostText();

    /// Formats as vswprintf() does, writes to standard output and flushes it, so that a line is
    /// visible even when the process ends right after it. Texts are passed with "%ls".
    static void out(const wchar_t* format, ...);

    /// The same to standard error: for what a person must know beside the program's own texts,
    /// such as the reason why an edit was refused.
    static void err(const wchar_t* format, ...);

    /// Prints `title` (itself a format without arguments), each of the `size` bytes as a blank and
    /// two upper-case hexadecimal digits, and a newline.
    static void dump(const wchar_t* title, const unsigned char* data, unsigned long size);

    /// Does nothing; called first in a program, which keeps the locale that it starts with. No
    /// operation of the toolkit needs another one.
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
