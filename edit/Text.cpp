// SPDX-License-Identifier: MIT
#include "Text.h"

#include <ctime>

namespace edit {

std::string grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string byteCount(uint64_t count) {
    return grouped(count) + (count == 1 ? " byte" : " bytes");
}

std::string dateText(int64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    std::array<char, 64> text{};
    if (gmtime_r(&time, &parts) == nullptr) {
        return {};
    }
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

} // namespace edit
