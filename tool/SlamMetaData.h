// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MP4Container.h"

/// A kind of SLAM data: its name, and the identity of the box that carries it.
struct SlamKind {
    const char* name;
    MP4::Usertype identity; ///< in file order

    static const SlamKind map;    ///< 8B18D5C3-0E7A-25C7-B3AD-252358B401EE
    static const SlamKind walk;   ///< 2DDF0C53-D6D1-4CB4-9C2B-169D037B7681
    static const SlamKind around; ///< 3645B4BF-9D5C-43D5-83D3-95A8B8818383
    static const std::array<SlamKind, 3> all;

    /// The kind of that name, or of that identity; null if there is none.
    [[nodiscard]] static const SlamKind* named(std::string_view name);
    [[nodiscard]] static const SlamKind* of(const MP4::Usertype& identity);
};

inline constexpr SlamKind SlamKind::map{
    "map", {0x8B, 0x18, 0xD5, 0xC3, 0x0E, 0x7A, 0x25, 0xC7, 0xB3, 0xAD, 0x25, 0x23, 0x58, 0xB4, 0x01, 0xEE}};
inline constexpr SlamKind SlamKind::walk{
    "walk", {0x2D, 0xDF, 0x0C, 0x53, 0xD6, 0xD1, 0x4C, 0xB4, 0x9C, 0x2B, 0x16, 0x9D, 0x03, 0x7B, 0x76, 0x81}};
inline constexpr SlamKind SlamKind::around{
    "around",
    {0x36, 0x45, 0xB4, 0xBF, 0x9D, 0x5C, 0x43, 0xD5, 0x83, 0xD3, 0x95, 0xA8, 0xB8, 0x81, 0x83, 0x83}};
inline constexpr std::array<SlamKind, 3> SlamKind::all{map, walk, around};

/// Bytes on their way into a file or out of one: they lie in memory or in an open file, borrowed from there.
class SlamPayload {
public:
    SlamPayload(const std::vector<unsigned char>& bytes) : SlamPayload(bytes.data(), bytes.size()) {}
    SlamPayload(const void* bytes, uint64_t length)
        : memory(static_cast<const unsigned char*>(bytes)), size(length) {}
    /// `length` bytes of a file from `offset` on.
    SlamPayload(Brisa::FileIO& file_, uint64_t offset_, uint64_t length)
        : file(&file_), offset(offset_), size(length) {}

    [[nodiscard]] uint64_t length() const { return size; }
    /// Writes all of it at the destination's position. When the system does not let it, prints "MP4: the
    /// payload could not be written: %ls.\n" on standard error, with its reason.
    bool writeTo(Brisa::FileIO& destination) const;
    /// Fills `room`, which has length() bytes or gets them, with all of it.
    bool readTo(void* room) const;
    bool readTo(std::vector<unsigned char>& room) const;
    /// Whether the system has failed to read it from its file.
    [[nodiscard]] bool failed() const { return file != nullptr && file->failed(); }
    /// Whether `other` has the same bytes, which are compared in blocks; nothing if they cannot be read.
    [[nodiscard]] std::optional<bool> equals(const SlamPayload& other) const;

private:
    bool readBlock(uint64_t at, void* block, uint64_t count) const;

    const unsigned char* memory = nullptr;
    Brisa::FileIO* file = nullptr;
    uint64_t offset = 0;
    uint64_t size = 0;
};

/// One kind of SLAM data: an opaque payload, and the identity of the box that carries it.
///
/// In an MP4 file the payload is the body of a top-level `uuid` box; in a side file it is all there
/// is. The box, integers big-endian:
///
/// | offset | bytes | content                                    |
/// |--------|-------|--------------------------------------------|
/// | 0      | 4     | size: 24 + length of the payload           |
/// | 4      | 4     | "uuid"                                     |
/// | 8      | 16    | identity of the kind                       |
/// | 24     | rest  | payload                                    |
///
/// A box in the 64-bit size form is read as well, with the payload behind 32 bytes. One that ends behind
/// the file's end is no box of any kind. Operations on files of their own may run in several threads at
/// once. They throw std::bad_alloc, and pass on what a callable throws.
class SlamMetaData {
public:
    std::array<char, 4> type{'u', 'u', 'i', 'd'}; ///< box type
    std::vector<unsigned char> binData;           ///< the payload
    MP4::Usertype uuid;                           ///< identity of the kind, in file order

    explicit SlamMetaData(const SlamKind& kind) : uuid(kind.identity) {}

    // The payload in memory. Every operation returns whether it succeeded. One that cannot open a file has
    // printed "open(%ls, '%c') failed.\n", but for readFromMap().

    /// Fills the payload from the first top-level box of this kind. False when there is none.
    bool readFromMp4(std::wstring mp4Path);
    /// Writes the side file whole or not at all, see Brisa::NewFile::write(). An empty payload is refused
    /// with "binData is empty.\n".
    bool writeToMap(std::wstring mapPath) const;
    /// Fills the payload with the whole side file; a pipe is read to its end. A file that cannot be opened
    /// leaves the payload as it is, counts as success, and nothing is printed. One that is longer than a
    /// box can hold is not read: false, with a line on standard error.
    bool readFromMap(std::wstring mapPath);
    bool readFromMap(Brisa::FileIO& file);
    /// Appends a box with the payload at the end of the MP4 file, see MP4::Container::append(). A box of
    /// this kind that is already there stays: "MP4: uuid is existed.(", the identity, ")\n", and success.
    /// An empty payload is refused with "binData is empty.\n"; so is, with a line on standard error, one
    /// that the 32-bit size cannot hold.
    bool writeToMp4(std::wstring mp4Path) const;
    /// The same, but that with `replace` the payload takes the place of another one.
    bool writeToMp4(std::wstring mp4Path, bool replace) const;
    /// Takes the first box of this kind out, see MP4::Container::removeBox(). False when there is none.
    bool removeFromMp4(std::wstring mp4Path) const;
    /// Whether a box of this kind is among the top-level boxes.
    [[nodiscard]] bool dataExists(const MP4::Container& container) const;

    // The payload where it lies, with which no more memory is needed the longer it is.

    /// What became of a payload that was to be put into a file.
    enum class Put {
        done,
        there,  ///< nothing: a box of this kind is there
        other,  ///< nothing: the same, and it has another payload
        failed, ///< nothing: the file is as it was
    };

    /// The most bytes that a box with a 32-bit size can hold.
    static constexpr uint64_t longestPayload = UINT32_MAX - MP4::UUID::prefixSize;
    /// Whether these are no more; if they are, a line on standard error says so.
    static bool fitsBox(uint64_t length);

    /// Runs the work on the payload of the first box of this kind. False when there is none, or the file
    /// cannot be opened.
    bool openInMp4(const std::wstring& mp4Path, const std::function<void(const SlamPayload&)>& work) const;
    static bool writeToMap(const std::wstring& mapPath, const SlamPayload& payload);
    Put writeToMp4(const std::wstring& mp4Path, const SlamPayload& payload, bool replace = false) const;

    // The same with a container that is attached already (and claimed, where it is changed): for who does
    // more with the file, or tells a file that cannot be opened from one that has no such box.

    bool openInMp4(const MP4::Container& container,
                   const std::function<void(const SlamPayload&)>& work) const;
    Put writeToMp4(MP4::Container& container, const SlamPayload& payload, bool replace = false) const;
    bool removeFromMp4(MP4::Container& container) const;

private:
    [[nodiscard]] MP4::UUID* firstBox(const MP4::Container& container) const;
    [[nodiscard]] SlamPayload payloadOf(const MP4::UUID& box, Brisa::FileIO& file) const;
    [[nodiscard]] std::optional<bool> holds(const MP4::Container& container, const MP4::UUID& box,
                                            const SlamPayload& payload) const;
    void tellExisting() const;
    bool readStream(Brisa::FileIO& file);
};
