// SPDX-License-Identifier: MIT
#include "Input.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <regex>

#include <pugixml.hpp>

#include "Brisa/BrisaFileIO.h"
#include "Job.h"

namespace edit {

namespace {

using Brisa::FileIO;

constexpr int64_t secondsFrom1904To1970 = 2'082'844'800;
constexpr size_t longestText = 100; ///< of what is matched with an expression

/// An expression of three groups: sign, digits, and a fraction if there is one.
std::string numberLike(const std::string& sign, const std::string& digits) {
    return "(" + sign + ")(" + digits + ")(\\.\\d*)?";
}

double numberIn(const std::string& text) {
    double number = 0;
    std::from_chars(text.data() + (text[0] == '+' ? 1 : 0), text.data() + text.size(), number);
    return number;
}

/// The number of three groups from `first` on, with a sign, and zeros in front up to so many digits.
std::string signedText(const std::smatch& match, size_t first, size_t digits) {
    std::string integer = match[first + 1];
    integer.erase(0, std::min(integer.find_first_not_of('0'), integer.size() - 1));
    const std::string fraction = match[first + 2];
    return (match[first] == "-" ? "-" : "+") + std::string(digits - std::min(digits, integer.size()), '0') +
           integer + (fraction.size() > 1 ? fraction : "");
}

/// Reads bytes of the container's file.
std::string stretchOf(const MP4::Container& container, uint64_t from, uint64_t to) {
    std::string bytes;
    bool complete = false;
    container.open([&](FileIO& file) {
        if (from <= to && to <= file.length() && file.seek_set(from)) {
            bytes.resize(to - from);
            complete = file.readAll(bytes.data(), bytes.size()) == bytes.size();
        }
    });
    if (!complete) {
        throw Failure("could not be read: " + (errno != 0 ? systemReason(errno) : "a box is cut off"));
    }
    return bytes;
}

uint64_t inRange(const std::string& text, int64_t secondsSince1904) {
    if (secondsSince1904 < 0 || secondsSince1904 > UINT32_MAX) {
        throw WrongArguments("time '" + text + "': outside 1904 to 2040, which is what the fields can hold");
    }
    return static_cast<uint64_t>(secondsSince1904);
}

int64_t integerIn(const std::string& text, std::string_view digits) {
    int64_t number = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw WrongArguments("time '" + text + "': no number of seconds");
    }
    return number;
}

/// Seconds since 1970; none if the text is no time.
std::optional<int64_t> calendarTime(const std::string& text) {
    const std::regex form(
        "(\\d{4})-(\\d\\d)-(\\d\\d)"
        "(?:[T ](\\d\\d):(\\d\\d)(?::(\\d\\d)(?:[.,]\\d+)?)?(?:Z|([+-])(\\d\\d):?(\\d\\d))?)?");
    std::smatch match;
    if (text.size() > longestText || !std::regex_match(text, match, form)) {
        return {};
    }
    const auto part = [&](size_t group) { return match[group].matched ? std::stoi(match[group]) : 0; };
    const std::chrono::year_month_day day{std::chrono::year(part(1)),
                                          std::chrono::month(static_cast<unsigned>(part(2))),
                                          std::chrono::day(static_cast<unsigned>(part(3)))};
    if (!day.ok() || part(4) > 23 || part(5) > 59 || part(6) > 60 || part(8) > 23 || part(9) > 59) {
        return {};
    }
    const int64_t zone = (match[7] == "-" ? -1 : 1) * (part(8) * 3600 + part(9) * 60);
    const auto midnight = std::chrono::sys_seconds(std::chrono::sys_days(day)).time_since_epoch().count();
    return midnight + part(4) * 3600 + part(5) * 60 + part(6) - zone;
}

} // namespace

std::wstring widened(const std::string& path) {
    return Brisa::wchar::fromBytes(path);
}

bool looksLikeMp4(const MP4::Container& container) {
    return container.moov != nullptr || container.mdat != nullptr || container.root->first("ftyp") != nullptr;
}

void findIn(const MP4::Container& container, const char* path, std::function<bool(MP4::BOX&)> predicate) {
    constexpr std::string_view movie = "moov.";
    if (!std::string_view(path).starts_with(movie)) {
        container.find(path, std::move(predicate));
    } else if (container.moov != nullptr) {
        container.moov->find(path + movie.size(), std::move(predicate));
    }
}

MP4::BOX* firstIn(const MP4::Container& container, const char* path) {
    MP4::BOX* first = nullptr;
    findIn(container, path, [&first](MP4::BOX& box) {
        first = first != nullptr ? first : &box;
        return false;
    });
    return first;
}

void demandOther(const std::string& source, const std::string& place) {
    std::error_code missing;
    if (std::filesystem::equivalent(source, place, missing)) {
        throw WrongArguments(place + ": is what the result is made from");
    }
}

std::string contentOf(const std::string& path) {
    constexpr size_t block = 65536;
    constexpr size_t longest = UINT32_MAX;
    std::string content;
    bool fits = true;
    errno = 0;
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "rbe");
    if (file != nullptr) {
        std::error_code unknown;
        const uintmax_t size = std::filesystem::file_size(path, unknown);
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
    if (file != nullptr && file != stdin) {
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

std::string bodyOf(const MP4::Container& container, const MP4::BOX& box) {
    const uint64_t identity = box.tag == MP4::fourcc("uuid") ? sizeof(MP4::Usertype) : 0;
    return stretchOf(container, box.offset + box.headerSize() + identity, box.end());
}

std::string bytesOf(const MP4::Container& container, const MP4::BOX& box) {
    return stretchOf(container, box.offset, box.end());
}

bool matches(const MP4::Container& container, uint64_t offset, std::string_view bytes) {
    constexpr size_t block = 65536;
    bool same = false;
    container.open([&](FileIO& file) {
        std::string piece;
        for (same = file.seek_set(offset); same && !bytes.empty(); bytes.remove_prefix(piece.size())) {
            piece.resize(std::min(block, bytes.size()));
            same = file.readAll(piece.data(), piece.size()) == piece.size() && bytes.starts_with(piece);
        }
    });
    return same;
}

bool withBoxOf(const std::string& path, const char* boxPath,
               const std::function<bool(FileIO&, const MP4::BOX&)>& work) {
    MP4::Container other;
    other.keepContents = false;
    errno = 0;
    if (!other.attach(widened(path))) {
        throw Failure(path + ": could not be opened: " + Messages::reason());
    }
    const MP4::BOX* const box = firstIn(other, boxPath);
    if (box == nullptr || box->endWithin(other.root->boxSize) != box->end()) {
        throw Failure(path + ": has no whole " + boxPath + " that could be taken");
    }
    bool done = false;
    other.open([&](FileIO& file) { done = work(file, *box); });
    return done;
}

GPSInfo positionOf(const std::string& text, std::optional<double> compass) {
    const std::string degrees = numberLike("[+-]", "\\d{2,3}");
    const std::string any = " *" + numberLike("[+-]?", "\\d+") + " *";
    const std::regex iso(degrees + degrees + "(?:" + numberLike("[+-]", "\\d+") + ")?(?:CRSWGS_84)?/");
    const std::regex map(any + "," + any + "(?:," + any + ")?");
    const auto refuse = [&](const char* why) { throw WrongArguments("position '" + text + "': " + why); };
    std::smatch match;
    if (text.size() > longestText ||
        (!std::regex_match(text, match, iso) && !std::regex_match(text, match, map))) {
        refuse("not like 35.6895,139.6917 or +35.6895+139.6917/");
    }
    const std::string latitude = signedText(match, 1, 2);
    const std::string longitude = signedText(match, 4, 3);
    const std::string altitude = match[8].matched ? signedText(match, 7, 1) : "";
    constexpr double highest = 32767; // metres, what a signed 16.16 number holds
    if (std::abs(numberIn(latitude)) > 90 || std::abs(numberIn(longitude)) > 180) {
        refuse("not on the globe");
    }
    if (!altitude.empty() && std::abs(numberIn(altitude)) > highest) {
        refuse("an altitude beyond what the boxes can hold");
    }
    GPSInfo position;
    position.attachRXYZ((latitude + longitude + altitude + "/").c_str());
    if (compass) {
        if (!(*compass >= 0 && *compass <= 360)) {
            throw WrongArguments("compass: not a direction between 0 and 360 degrees");
        }
        position.attachCompass(*compass);
    }
    return position;
}

std::optional<uint64_t> timeOf(const std::string& text) {
    if (text == "file") {
        return {};
    }
    if (text == "now") {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return inRange(text, std::chrono::floor<std::chrono::seconds>(now).count() + secondsFrom1904To1970);
    }
    constexpr std::string_view since1904 = "1904:";
    if (text.starts_with(since1904)) {
        return inRange(text, integerIn(text, std::string_view(text).substr(since1904.size())));
    }
    if (text.starts_with('@')) {
        const int64_t latest = UINT32_MAX;
        const int64_t since1970 = integerIn(text, std::string_view(text).substr(1));
        return inRange(text, std::clamp(since1970, -latest, latest) + secondsFrom1904To1970);
    }
    if (const std::optional<int64_t> since1970 = calendarTime(text)) {
        return inRange(text, *since1970 + secondsFrom1904To1970);
    }
    const bool bare = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    throw WrongArguments(
        "time '" + text + "': " +
        (bare ? "of which epoch? @" + text + " counts from 1970, 1904:" + text + " from 1904"
              : "not like 2026-11-23T10:00:00+09:00, 2026-11-23, @SECONDS, 1904:SECONDS, now or file"));
}

uint64_t lastChangeOf(const std::string& path) {
    std::error_code error;
    const auto changed = std::filesystem::last_write_time(path, error);
    if (error) {
        throw Failure("its last change is not known: " + error.message());
    }
    const auto since1970 = std::chrono::file_clock::to_sys(changed).time_since_epoch();
    return inRange("file",
                   std::chrono::floor<std::chrono::seconds>(since1970).count() + secondsFrom1904To1970);
}

std::string shownTime(uint64_t secondsSince1904) {
    const std::chrono::sys_seconds time{
        std::chrono::seconds(static_cast<int64_t>(secondsSince1904) - secondsFrom1904To1970)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

void demandXml(const std::string& text, const std::string& path) {
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_buffer(text.data(), text.size());
    if (!result) {
        throw WrongArguments(path + ": no well-formed XML: " + result.description() + " (byte " +
                             std::to_string(result.offset) + ")");
    }
}

} // namespace edit
