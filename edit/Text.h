// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "Brisa/BrisaConsole.h"

namespace edit {

/// Takes a piece of a result; false if it could not be written, after which no more comes.
using Sink = std::function<bool(std::string_view)>;

/// The fields of a movie count seconds from 1904-01-01, programs from 1970-01-01.
constexpr int64_t secondsFrom1904To1970 = 2'082'844'800;

/// A number as people read it: 38,192,003
std::string grouped(uint64_t number);
/// 1 byte; 38,192,003 bytes
std::string byteCount(uint64_t count);
/// Seconds since 1970 as 2026-11-23T10:00:00Z
std::string dateText(int64_t seconds);

/// As printf() has it, with a full stop in every locale; up to 127 characters.
template <class... Numbers>
std::string formatted(const char* format, Numbers... numbers) {
    const Brisa::Console::LocaleC fullStop;
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), format, numbers...);
    return text.data();
}

} // namespace edit
