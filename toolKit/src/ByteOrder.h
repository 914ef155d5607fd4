// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <concepts>
#include <cstring>

namespace MP4 {

/// `value` with its bytes in the order `Order`; the same call converts back.
template <std::endian Order, std::unsigned_integral Integer>
constexpr Integer inOrder(Integer value) {
    if constexpr (Order == std::endian::native || sizeof(Integer) == 1) {
        return value;
    } else if constexpr (sizeof(Integer) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(Integer) == 4) {
        return __builtin_bswap32(value);
    } else {
        static_assert(sizeof(Integer) == 8);
        return __builtin_bswap64(value);
    }
}

/// The big-endian number that stands at `bytes`, which need not be aligned.
template <std::unsigned_integral Integer>
Integer loadBigEndian(const void* bytes) {
    Integer value;
    std::memcpy(&value, bytes, sizeof value);
    return inOrder<std::endian::big>(value);
}

/// Puts `value` at `bytes` in big-endian order.
template <std::unsigned_integral Integer>
void storeBigEndian(void* bytes, Integer value) {
    value = inOrder<std::endian::big>(value);
    std::memcpy(bytes, &value, sizeof value);
}

} // namespace MP4
