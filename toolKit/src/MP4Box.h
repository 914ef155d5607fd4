// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Brisa/BrisaFileIO.h"
#include "ByteArray.h"

/// The boxes of an MP4 file (ISO/IEC 14496-12, 4.2), read into a tree of typed objects.
///
/// A box object describes where a box lies and holds the fields that the toolkit uses; it holds no
/// file. Parsing never fails and never prints: a field that lies beyond its box, or beyond the
/// limit of the parse, reads as 0. Objects are not updated when the file is edited; the file is
/// parsed again instead.
///
/// Nothing is thrown but what the standard library throws when memory is short. A tree may be read by several
/// threads at once; box objects have no state that they share.
namespace MP4 {

/// A box type as BOX::tag holds it: the four bytes of `text`, the first in the file first in memory.
constexpr uint32_t fourcc(const char (&text)[5]) {
    return std::bit_cast<uint32_t>(std::array<char, 4>{text[0], text[1], text[2], text[3]});
}

/// The 16-byte identity of a `uuid` box, in file order.
using Usertype = std::array<uint8_t, 16>;

/// The header of a box with `content` bytes behind it: 8 bytes, or 16 where the size needs 64 bits.
[[nodiscard]] ByteArray headerOf(uint32_t tag, uint64_t content);
/// A whole box with this body.
[[nodiscard]] ByteArray boxOf(uint32_t tag, const ByteArray& body);

/// How a search goes on behind a box that it has found, see NestedBox::find().
enum class Search {
    next,    ///< with the next match
    endScan, ///< without the boxes that lie beside this one; where another path leads, it goes on
    stop     ///< not at all
};

/// What all boxes have in common: the header (ISO/IEC 14496-12, 4.2).
///
/// | offset | bytes | field                                                              |
/// |--------|-------|--------------------------------------------------------------------|
/// | 0      | 4     | size, header included; 1: largesize follows; 0: to the file's end  |
/// | 4      | 4     | type                                                               |
/// | 8      | 8     | largesize, only when size is 1                                     |
///
/// A plain BOX is a box whose type means nothing to the toolkit where it stands; its body is not read.
class BOX {
public:
    static constexpr uint64_t compactHeader = 8; ///< bytes of a header without a largesize

    int32_t depth = 0;      ///< -1 for the root, 0 for a top-level box; indents the dump
    uint64_t offset = 0;    ///< file offset of the first header byte
    uint64_t boxSize = 0;   ///< total size in bytes, header included
    uint32_t tag = 0;       ///< the four type bytes in file order, see fourcc(); 0 means no box
    bool largeSize = false; ///< whether the header carries a 64-bit largesize
    BOX* parent = nullptr;  ///< the enclosing box; null for a top-level `moov`, `meta` or `uuid`

    /// A box made in memory.
    BOX(uint64_t offset, uint64_t size, uint32_t tag, BOX* parent);
    /// A box of the place and size that `header` tells.
    BOX(const BOX& header, BOX* parent);
    /// Reads a header at the file's position and leaves the position at the first body byte. What
    /// does not fit before the file's limit reads as 0; so `tag` is 0 where no header is left.
    BOX(BinFile& file, int depth, BOX* parent);
    BOX(const BOX&) = delete;
    BOX& operator=(const BOX&) = delete;
    virtual ~BOX() = default;

    /// Whether NestedBox::find() may descend into this box.
    [[nodiscard]] virtual bool hasChild() const;
    /// Prints one line for the box ("MP4: ", four blanks a level, "<", basicTag(), the fields of
    /// the class, " >") and the lines of its children.
    virtual void dump() const;
    /// Reads the body, with the file positioned at its first byte, up to the end of the box or to
    /// `limit`, whichever comes first.
    virtual void parseBox(BinFile& file, uint64_t limit);

    /// 8, or 16 with a largesize.
    [[nodiscard]] uint64_t headerSize() const { return compactHeader + (largeSize ? sizeof(uint64_t) : 0); }
    /// File offset just behind the box as its header declares it; 2^64 - 1 where that does not fit.
    [[nodiscard]] uint64_t end() const;
    /// File offset behind the last byte that belongs to this box, to every box around it and to a file
    /// of `length` bytes.
    [[nodiscard]] uint64_t endWithin(uint64_t length) const;

    /// Rewrites the size in the file's header, in the form that the header has, and restores the
    /// file's position. The object keeps its size. Returns whether it was written.
    bool size(BinFile& file, uint64_t newSize) const;
    /// Copies the box, header included, to the current position of `destination`; whether all of
    /// it was copied. What was copied before a failure stays there.
    bool copyTo(Brisa::FileIO& source, Brisa::FileIO& destination) const;
    /// The text that names the box in every dump line: 'moov': start=32 bytes=700
    [[nodiscard]] std::wstring basicTag() const;
    /// The type as a text of four characters, one for each byte (ISO 8859-1, so that A9 is the copyright
    /// sign); '?' stands for a control character.
    [[nodiscard]] std::wstring type() const;

protected:
    /// Every parser begins with it: bounds the file's reads by the end of this box and by `limit`.
    void enter(BinFile& file, uint64_t limit) const;
    /// Four blanks for each level.
    [[nodiscard]] std::wstring indentation() const;
};

/// The box as an object of the class `Box`; null if it is of another class (a CO64 is an STCO too). What
/// stands where is told by a table at the end of this header.
template <class Box>
[[nodiscard]] Box* as(BOX* box) {
    return dynamic_cast<Box*>(box);
}
template <class Box>
[[nodiscard]] const Box* as(const BOX* box) {
    return dynamic_cast<const Box*>(box);
}
template <class Box>
[[nodiscard]] Box* as(BOX& box) {
    return as<Box>(&box);
}
template <class Box>
[[nodiscard]] const Box* as(const BOX& box) {
    return as<Box>(&box);
}

/// A box whose body is a sequence of boxes. It owns them.
class NestedBox : public BOX {
public:
    using BOX::BOX;

    std::vector<std::unique_ptr<BOX>> children; ///< in file order

    [[nodiscard]] bool hasChild() const override;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// Makes the object for a child's header: the class that the type means inside this box.
    virtual std::unique_ptr<BOX> allocChild(BOX& header);

    /// Calls `fn` for the boxes that `path` reaches: box types of four bytes each, joined by dots
    /// ("moov.trak.mdia"), matched from the children of this box downwards, in file order. A path with a
    /// component of another length matches nothing.
    ///
    /// `fn` tells how to go on. False does not stop the search: as Search::endScan it ends one scan only,
    /// that of the children among which the match lay ("moov.trak.tkhd" then goes on in the next `trak`).
    void find(const char* path, std::function<bool(BOX&)> fn) const;
    void find(const char* path, std::function<Search(BOX&)> fn) const;
    /// Calls `fn` once if find() would reach no box.
    void if_not_found(const char* path, std::function<void()> fn) const;
    /// The first box at `path` in file order, or null.
    [[nodiscard]] BOX* first(const char* path) const;

protected:
    /// Reads headers from the file's position to the end of this box, or to `limit`, and makes and
    /// parses a child for each. It ends early at a header whose type is four zero bytes or whose
    /// size comes to 0, where the next header would lie outside, and where the parse has taken in
    /// as many headers as the file can hold (ParseAllowance). A box nested more than 32 levels deep becomes a
    /// plain BOX.
    void parseChildren(BinFile& file, uint64_t limit);
    void dumpChildren() const;

private:
    /// What both forms of find() do; false once the search is to stop.
    bool search(const char* path, const std::function<Search(BOX&)>& fn) const;
};

/// A nested box with the version and flags of a full box in front of its children.
class NestedBoxWithVersion : public NestedBox {
public:
    using NestedBox::NestedBox;

    uint32_t versionFlags = 0; ///< the four bytes, in file order

    void parseBox(BinFile& file, uint64_t limit) override;
};

/// The whole file: its children are the top-level boxes.
class ROOT : public NestedBox {
public:
    using NestedBox::NestedBox;

    void dump() const override;
    /// A parse begins here, with an allowance of its own.
    void parseBox(BinFile& file, uint64_t limit) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// File type box (`ftyp`, ISO/IEC 14496-12 4.3). Its body is not read.
class FTYP : public BOX {
public:
    using BOX::BOX;
};

/// Media data box (`mdat`, ISO/IEC 14496-12 8.1.1). Its body is not read.
class MDAT : public BOX {
public:
    using BOX::BOX;
};

/// Movie box (`moov`, ISO/IEC 14496-12 8.2.1).
class MOOV : public NestedBox {
public:
    using NestedBox::NestedBox;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Movie header box (`mvhd`, ISO/IEC 14496-12 8.2.2).
class MVHD : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0; ///< 1: times of 64 bits; any other value: 32 bits
    std::array<uint8_t, 3> flags{};
    uint64_t timeStamp = 0; ///< creation time, seconds since 1904-01-01 UTC
    float duration = 0;     ///< seconds; not finite when the time scale is 0
    float time_scale = 0;   ///< units a second

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// Writes `time` as the creation time into the file, in the width of the box's version (the
    /// low 32 bits in version 0), and restores the file's position; the object keeps its value. A box
    /// that is too short for the field is left alone. Always true: a caller that needs certainty
    /// parses the file again.
    bool setTimeStamp(BinFile& file, uint64_t time) const;
};

/// Track box (`trak`, ISO/IEC 14496-12 8.3.1). A `ZATR` box, the audio track inside a spatial-data
/// box, has the same content and the same class.
class TRAK : public NestedBox {
public:
    using NestedBox::NestedBox;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Track header box (`tkhd`, ISO/IEC 14496-12 8.3.2).
class TKHD : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0; ///< 1: times of 64 bits; any other value: 32 bits
    std::array<uint8_t, 3> flags{};
    uint64_t timeStamp = 0; ///< creation time, seconds since 1904-01-01 UTC
    uint32_t width = 0;     ///< whole pixels: the stored 16.16 number, truncated
    uint32_t height = 0;

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// As MVHD::setTimeStamp().
    bool setTimeStamp(BinFile& file, uint64_t time) const;
};

/// Media box (`mdia`, ISO/IEC 14496-12 8.4.1).
class MDIA : public NestedBox {
public:
    using NestedBox::NestedBox;

    /// What kind of media it is, fourcc("vide") or fourcc("soun") for example, from its first `hdlr` box
    /// (which is a plain BOX in the tree); 0 where none tells.
    uint32_t handler = 0;

    void parseBox(BinFile& file, uint64_t limit) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Media header box (`mdhd`, ISO/IEC 14496-12 8.4.2).
class MDHD : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0; ///< 1: times of 64 bits; any other value: 32 bits
    std::array<uint8_t, 3> flags{};
    uint64_t timeStamp = 0;  ///< creation time, seconds since 1904-01-01 UTC
    uint64_t duration = 0;   ///< in units of the time scale
    uint32_t time_scale = 0; ///< units a second

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// As MVHD::setTimeStamp().
    bool setTimeStamp(BinFile& file, uint64_t time) const;
};

/// Media information box (`minf`, ISO/IEC 14496-12 8.4.4).
class MINF : public NestedBox {
public:
    using NestedBox::NestedBox;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Sample table box (`stbl`, ISO/IEC 14496-12 8.5.1).
class STBL : public NestedBox {
public:
    using NestedBox::NestedBox;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Sample description box (`stsd`, ISO/IEC 14496-12 8.5.2). Its children are the sample entries.
class STSD : public NestedBoxWithVersion {
public:
    using NestedBoxWithVersion::NestedBoxWithVersion;

    uint32_t entryCount = 0; ///< as stored; the children are what the box really holds

    void parseBox(BinFile& file, uint64_t limit) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// H.264 visual sample entry (`avc1`, ISO/IEC 14496-15 5.4.2): 78 bytes that are passed over, then
/// boxes, `avcC` among them.
class AVC1 : public NestedBox {
public:
    using NestedBox::NestedBox;
    void parseBox(BinFile& file, uint64_t limit) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Audio sample entry of little-endian PCM (`sowt`; the fields are those of ISO/IEC 14496-12 8.5.2).
class SOWT : public NestedBox {
public:
    using NestedBox::NestedBox;

    uint16_t data_reference_index = 0;
    uint16_t channel_count = 0;
    uint16_t pre_defined = 0;
    uint16_t sample_size = 0; ///< bits of one channel's sample
    uint16_t samplerate = 0;  ///< hertz: the integer part of the stored 16.16 number

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// One run of samples of the same duration (ISO/IEC 14496-12 8.6.1.2).
struct SttsEntry {
    uint32_t sample_count;
    uint32_t sample_delta; ///< in units of the media's time scale
};

/// Decoding time to sample box (`stts`, ISO/IEC 14496-12 8.6.1.2).
///
/// A count that the box has no room for is filled up with zero entries, as far as the parse allows
/// (ParseAllowance::zeros); a count beyond that is cut to what is there. The entries are kept unless the
/// parse keeps no contents; the count is the same. So it is with STSC and STSZ.
class STTS : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0;
    std::array<uint8_t, 3> flags{};
    uint32_t entryCount = 0; ///< the length of `entries`, kept or not
    std::vector<SttsEntry> entries;

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// Sample to chunk box (`stsc`, ISO/IEC 14496-12 8.7.4).
class STSC : public BOX {
public:
    using BOX::BOX;

    /// A run of chunks of the same number of samples.
    struct StscEntry {
        uint32_t first_chunk; ///< counted from 1
        uint32_t samples_per_chunk;
        uint32_t sample_description_index; ///< counted from 1
    };

    uint8_t version = 0;
    std::array<uint8_t, 3> flags{};
    uint32_t entryCount = 0; ///< the length of `entries`, kept or not
    std::vector<StscEntry> entries;

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// Sample size box (`stsz`, ISO/IEC 14496-12 8.7.3.2).
class STSZ : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0;
    std::array<uint8_t, 3> flags{};
    uint32_t sampleSize = 0;   ///< bytes of every sample, or 0 when `entries` tells each one's
    uint32_t sample_count = 0; ///< the length of `entries`, when `sampleSize` is 0
    std::vector<uint32_t> entries;
    uint64_t sample_total = 0; ///< bytes of all samples together; 0 for a list that is not read

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// The chunk-offset table of one track, 32-bit form (`stco`, ISO/IEC 14496-12 8.7.5).
///
/// The entries grow with the recording, so they stay in the file: the box keeps only where they
/// lie. Container::modifySTCOIndex() corrects them there.
class STCO : public BOX {
public:
    using BOX::BOX;

    uint8_t version = 0;
    std::array<uint8_t, 3> flags{};
    uint32_t entryCount = 0;  ///< as stored
    uint64_t tableOffset = 0; ///< file offset of the first entry

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// The same with entries of 64 bits (`co64`, ISO/IEC 14496-12 8.7.5).
class CO64 : public STCO {
public:
    using STCO::STCO;
};

/// User data box (`udta`, ISO/IEC 14496-12 8.10.1).
class UDTA : public NestedBox {
public:
    using NestedBox::NestedBox;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Location text box: the type is byte A9 and "xyz"; a 16-bit text size, a packed language code and
/// an ISO 6709 text.
class XYZ : public BOX {
public:
    using BOX::BOX;

    static constexpr uint16_t english = 0x15C7; ///< "eng", three letters of 5 bits (ISO 639-2/T)

    uint16_t textSize = 0; ///< as stored; the text reaches to the end of the box
    uint16_t language = english;
    std::string text; ///< at most 512 bytes; zeros where the parse cannot read it

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// A whole box with this text, of at most 65,535 bytes, in English.
    [[nodiscard]] static ByteArray make(const std::string& text);
};

/// Location information box (`loci`, 3GPP TS 26.244 8.2), read with an empty name.
class LOCI : public BOX {
public:
    using BOX::BOX;

    double longitude = 0; ///< degrees, from signed 16.16 fixed point
    double latitude = 0;
    double altitude = 0; ///< metres
    bool hasPosition = false;
    bool hasAltitude = false; ///< false when the box ends before the altitude

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    /// A whole box with no name, no astronomical body and no notes; the numbers are signed 16.16 fixed point.
    [[nodiscard]] static ByteArray make(uint32_t longitude, uint32_t latitude, uint32_t altitude);
};

/// Top-level metadata box (`meta`, ISO/IEC 14496-12 8.11.1).
class META : public NestedBoxWithVersion {
public:
    using NestedBoxWithVersion::NestedBoxWithVersion;
    std::unique_ptr<BOX> allocChild(BOX& header) override;
};

/// Handler box of a top-level `meta` (`hdlr`, ISO/IEC 14496-12 8.4.3). The fields are raw.
class HDLR : public BOX {
public:
    using BOX::BOX;

    std::array<uint8_t, 4> versionFlags{};
    std::array<uint8_t, 4> pre_defined{};
    std::array<uint8_t, 4> handler_type{};
    std::array<uint8_t, 12> reserved{};
    ByteArray name; ///< the rest of the box; zeros where the parse cannot read it

    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
};

/// Box with an extended type (`uuid`, ISO/IEC 14496-12 4.2): a 16-byte identity in front of the body.
///
/// The body of the spatial-data identity is a sequence of boxes; that of any other is opaque.
/// Boxes of this class are also built in memory from a payload, and written.
class UUID : public NestedBox {
public:
    using NestedBox::NestedBox;
    /// Builds a box of 24 bytes and the payload; the caller sets `usertype`.
    explicit UUID(const std::string& payload);

    Usertype usertype{}; ///< zeros when the box is too short to hold it
    /// The body, any bytes; what the file really holds of it. Empty for spatial data, and when the
    /// parse keeps no contents (ParseAllowance::keepContents).
    std::string payload;

    [[nodiscard]] bool hasChild() const override;
    void dump() const override;
    void parseBox(BinFile& file, uint64_t limit) override;
    std::unique_ptr<BOX> allocChild(BOX& header) override;

    /// Whether the box is long enough for an identity, and has this one.
    [[nodiscard]] bool is(const Usertype& identity) const;
    /// Writes the box at the file's position, with the low 32 bits of `boxSize` as its size.
    /// Returns whether `boxSize` bytes were written; nothing is undone after a short write.
    bool write(BinFile& file) const;
    bool write(Brisa::FileIO& file) const;
    /// Replaces the content of `out` by the bytes of the box; the size is counted from the payload.
    void to_byteArray(ByteArray& out) const;

    /// A whole box, with the low 32 bits of its size.
    [[nodiscard]] static ByteArray make(const Usertype& identity, const std::string& payload);

    /// The bytes in front of the payload: a 32-bit size, "uuid" and the identity.
    static constexpr uint64_t prefixSize = 24;
    [[nodiscard]] static std::array<uint8_t, prefixSize> prefix(uint32_t size, const Usertype& identity);
};

/// Spatial-data box: `ZADT` (raw audio) and `ZATR` (the track that describes it) as children.
struct SpatialData {
    static constexpr Usertype _UUID{0x28, 0xF3, 0x11, 0xE2, 0xB7, 0x91, 0x4F, 0x6F,
                                    0x94, 0xE2, 0x4F, 0x5D, 0xEA, 0xCB, 0x3C, 0x01};
};

/// XMP packet as text.
class XMP : public UUID {
public:
    explicit XMP(const std::string& text) : UUID(text) { usertype = _UUID; }
    static constexpr Usertype _UUID{0xBE, 0x7A, 0xCF, 0xCB, 0x97, 0xA9, 0x42, 0xE8,
                                    0x9C, 0x71, 0x99, 0x94, 0x91, 0xE3, 0xAF, 0xAC};
};

/// Axis data as text.
class AXIS : public UUID {
public:
    explicit AXIS(const std::string& text) : UUID(text) { usertype = _UUID; }
    static constexpr Usertype _UUID{0x8E, 0x4E, 0x1F, 0x97, 0x81, 0xF3, 0x4D, 0x59,
                                    0x97, 0xB5, 0xFF, 0x05, 0xA2, 0x7C, 0xDB, 0x7B};
};

/// Spherical-video metadata as XML text, a child of the video track.
class SphericalXML : public UUID {
public:
    explicit SphericalXML(const std::string& text) : UUID(text) { usertype = _UUID; }
    static constexpr Usertype _UUID{0xFF, 0xCC, 0x82, 0x63, 0xF8, 0x55, 0x4A, 0x93,
                                    0x88, 0x14, 0x58, 0x7A, 0x02, 0x52, 0x1F, 0xDD};
};

// Which class stands at which path; every other box is a plain BOX. What is said of a TRAK holds in each of
// them.
//
// | path                                           | class                              |
// |------------------------------------------------|------------------------------------|
// | ftyp, mdat, moov, meta, meta.hdlr              | FTYP, MDAT, MOOV, META, HDLR       |
// | uuid, and in a TRAK: uuid                      | UUID (never XMP, AXIS, ...: is())  |
// | moov.mvhd, moov.udta                           | MVHD, UDTA                         |
// | moov.udta.loci, moov.udta.\xA9xyz              | LOCI, XYZ                          |
// | moov.trak, uuid.ZATR of spatial data           | TRAK                               |
// | in a TRAK: tkhd, mdia, mdia.mdhd, mdia.minf    | TKHD, MDIA, MDHD, MINF             |
// | mdia.minf.stbl, and in it: stsd                | STBL, STSD                         |
// | in an STBL: stts, stsc, stsz, stco, co64       | STTS, STSC, STSZ, STCO, CO64       |
// | in an STSD: sowt, avc1, avc1.avcC              | SOWT, AVC1, AVCC (MP4Box_avcc.h)   |
//
// So a `uuid` in `moov` is a plain box, and so is a `meta` in `udta`.

} // namespace MP4
