#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MP4Container.h"

/// Bytes on their way into a file or out of one: they lie in memory or in an open file, borrowed from there.
class SlamPayload {
public:
    SlamPayload(const std::vector<unsigned char>& bytes) : memory(bytes.data()), size(bytes.size()) {}
    /// `length` bytes of a file from `offset` on.
    SlamPayload(Brisa::FileIO& file_, uint64_t offset_, uint64_t length)
        : file(&file_), offset(offset_), size(length) {}

    [[nodiscard]] uint64_t length() const { return size; }
    /// Writes all of it at the destination's position.
    bool writeTo(Brisa::FileIO& destination) const;
    /// Fills `room` with all of it.
    bool readTo(std::vector<unsigned char>& room) const;
    /// Whether the system has failed to read it from its file.
    [[nodiscard]] bool failed() const { return file != nullptr && file->failed(); }
    /// Whether `other` was found to have other bytes; they are compared in blocks.
    [[nodiscard]] bool differs(const SlamPayload& other) const;

private:
    bool readBlock(uint64_t at, unsigned char* block, uint64_t count) const;

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

    explicit SlamMetaData(const MP4::Usertype& identity) : uuid(identity) {}

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
    Put writeToMp4(const std::wstring& mp4Path, const SlamPayload& payload) const;

private:
    [[nodiscard]] const MP4::UUID* firstBox(const MP4::Container& container) const;
    [[nodiscard]] SlamPayload payloadOf(const MP4::UUID& box, Brisa::FileIO& file) const;
    void tellExisting() const;
    bool readStream(Brisa::FileIO& file);
};
