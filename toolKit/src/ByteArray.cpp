// SPDX-License-Identifier: MIT
#include "ByteArray.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>
#include <utility>

ByteArray::ByteArray(ByteArray&& other) noexcept
    : bytes(std::move(other.bytes)), count(std::exchange(other.count, 0)) {}

ByteArray& ByteArray::operator=(const ByteArray& other) {
    assign(other.data(), other.size());
    return *this;
}

ByteArray& ByteArray::operator=(ByteArray&& other) noexcept {
    bytes = std::move(other.bytes);
    count = std::exchange(other.count, 0);
    return *this;
}

void ByteArray::reallocate(size_t size) {
    if (size == 0) {
        clear();
        return;
    }
    // Where the block can grow in place nothing is copied: a result appended bit by bit stays cheap.
    void* const block = std::realloc(bytes.get(), size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    (void)bytes.release();
    bytes.reset(static_cast<uint8_t*>(block));
    count = size;
}

void ByteArray::resize(size_t size) {
    const size_t kept = std::min(count, size);
    reallocate(size);
    std::fill(begin() + kept, end(), uint8_t{0});
}

void ByteArray::assign(const void* source, size_t size) {
    ByteArray assigned;
    assigned.append(source, size);
    *this = std::move(assigned);
}

void ByteArray::append(const void* source, size_t size) {
    if (size > SIZE_MAX - count) {
        throw std::bad_array_new_length();
    }
    if (size == 0) {
        return;
    }
    const auto* from = static_cast<const uint8_t*>(source);
    const bool own = std::greater_equal<>()(from, data()) && std::less<>()(from, data() + count);
    const size_t within = own ? static_cast<size_t>(from - data()) : 0;
    const size_t before = count;
    reallocate(count + size);
    std::memcpy(data() + before, own ? data() + within : from, size);
}

void ByteArray::clear() {
    bytes.reset();
    count = 0;
}
