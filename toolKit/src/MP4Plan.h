// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "MP4Box.h"

// An edit as a value: settled before a byte is written. For the container sources only.

namespace MP4 {

/// How far it is from `from` to `to`.
constexpr long long distance(uint64_t from, uint64_t to) {
    return static_cast<long long>(to) - static_cast<long long>(from);
}

/// `offset` moved by a signed distance.
constexpr uint64_t shifted(uint64_t offset, long long by) {
    return static_cast<uint64_t>(static_cast<long long>(offset) + by);
}

/// Why something cannot be done, for a person; empty if it can.
using Objection = std::wstring;

/// A text formatted as Console::out() does.
std::wstring text(const wchar_t* format, ...);

/// The size of a box after a change by `by`; why its field cannot hold that.
Objection resized(const BOX& box, long long by, uint64_t& size);

/// Which bytes of a file lie where after an edit.
class Moves {
public:
    /// A stretch of the old file that moves as one.
    struct Stretch {
        uint64_t from;
        uint64_t to;
        long long by;
        bool media; ///< whether media data may lie there
        [[nodiscard]] bool holds(uint64_t offset) const { return from <= offset && offset < to; }
    };

    /// The bytes from `from` up to `to` are kept, and lie `by` bytes further. In the order of the old file.
    void keep(uint64_t from, uint64_t to, long long by) { kept.push_back({from, to, by, true}); }
    /// No media data can lie here: the header of a box, or a box that describes. In the order of the file.
    void exclude(uint64_t from, uint64_t to) { excluded.push_back({from, to, 0, false}); }

    /// The longest stretch around `offset` that moves as one. What does not stay in the file moves by 0.
    [[nodiscard]] Stretch around(uint64_t offset) const;
    /// How far the byte at `offset` moves, whatever it is.
    [[nodiscard]] long long of(uint64_t offset) const;
    /// Whether a byte that may be media data moves.
    [[nodiscard]] bool anyMedia() const;

private:
    std::vector<Stretch> kept;
    std::vector<Stretch> excluded;
};

/// All that points into the file by absolute offsets: found once, before an edit is settled.
struct Pointers {
    /// What an edit does to the entries of a table.
    struct Survey {
        bool moves = false; ///< whether an entry changes
        bool leaves32Bits = false;
        Objection objection;
    };
    /// The chunk offsets of a track, in the file.
    struct Table {
        const STCO* box;
        unsigned width; ///< bytes of an entry
        uint64_t home;  ///< an entry that points to nothing that could be media moves as the byte here does

        [[nodiscard]] Survey survey(BinFile& file, const Moves& moves) const;
        /// Writes all entries, moved, each `newWidth` bytes wide; whether it did.
        bool write(BinFile& file, const Moves& moves, Brisa::FileIO& destination, unsigned newWidth) const;
        /// The same of `count` entries in memory.
        void shift(const Moves& moves, const uint8_t* from, uint8_t* to, unsigned newWidth,
                   uint64_t count) const;
    };
    /// Offsets that the toolkit cannot correct.
    struct Fixed {
        std::wstring holder; ///< the box that holds them
        std::vector<uint64_t> offsets;
    };

    std::vector<Table> tables;
    std::vector<Fixed> fixed;
    uint64_t home = 0;               ///< where the media begin: see Table::home
    std::vector<uint64_t> fragments; ///< where `moof` and `mdat` boxes begin, in a file that has a `moof`
    Objection damage;                ///< why there may be more that points into the media data
    const BOX* record = nullptr;     ///< the `ZDT9` box, if it has room for its record
    uint64_t recorded = 0;           ///< the offset that it holds

    /// Whether media data moves, or what stands for it where no box holds any.
    [[nodiscard]] bool moveWith(const Moves& moves) const { return moves.anyMedia() || moves.of(home) != 0; }
    /// Whether one of them points to a byte from `from` up to `to`.
    [[nodiscard]] bool pointInto(BinFile& file, uint64_t from, uint64_t to) const;
    /// Why these moves would leave something pointing to the wrong place.
    [[nodiscard]] Objection objection(const Moves& moves) const;
};

/// Everything in the file whose tree this is.
Pointers pointersOf(const NestedBox& root, BinFile& file);

/// What a new file is made of: stretches of the old one in a new order, bytes that take the place of others,
/// and the numbers that follow from it: box sizes and offsets.
///
/// Made by saying what changes; completed once, which finds all that could refuse it; then written, in one
/// forward pass that parses nothing, seeks only in the old file and asks nothing.
class Plan {
public:
    /// Writes what was promised; whether it did.
    using Writer = std::function<bool(Brisa::FileIO&)>;

    /// Of the file that `tree` describes.
    explicit Plan(const NestedBox& tree_) : tree(tree_) {}
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;

    /// The next bytes of the new file are those of the old one from `from` up to `to`. Of a plan that says
    /// nothing of the kind, all of them in their order.
    void keep(uint64_t from, uint64_t to) { stretches.push_back({from, to}); }
    /// Instead of all that was to be kept: only this, for a place at `at`.
    void keepOnly(uint64_t from, uint64_t to, uint64_t at);
    /// The bytes from `from` up to `to` give way; with `from` equal to `to`, something comes in.
    void replace(uint64_t from, uint64_t to, ByteArray bytes);
    void replace(uint64_t from, uint64_t to, uint64_t size, Writer write);
    /// The sizes of `box` and of every one around it change by `by`. A change of 0 gives an open-ended box
    /// its size.
    void resize(const BOX* box, long long by);

    /// A new last child.
    void addTo(const NestedBox& parent, ByteArray bytes);
    void addTo(const NestedBox& parent, uint64_t size, Writer write);
    /// Behind all that the tree describes; to be said last.
    void append(ByteArray bytes);
    /// `bytes` in the place of a box.
    void exchange(const BOX& child, ByteArray bytes);

    /// Computes sizes and offsets; tables whose entries no longer fit 32 bits become `co64`, and then all is
    /// computed again. Why it cannot be done, or nothing. `pointers` and the tree must outlive the plan.
    Objection complete(BinFile& file, const Pointers& pointers);

    /// Of a completed plan.
    [[nodiscard]] uint64_t size() const { return length; }
    /// Where the byte at `offset` of the old file lies in the new one.
    [[nodiscard]] uint64_t newPlaceOf(uint64_t offset) const { return shifted(offset, moves.of(offset)); }
    /// Whether all that is said to change lies from `from` up to `to`.
    [[nodiscard]] bool changesOnly(uint64_t from, uint64_t to) const;
    /// The stretch of the new file outside which nothing differs from an old file of the same length.
    [[nodiscard]] std::pair<uint64_t, uint64_t> window() const;
    /// Writes the new file at the destination's position; whether all of it was written.
    bool write(BinFile& file, Brisa::FileIO& destination) const;
    /// The bytes of the window in the new file, from those of the old one; of a plan without pointers, all of
    /// whose new bytes are in memory.
    [[nodiscard]] ByteArray patched(const ByteArray& old) const;
    /// Prints what is kept, what comes in and what moves, in a few lines.
    void dump() const;

private:
    struct Stretch {
        uint64_t from;
        uint64_t to;
    };
    /// The entries of a table, moved on their way.
    struct Entries {
        const Pointers::Table* table;
        unsigned width; ///< bytes of an entry in the new file
    };
    struct Change {
        uint64_t from;
        uint64_t to;
        uint64_t size;
        std::variant<ByteArray, Writer, Entries> content;
    };
    struct Piece {
        uint64_t from;        ///< where it lies in the old file
        uint64_t at;          ///< where it lies in the new one
        uint64_t size;        ///< in the new file
        const Change* change; ///< null: kept
    };
    void object(Objection objection);
    uint64_t endOfChildren(const NestedBox& parent);
    void compute(const Pointers& pointers);
    /// Looks at the tables; whether one of them turns out to change, so that all is to be computed again.
    bool grow(BinFile& file, const Pointers& pointers, bool all);
    void addSizes();
    void addTables(const Pointers& pointers);
    void addRecord(const Pointers& pointers);
    void layOut();
    void findMoves();
    [[nodiscard]] bool isDropped(uint64_t offset) const;

    const NestedBox& tree;
    bool appends = false; ///< whether the file gets something behind its last box
    uint64_t begin = 0;   ///< where the first byte will lie
    std::vector<Stretch> stretches;
    std::deque<Change> said;    ///< what the edit asks for
    std::deque<Change> follows; ///< numbers that follow from it
    std::map<const BOX*, long long> sizes;
    std::map<const STCO*, unsigned> widths; ///< of tables that change: bytes of an entry in the new file
    std::vector<Piece> pieces;
    Moves moves;
    uint64_t length = 0;
    Objection reason;
};

} // namespace MP4
