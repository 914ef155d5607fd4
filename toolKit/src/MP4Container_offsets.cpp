// The one place that corrects chunk offsets.

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

constexpr const char* movieTables = "moov.trak.mdia.minf.stbl";
constexpr const char* spatialTables = "uuid.ZATR.mdia.minf.stbl";

/// File offset behind the last byte that belongs to the box and to all boxes around it.
uint64_t wholeEnd(const BOX& box, uint64_t length) {
    uint64_t end = length;
    for (const BOX* around = &box; around != nullptr; around = around->parent) {
        end = std::min(end, around->end());
    }
    return end;
}

/// Shifts the entries in `block`; false when one would leave its range.
template <class Entry>
bool shiftBlock(std::vector<uint8_t>& block, const Moves& moves) {
    for (size_t i = 0; i < block.size(); i += sizeof(Entry)) {
        const auto entry = loadBigEndian<Entry>(&block[i]);
        const long long by = moves.at(entry);
        Entry moved;
        if (__builtin_add_overflow(entry, by, &moved)) {
            Brisa::Console::err(L"MP4: a chunk offset of %llu, moved by %lld, does not fit %u bits.\n",
                                static_cast<unsigned long long>(entry), by,
                                static_cast<unsigned>(8 * sizeof entry));
            return false;
        }
        storeBigEndian(&block[i], moved);
    }
    return true;
}

enum class Pass { check, write };

/// Goes through one table block by block. Entries beyond the end of the box, or of a box around it,
/// are none, whatever the count says.
template <class Entry>
bool shiftTable(BinFile& file, const STCO& table, const Moves& moves, Pass pass) {
    constexpr uint64_t blockBytes = 65536;
    const uint64_t end = wholeEnd(table, file.length());
    const uint64_t room = end > table.tableOffset ? (end - table.tableOffset) / sizeof(Entry) : 0;
    const uint64_t bytes = std::min<uint64_t>(table.entryCount, room) * sizeof(Entry);

    std::vector<uint8_t> block;
    for (uint64_t done = 0; done < bytes; done += block.size()) {
        block.resize(std::min(blockBytes, bytes - done));
        if (!file.seek_set(table.tableOffset + done) ||
            file.readAll(block.data(), block.size()) != block.size() || !shiftBlock<Entry>(block, moves)) {
            return false;
        }
        if (pass == Pass::write && (!file.seek_set(table.tableOffset + done) ||
                                    file.writeAll(block.data(), block.size()) != block.size())) {
            return false;
        }
    }
    return !file.failed(); // or the end of the table is not what it seemed to be
}

} // namespace

long long Moves::at(uint64_t offset) const {
    const auto stretch = std::find_if(stretches.begin(), stretches.end(), [offset](const Stretch& candidate) {
        return candidate.from <= offset && (offset < candidate.to || candidate.to == toTheEnd);
    });
    return stretch == stretches.end() ? 0 : stretch->by;
}

Moves Moves::everything(long long by) {
    Moves moves;
    moves.add(0, toTheEnd, by);
    return moves;
}

ChunkOffsets::ChunkOffsets(const NestedBox& top, const std::string& path) {
    const auto collectInto = [](std::vector<const STCO*>& tables) {
        return [&tables](const BOX& box) {
            tables.push_back(static_cast<const STCO*>(&box));
            return true;
        };
    };
    top.find((path + ".stco").c_str(), collectInto(narrow));
    top.find((path + ".co64").c_str(), collectInto(wide));
}

bool ChunkOffsets::shift(BinFile& file, const Moves& moves) const {
    const auto go = [&](Pass pass) {
        return std::all_of(
                   narrow.begin(), narrow.end(),
                   [&](const STCO* table) { return shiftTable<uint32_t>(file, *table, moves, pass); }) &&
               std::all_of(wide.begin(), wide.end(), [&](const STCO* table) {
                   return shiftTable<uint64_t>(file, *table, moves, pass);
               });
    };
    return go(Pass::check) && go(Pass::write);
}

template <class Table, class Entry>
bool modifyIndex(BinFile& file, BOX& table, long long change) {
    const auto& entries = static_cast<const Table&>(table);
    const Moves moves = Moves::everything(change);
    return shiftTable<Entry>(file, entries, moves, Pass::check) &&
           shiftTable<Entry>(file, entries, moves, Pass::write);
}

template bool modifyIndex<STCO, unsigned int>(BinFile&, BOX&, long long);
template bool modifyIndex<CO64, unsigned long long>(BinFile&, BOX&, long long);

bool Container::modifySTCOIndex(BinFile& file, long long change) {
    return modifySTCOIndexImpl(movieTables, file, change);
}

bool Container::modifySpatialTrakSTCOIndex(BinFile& file, long long change) {
    return modifySTCOIndexImpl(spatialTables, file, change);
}

bool Container::modifySTCOIndexImpl(const std::string& sampleTablePath, BinFile& file, long long change) {
    if (root == nullptr) {
        return false;
    }
    const ChunkOffsets offsets(*root, sampleTablePath);
    return !offsets.empty() && offsets.shift(file, Moves::everything(change));
}

bool Container::correctOffsets(Container& written, BinFile& file, const Moves& moves,
                               bool everyChunkMoves) const {
    if (!everyChunkMoves) {
        const ChunkOffsets offsets(*written.root, movieTables);
        return !offsets.empty() && offsets.shift(file, moves);
    }
    const long long by = mdat != nullptr ? moves.at(mdat->offset) : 0;
    return by == 0 || written.modifySTCOIndex(file, by);
}

} // namespace MP4
