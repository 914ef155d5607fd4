#include "ByteArray.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace {

std::unique_ptr<uint8_t[]> allocate(size_t size) {
    return size == 0 ? nullptr : std::make_unique_for_overwrite<uint8_t[]>(size);
}

void copy(uint8_t* destination, const void* source, size_t size) {
    if (size != 0) {
        std::memcpy(destination, source, size);
    }
}

} // namespace

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

void ByteArray::resize(size_t size) {
    auto resized = allocate(size);
    const size_t kept = std::min(count, size);
    copy(resized.get(), bytes.get(), kept);
    std::fill(resized.get() + kept, resized.get() + size, uint8_t{0});
    bytes = std::move(resized);
    count = size;
}

void ByteArray::assign(const void* source, size_t size) {
    auto assigned = allocate(size);
    copy(assigned.get(), source, size);
    bytes = std::move(assigned);
    count = size;
}

void ByteArray::append(const void* source, size_t size) {
    if (size > SIZE_MAX - count) {
        throw std::bad_array_new_length();
    }
    auto appended = allocate(count + size);
    copy(appended.get(), bytes.get(), count);
    copy(appended.get() + count, source, size);
    bytes = std::move(appended);
    count += size;
}

void ByteArray::clear() {
    bytes.reset();
    count = 0;
}
