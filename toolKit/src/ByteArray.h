// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

/// A byte buffer: one heap block of exactly size() bytes.
///
/// It keeps no spare capacity; a long result is better resized once and filled in place than
/// appended bit by bit.
class ByteArray {
public:
    ByteArray() = default;
    explicit ByteArray(size_t size) { resize(size); }
    ByteArray(const ByteArray& other) { assign(other.data(), other.size()); }
    ByteArray(ByteArray&& other) noexcept;
    ByteArray& operator=(const ByteArray& other);
    ByteArray& operator=(ByteArray&& other) noexcept;
    ~ByteArray() = default;

    [[nodiscard]] uint8_t* data() { return bytes.get(); }
    [[nodiscard]] const uint8_t* data() const { return bytes.get(); }
    [[nodiscard]] size_t size() const { return count; }
    [[nodiscard]] bool empty() const { return count == 0; }
    uint8_t& operator[](size_t index) { return bytes[index]; }
    const uint8_t& operator[](size_t index) const { return bytes[index]; }
    [[nodiscard]] uint8_t* begin() { return data(); }
    [[nodiscard]] uint8_t* end() { return data() + count; }
    [[nodiscard]] const uint8_t* begin() const { return data(); }
    [[nodiscard]] const uint8_t* end() const { return data() + count; }

    /// Changes the size; bytes that are new are zero, those that stay keep their value.
    void resize(size_t size);
    /// Replaces the content by a copy of `size` bytes, which may be part of this array.
    void assign(const void* source, size_t size);
    /// Adds a copy of `size` bytes, which may be part of this array, at the end.
    void append(const void* source, size_t size);
    void append(const ByteArray& other) { append(other.data(), other.size()); }
    /// Releases the block.
    void clear();

private:
    struct Release {
        void operator()(uint8_t* block) const { std::free(block); }
    };
    /// Changes the size; bytes that are new are not set.
    void reallocate(size_t size);

    std::unique_ptr<uint8_t[], Release> bytes;
    size_t count = 0;
};
