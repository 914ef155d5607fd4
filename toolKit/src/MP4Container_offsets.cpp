// The one place that knows what points into the media data, and corrects it.

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

constexpr const char* movieTables = "moov.trak.mdia.minf.stbl";
constexpr const char* spatialTables = "uuid.ZATR.mdia.minf.stbl";

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

/// Goes through one table block by block. False when its count promises more entries than its box, and
/// every box around it, has room for.
template <class Entry>
bool shiftTable(BinFile& file, const STCO& table, const Moves& moves, Pass pass) {
    constexpr uint64_t blockBytes = 65536;
    const uint64_t end = table.wholeEnd(file.length());
    const uint64_t bytes = table.entryCount * sizeof(Entry);
    if (table.tableOffset > end || bytes > end - table.tableOffset) {
        Brisa::Console::err(L"MP4: %ls has no room for its %u entries.\n", table.basicTag().c_str(),
                            table.entryCount);
        return false;
    }
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
    return true;
}

/// How deep a box of this type lies on the way from `moov` to the chunk offsets; 0 if it does not.
size_t levelOf(uint32_t tag) {
    switch (tag) {
    case fourcc("trak"):
        return 1;
    case fourcc("mdia"):
        return 2;
    case fourcc("minf"):
        return 3;
    case fourcc("stbl"):
        return 4;
    case fourcc("stco"):
    case fourcc("co64"):
        return 5;
    default:
        return 0;
    }
}

/// Whether a box on that way is as it should be: its children fill it, but for less than a header, and
/// those of the way are in the right place.
bool isSound(const NestedBox& box) {
    const size_t inside = levelOf(box.tag) + 1;
    const uint64_t reached =
        box.children.empty() ? box.offset + box.headerSize() : box.children.back()->end();
    const bool inPlace = std::all_of(box.children.begin(), box.children.end(), [inside](const auto& child) {
        return levelOf(child->tag) == 0 || levelOf(child->tag) == inside;
    });
    const bool hasTable =
        box.tag != fourcc("stbl") || box.first("stco") != nullptr || box.first("co64") != nullptr;
    return reached <= box.end() && box.end() - reached < BOX::compactHeader && inPlace && hasTable;
}

/// Whether all that points into the media data is known. A box that ends too soon or too late, or holds
/// what belongs elsewhere, may hide a table from this reader and not from another.
bool pointersAreKnown(const NestedBox& root) {
    for (const char* const path : {"meta.iloc", "moov.trak.mdia.minf.stbl.saio"}) {
        if (const BOX* const other = root.first(path)) {
            Brisa::Console::err(L"MP4: %ls holds offsets that cannot be corrected.\n",
                                other->basicTag().c_str());
            return false;
        }
    }
    const BOX* damaged = nullptr;
    for (const char* const path :
         {"moov", "moov.trak", "moov.trak.mdia", "moov.trak.mdia.minf", movieTables}) {
        root.find(path, [&damaged](const BOX& box) {
            damaged = isSound(static_cast<const NestedBox&>(box)) ? damaged : &box;
            return true;
        });
    }
    if (damaged != nullptr) {
        Brisa::Console::err(L"MP4: %ls is damaged: not all that points to the media data can be found.\n",
                            damaged->basicTag().c_str());
    }
    return damaged == nullptr;
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

bool ChunkOffsets::canShift(BinFile& file, const Moves& moves) const {
    return goThrough(file, moves, Pass::check);
}

bool ChunkOffsets::shift(BinFile& file, const Moves& moves) const {
    return goThrough(file, moves, Pass::check) && goThrough(file, moves, Pass::write);
}

bool ChunkOffsets::goThrough(BinFile& file, const Moves& moves, Pass pass) const {
    return std::all_of(narrow.begin(), narrow.end(),
                       [&](const STCO* table) { return shiftTable<uint32_t>(file, *table, moves, pass); }) &&
           std::all_of(wide.begin(), wide.end(),
                       [&](const STCO* table) { return shiftTable<uint64_t>(file, *table, moves, pass); });
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

bool Container::mediaMovesAsOne(const Moves& moves) const {
    return std::all_of(root->children.begin(), root->children.end(), [&](const auto& box) {
        return box->tag != fourcc("mdat") || moves.at(box->offset) == moves.at(mdat->offset);
    });
}

bool Container::movesFragments(const Moves& moves) const {
    const auto& boxes = root->children;
    const bool moved =
        std::any_of(boxes.begin(), boxes.end(), [](const auto& box) { return box->tag == fourcc("moof"); }) &&
        std::any_of(boxes.begin(), boxes.end(), [&](const auto& box) {
            return (box->tag == fourcc("moof") || box->tag == fourcc("mdat")) && moves.at(box->offset) != 0;
        });
    if (moved) {
        Brisa::Console::err(L"MP4: %ls has movie fragments, which must stay where they are.\n", path.c_str());
    }
    return moved;
}

bool Container::mayMove(const Moves& moves, bool everyChunkMoves) const {
    bool may = false;
    open([&](Brisa::FileIO& handle) {
        BinFile file(handle);
        const bool mediaMoves = !mediaMovesAsOne(moves) || (mdat != nullptr && moves.at(mdat->offset) != 0);
        may = describesAll(handle) && !movesFragments(moves) &&
              (!mediaMoves ||
               (pointersAreKnown(*root) &&
                ChunkOffsets(*root, movieTables)
                    .canShift(file, everyChunkMoves ? Moves::everything(moves.at(mdat->offset)) : moves)));
    });
    return may;
}

bool Container::correctOffsets(Container& written, BinFile& file, const Moves& moves,
                               bool everyChunkMoves) const {
    const long long by = mdat != nullptr ? moves.at(mdat->offset) : 0;
    bool corrected = true;
    if (!everyChunkMoves) {
        const ChunkOffsets offsets(*written.root, movieTables);
        corrected = !offsets.empty() && offsets.shift(file, moves);
    } else if (by != 0) {
        corrected = written.modifySTCOIndex(file, by);
    }
    return corrected && correctSpatialOffsets(written, file, moves);
}

} // namespace MP4
