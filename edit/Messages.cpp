// SPDX-License-Identifier: MIT
#include "Messages.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "Brisa/BrisaConsole.h"

namespace edit {

namespace {

using Stream = Brisa::Console::Stream;

constexpr const char* mark = "MP4: "; ///< ahead of all that the toolkit says of a file

/// What was said about one file.
struct Heard {
    std::string file;
    std::string path;    ///< the same, or what becomes of it
    std::string reason;  ///< the first one
    std::string warning; ///< the first one on standard error
    int error = 0;       ///< the system's, when the toolkit spoke of a failure
    bool verbose = false;
    bool printed = false;
};

Heard heard;

void print(std::FILE* stream, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stream);
}

/// The text without the mark, the file's name and the full stop: they stand elsewhere in our line.
std::string bare(std::string text) {
    for (const std::string& front : {std::string(mark), heard.file + ": ", heard.path + ": "}) {
        text.erase(0, text.starts_with(front) ? front.size() : 0);
    }
    text.erase(text.find_last_not_of(".\n") + 1);
    return text;
}

void hear(Stream stream, const std::string& text) {
    const int error = errno;
    constexpr const char* plan = "plan: ";
    if (stream == Stream::out && (heard.printed || text.starts_with(plan))) {
        print(stdout, text.starts_with(plan) ? heard.file + ": " + text : text);
        return;
    }
    if (heard.verbose) {
        print(stderr, text);
    }
    heard.error = heard.error != 0 ? heard.error : error;
    if (heard.warning.empty() && stream == Stream::err) {
        heard.warning = bare(text);
    }
    if (heard.reason.empty() && text.starts_with("open(")) {
        heard.reason = systemReason(error); // that the file does not open is plain; the system knows why
    } else if (heard.reason.empty() && stream == Stream::err) {
        heard.reason = bare(text);
    }
    errno = error;
}

} // namespace

Messages::Messages(bool verbose) {
    heard.verbose = verbose;
    Brisa::Console::setSink(hear);
}

Messages::~Messages() {
    Brisa::Console::setSink({});
}

void Messages::begin(const std::string& file, const std::string& path) {
    heard.file = file;
    heard.path = path.empty() ? file : path;
    heard.reason.clear();
    heard.warning.clear();
    heard.error = 0;
    errno = 0;
}

std::string Messages::reason() {
    const int error = heard.error != 0 ? heard.error : errno;
    return heard.reason.empty() && error != 0 ? systemReason(error) : heard.reason;
}

const std::string& Messages::warning() {
    return heard.warning;
}

Messages::Printed::Printed() {
    heard.printed = true;
}

Messages::Printed::~Printed() {
    heard.printed = false;
}

std::string systemReason(int error) {
    return std::generic_category().message(error);
}

} // namespace edit
