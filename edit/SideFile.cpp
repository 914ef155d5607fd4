// SPDX-License-Identifier: MIT
#include "SideFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>

#include <expat.h>

#include "Job.h"

namespace edit {

std::string contentOf(const std::string& path) {
    constexpr size_t block = 65536;
    constexpr size_t longest = UINT32_MAX;
    const bool standardInput = path == "-";
    std::string content;
    bool fits = true;
    errno = 0;
    std::FILE* const file = standardInput ? stdin : std::fopen(path.c_str(), "rbe");
    if (file != nullptr) {
        std::error_code unknown; // of a pipe
        const uintmax_t size = std::filesystem::file_size(standardInput ? "/dev/stdin" : path, unknown);
        fits = unknown || size <= longest;
        content.reserve(unknown || !fits ? 0 : size + block);
        for (size_t got = block; got == block && fits;) {
            const size_t length = content.size();
            content.resize(length + block);
            got = std::fread(&content[length], 1, block, file);
            content.resize(length + got);
            fits = content.size() <= longest;
        }
    }
    const bool failed = file == nullptr || std::ferror(file) != 0;
    const int error = errno;
    if (file != nullptr && !standardInput) {
        std::fclose(file);
    }
    if (failed) {
        throw Failure(path + ": could not be read: " + systemReason(error));
    }
    if (!fits) {
        throw WrongArguments(path + ": too long for a box with a 32-bit size");
    }
    return content;
}

void demandOther(const std::string& source, const std::string& place) {
    std::error_code missing;
    if (std::filesystem::equivalent(source, place, missing)) {
        throw WrongArguments(place + ": is what the result is made from");
    }
}

void demandXml(const std::string& text, const std::string& path) {
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
        XML_ParserCreate(nullptr), XML_ParserFree);
    if (parser == nullptr) {
        throw std::bad_alloc();
    }
    constexpr size_t block = size_t{1} << 20;
    std::string_view rest = text;
    for (bool last = false; !last;) {
        const std::string_view piece = rest.substr(0, block);
        rest.remove_prefix(piece.size());
        last = rest.empty();
        if (XML_Parse(parser.get(), piece.data(), static_cast<int>(piece.size()), last ? 1 : 0) !=
            XML_STATUS_OK) {
            throw WrongArguments(
                path + ": not well-formed XML: " + XML_ErrorString(XML_GetErrorCode(parser.get())) +
                " (line " + std::to_string(XML_GetCurrentLineNumber(parser.get())) + ", column " +
                std::to_string(XML_GetCurrentColumnNumber(parser.get()) + 1) + ")");
        }
    }
}

} // namespace edit
