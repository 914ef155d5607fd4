// SPDX-License-Identifier: MIT
#include "Values.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <regex>
#include <string_view>

#include "Job.h"
#include "Text.h"

namespace edit {

namespace {

constexpr size_t longestText = 100; ///< of what is matched with an expression

/// An expression of three groups: sign, digits, and a fraction if there is one.
std::string numberLike(const std::string& sign, const std::string& digits) {
    return "(" + sign + ")(" + digits + ")(\\.\\d*)?";
}

double valueOf(std::string_view text) {
    text.remove_prefix(text.starts_with('+') ? 1 : 0);
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// A number of a position: sign, digits and the fraction with its full stop, each as it was given.
struct Number {
    std::string sign;
    std::string integer;
    std::string fraction;

    Number(const std::smatch& match, size_t first)
        : sign(match[first] == "-" ? "-" : "+"), integer(match[first + 1]), fraction(match[first + 2]) {}

    /// With zeros in front up to so many digits, or without those that are more.
    [[nodiscard]] std::string text(size_t digits) const {
        const std::string shortest =
            integer.substr(std::min(integer.find_first_not_of('0'), integer.size() - 1));
        return sign + std::string(digits - std::min(digits, shortest.size()), '0') + shortest +
               (fraction.size() > 1 ? fraction : "");
    }
    /// Minutes, and seconds, that stand behind so many digits of degrees become a fraction of the degrees;
    /// false if there are 60 or more of them.
    bool toDegrees(size_t digits) {
        if (integer.size() < digits + 2) {
            return true;
        }
        constexpr size_t mostDigits = 9; // a tenth of a millimetre
        const bool seconds = integer.size() == digits + 4;
        const double minute = valueOf(integer.substr(digits, 2) + (seconds ? "" : fraction));
        const double second = seconds ? valueOf(integer.substr(digits + 2) + fraction) : 0;
        const size_t needed = std::max<size_t>(fraction.size(), 1) - 1 + (seconds ? 4 : 2);
        const double degrees = valueOf(integer.substr(0, digits)) + minute / 60 + second / 3600;
        const std::string exact = formatted("%.*f", static_cast<int>(std::min(needed, mostDigits)), degrees);
        integer = exact.substr(0, exact.find('.'));
        fraction = exact.substr(integer.size());
        return minute < 60 && second < 60;
    }
};

std::optional<uint64_t> since1904(int64_t since1970) {
    const int64_t seconds = since1970 + secondsFrom1904To1970;
    return seconds < 0 || seconds > UINT32_MAX ? std::nullopt : std::optional<uint64_t>(seconds);
}

uint64_t inRange(const std::string& text, int64_t since1970) {
    const std::optional<uint64_t> time = since1904(since1970);
    if (!time) {
        throw WrongArguments("time '" + text + "': outside 1904 to 2040, which is what the fields can hold");
    }
    return *time;
}

int64_t integerIn(const std::string& text, std::string_view digits) {
    int64_t number = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw WrongArguments("time '" + text + "': no number of seconds");
    }
    const int64_t most = int64_t{2} * UINT32_MAX; // further than any time, and no sum overflows
    return std::clamp(number, -most, most);
}

/// Seconds since 1970; none if the text does not look like a time.
std::optional<int64_t> calendarTime(const std::string& text) {
    const std::string zone = "(?:Z|([+-])(\\d\\d)(?::?(\\d\\d))?)?";
    const std::regex extended(
        "(\\d{4})-(\\d\\d)-(\\d\\d)(?:[T ](\\d\\d):(\\d\\d)(?::(\\d\\d)(?:[.,]\\d+)?)?" + zone + ")?");
    const std::regex basic("(\\d{4})(\\d\\d)(\\d\\d)T(\\d\\d)(\\d\\d)(?:(\\d\\d)(?:[.,]\\d+)?)?" + zone);
    std::smatch match;
    if (text.size() > longestText ||
        (!std::regex_match(text, match, extended) && !std::regex_match(text, match, basic))) {
        return {};
    }
    const auto part = [&](size_t group) { return match[group].matched ? std::stoi(match[group]) : 0; };
    const std::chrono::year_month_day day{std::chrono::year(part(1)),
                                          std::chrono::month(static_cast<unsigned>(part(2))),
                                          std::chrono::day(static_cast<unsigned>(part(3)))};
    if (!day.ok() || part(4) > 23 || part(5) > 59 || part(6) > 60 || part(8) > 23 || part(9) > 59) {
        throw WrongArguments("time '" + text + "': there is no such " + (day.ok() ? "hour" : "day"));
    }
    const int64_t offset = (match[7] == "-" ? -1 : 1) * (part(8) * 3600 + part(9) * 60);
    const auto midnight = std::chrono::sys_seconds(std::chrono::sys_days(day)).time_since_epoch().count();
    return midnight + part(4) * 3600 + part(5) * 60 + part(6) - offset;
}

} // namespace

GPSInfo positionOf(const std::string& text, std::optional<double> compass) {
    const std::string any = " *" + numberLike("[+-]?", "\\d+") + " *";
    const std::regex iso(numberLike("[+-]", "\\d{2,4}|\\d{6}") +
                         numberLike("[+-]", "\\d{2,3}|\\d{5}|\\d{7}") + "(?:" + numberLike("[+-]", "\\d+") +
                         ")?(?:CRSWGS_84)?/");
    const std::regex map(any + "," + any + "(?:," + any + ")?");
    const auto refuse = [&](const char* why) { throw WrongArguments("position '" + text + "': " + why); };
    std::smatch match;
    const bool isIso = text.size() <= longestText && std::regex_match(text, match, iso);
    if (!isIso && (text.size() > longestText || !std::regex_match(text, match, map))) {
        refuse("not like 35.6895,139.6917 or +35.6895+139.6917/");
    }
    Number north(match, 1);
    Number east(match, 4);
    if (isIso && !(north.toDegrees(2) && east.toDegrees(3))) {
        refuse("60 or more minutes or seconds");
    }
    const std::string latitude = north.text(2);
    const std::string longitude = east.text(3);
    const std::string altitude = match[8].matched ? Number(match, 7).text(1) : "";
    constexpr double highest = 32767; // metres, what a signed 16.16 number holds
    if (std::abs(valueOf(latitude)) > 90 || std::abs(valueOf(longitude)) > 180) {
        refuse("not on the globe");
    }
    if (!altitude.empty() && std::abs(valueOf(altitude)) > highest) {
        refuse("an altitude beyond what the boxes can hold");
    }
    GPSInfo position;
    position.attachRXYZ((latitude + longitude + altitude + "/").c_str());
    if (compass) {
        if (!(*compass >= 0 && *compass <= 360)) {
            throw WrongArguments("--compass: not a direction between 0 and 360 degrees");
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
        return inRange(text, std::chrono::floor<std::chrono::seconds>(now).count());
    }
    constexpr std::string_view from1904 = "1904:";
    if (text.starts_with(from1904)) {
        return inRange(text, integerIn(text, std::string_view(text).substr(from1904.size())) -
                                 secondsFrom1904To1970);
    }
    if (text.starts_with('@')) {
        return inRange(text, integerIn(text, std::string_view(text).substr(1)));
    }
    if (const std::optional<int64_t> since1970 = calendarTime(text)) {
        return inRange(text, *since1970);
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
    const auto time = since1904(std::chrono::floor<std::chrono::seconds>(since1970).count());
    if (!time) {
        throw Failure("its last change is outside 1904 to 2040, which is what the fields can hold");
    }
    return *time;
}

double numberOf(const std::string& text, const std::string& name) {
    double number = 0;
    const char* const begin = text.data() + (text.starts_with('+') ? 1 : 0);
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || last != end || !std::isfinite(number)) {
        throw WrongArguments(name + ": '" + text + "' is no number");
    }
    return number;
}

} // namespace edit
