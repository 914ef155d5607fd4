#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "MP4Box.h"

// What an edit of a file's structure is made of; for the container sources only.

namespace MP4 {

/// `offset` moved by a signed distance.
constexpr uint64_t shifted(uint64_t offset, long long by) {
    return static_cast<uint64_t>(static_cast<long long>(offset) + by);
}

constexpr auto makeBox = boxOf;
/// Whether a box with a 32-bit size can hold `bytes` of content; says so on standard error if not.
bool fitsBox(uint64_t bytes);

/// How far it is from `from` to `to`.
constexpr long long distance(uint64_t from, uint64_t to) {
    return static_cast<long long>(to) - static_cast<long long>(from);
}

/// Which stretches of a file move in a rewrite, and how far.
class Moves {
public:
    static constexpr uint64_t toTheEnd = std::numeric_limits<uint64_t>::max();

    /// The bytes of the old file from `from` up to `to` lie `by` bytes further in the new one.
    void add(uint64_t from, uint64_t to, long long by) { stretches.push_back({from, to, by}); }
    /// How far the byte at `offset` of the old file moves.
    [[nodiscard]] long long at(uint64_t offset) const;

    /// Every byte by the same distance.
    static Moves everything(long long by);

private:
    struct Stretch {
        uint64_t from;
        uint64_t to;
        long long by;
    };
    std::vector<Stretch> stretches;
};

/// Bytes put into a file, or in the place of others.
struct Insertion {
    uint64_t from;                       ///< offsets in the old file: the bytes from here
    uint64_t to;                         ///< up to here give way
    uint64_t size;                       ///< bytes that come in
    BOX* grown;                          ///< the innermost box whose content changes
    std::function<bool(BinFile&)> write; ///< writes exactly `size` bytes, or fails

    [[nodiscard]] long long change() const { return distance(to - from, size); }
};

/// What `write` writes, `size` bytes, as a new last child of `parent`.
Insertion asLastChild(NestedBox& parent, uint64_t size, std::function<bool(BinFile&)> write);
/// `bytes` as a new last child of `parent`. They must live until the edit is done.
Insertion asLastChild(NestedBox& parent, const ByteArray& bytes);
/// `bytes` in the place of `child`. They must live until the edit is done.
Insertion inPlaceOf(BOX& child, const ByteArray& bytes);

/// Whether the bytes from `from` up to `to` lie in the body of the box `around`, that box in the body of
/// the one around it, and so on, and the last one in a file of `length` bytes. In a damaged file they
/// need not.
bool liesWithin(uint64_t from, uint64_t to, const BOX* around, uint64_t length);

/// A box whose size changes.
struct Resizing {
    const BOX* box;
    uint64_t offset; ///< where the box lies in the file to be patched
    long long change;
};

/// Whether every size field can hold its new size; a line on standard error says which cannot.
bool canResize(const std::vector<Resizing>& boxes);
/// Writes the new sizes into the file, if all of them can be.
bool resize(BinFile& file, const std::vector<Resizing>& boxes);

/// Reads `size` bytes at `offset`; whether all of them were there.
bool readAt(BinFile& file, uint64_t offset, uint8_t* bytes, uint64_t size);
/// Writes the bytes over those at `offset`, which are put back if that fails.
bool overwrite(BinFile& file, uint64_t offset, const ByteArray& bytes);

/// Copies the bytes of `source` from `from` up to `to`; whether all of them were copied.
bool copyStretch(BinFile& source, BinFile& destination, uint64_t from, uint64_t to);

enum class Pass { check, write };

/// The chunk-offset tables of one or more tracks.
class ChunkOffsets {
public:
    /// Those of the sample tables at `path` below `top`.
    ChunkOffsets(const NestedBox& top, const std::string& path);

    [[nodiscard]] bool empty() const { return narrow.empty() && wide.empty(); }
    /// Moves every entry, in the file, along with the bytes that it points to. False, with a line on
    /// standard error and nothing written, when one of them would leave the range of its field.
    [[nodiscard]] bool shift(BinFile& file, const Moves& moves) const;
    /// Whether shift() would succeed.
    [[nodiscard]] bool canShift(BinFile& file, const Moves& moves) const;

private:
    [[nodiscard]] bool goThrough(BinFile& file, const Moves& moves, Pass pass) const;

    std::vector<const STCO*> narrow;
    std::vector<const STCO*> wide;
};

} // namespace MP4
