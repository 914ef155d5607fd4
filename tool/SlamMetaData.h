#pragma once

#include <array>
#include <string>
#include <vector>

#include "MP4Container.h"

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
/// Every operation returns whether it succeeded. One that cannot open a file has printed
/// "open(%ls, '%c') failed.\n".
class SlamMetaData {
public:
    std::array<char, 4> type{'u', 'u', 'i', 'd'}; ///< box type
    std::vector<unsigned char> binData;           ///< the payload
    MP4::Usertype uuid;                           ///< identity of the kind, in file order

    explicit SlamMetaData(const MP4::Usertype& identity) : uuid(identity) {}

    /// Fills the payload from the first top-level box of this kind. A box in the 64-bit size form
    /// carries it behind 32 bytes. False when there is none, or the file ends before the payload.
    bool readFromMp4(std::wstring mp4Path);
    /// Creates or truncates the side file and writes the payload. An empty payload is refused with
    /// "binData is empty.\n".
    bool writeToMap(std::wstring mapPath) const;
    /// Fills the payload with the whole side file. A file that cannot be opened leaves the payload
    /// as it is, and counts as success.
    bool readFromMap(std::wstring mapPath);
    /// Appends a box with the payload at the end of the MP4 file, see MP4::Container::append(). A
    /// box of this kind that is already there stays: "MP4: uuid is existed.(", the identity, ")\n",
    /// and success. An empty payload is refused with "binData is empty.\n"; so is, with a line on
    /// standard error, one that the 32-bit size cannot hold.
    bool writeToMp4(std::wstring mp4Path) const;
    /// Whether a box of this kind is among the top-level boxes.
    [[nodiscard]] bool dataExists(const MP4::Container& container) const;

private:
    [[nodiscard]] const MP4::UUID* firstBox(const MP4::Container& container) const;
    void resizePayload(uint64_t size);
};
