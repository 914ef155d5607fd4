// SPDX-License-Identifier: MIT
#include "Text.h"

namespace edit {

std::string grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

} // namespace edit
