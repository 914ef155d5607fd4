// SPDX-License-Identifier: MIT
// The one place that knows what points into the media data, and corrects it.

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"
#include "MP4Plan.h"

namespace MP4 {

namespace {

using Brisa::FileIO;

constexpr const char* movieTables = "moov.trak.mdia.minf.stbl";
constexpr const char* spatialTables = "uuid.ZATR.mdia.minf.stbl";
constexpr uint64_t blockBytes = 65536;

// ---- The entries of a table ------------------------------------------------------------------------

/// Tells where the entries of one table point after an edit.
class Shifter {
public:
    Shifter(const Pointers::Table& table, const Moves& moves_)
        : otherwise(moves_.of(table.home)), moves(moves_) {}

    /// False when the sum does not fit 64 bits.
    bool operator()(uint64_t entry, uint64_t& moved) {
        if (!stretch.holds(entry)) {
            stretch = moves.around(entry);
        }
        return !__builtin_add_overflow(entry, stretch.media ? stretch.by : otherwise, &moved);
    }

private:
    const long long otherwise;
    const Moves& moves;
    Moves::Stretch stretch{0, 0, 0, false};
};

Objection doesNotFit(unsigned width) {
    return text(L"a chunk offset, moved, does not fit %u bits", 8 * width);
}

uint64_t load(const uint8_t* bytes, unsigned width) {
    return width == sizeof(uint32_t) ? loadBigEndian<uint32_t>(bytes) : loadBigEndian<uint64_t>(bytes);
}

void store(uint8_t* bytes, unsigned width, uint64_t value) {
    width == sizeof(uint32_t) ? storeBigEndian(bytes, static_cast<uint32_t>(value))
                              : storeBigEndian(bytes, value);
}

/// Hands the entries of a table, block by block, to `work`, with the offset and the length of the block,
/// until it says no.
template <class Work>
bool forEachBlock(BinFile& file, const Pointers::Table& table, Work work) {
    const uint64_t bytes = uint64_t{table.box->entryCount} * table.width;
    ByteArray block(std::min(bytes, blockBytes));
    for (uint64_t done = 0; done < bytes; done += block.size()) {
        const uint64_t offset = table.box->tableOffset + done;
        const uint64_t size = std::min<uint64_t>(bytes - done, block.size());
        if (!readAt(file, offset, block.data(), size) || !work(block.data(), offset, size)) {
            return false;
        }
    }
    return true;
}

// ---- What stands in a file -------------------------------------------------------------------------

/// Calls `work` for the box headers from `from` up to `to`, of any type, as far as they follow one another.
template <class Work>
void forEachHeader(BinFile& file, uint64_t from, uint64_t to, Work work) {
    file.limit = to;
    while (to > from && to - from >= BOX::compactHeader && file.seek_set(from)) {
        const BOX box(file, 0, nullptr);
        if (box.tag == 0 || box.boxSize < box.headerSize() || box.end() > to) {
            return;
        }
        work(box);
        file.limit = to;
        from = box.end();
    }
}

/// The offsets that a `saio` box (ISO/IEC 14496-12 8.7.9) holds; false when it has no room for them.
bool readAuxiliaryOffsets(BinFile& file, std::vector<uint64_t>& offsets) {
    const bool wide = file.read8() != 0;
    const bool typed = (file.read8() << 16 | file.read16()) % 2 == 1;
    file.seek_cur(typed ? 8 : 0);
    const uint64_t count = file.read32();
    if (!file.fits(count * (wide ? sizeof(uint64_t) : sizeof(uint32_t)))) {
        return false;
    }
    for (uint64_t i = 0; i < count; ++i) {
        offsets.push_back(wide ? file.read64() : file.read32());
    }
    return true;
}

/// The file offsets that an `iloc` box (ISO/IEC 14496-12 8.11.3) holds; false when it has no room for them.
bool readItemLocations(BinFile& file, std::vector<uint64_t>& offsets) {
    const uint8_t version = file.read8();
    file.seek_cur(3);
    const uint16_t sizes = file.read16();
    const auto number = [&](unsigned width) -> uint64_t {
        return width == 8 ? file.read64() : width == 4 ? file.read32() : 0;
    };
    const unsigned offsetBytes = sizes >> 12;
    const unsigned lengthBytes = sizes >> 8 & 0xF;
    const unsigned baseBytes = sizes >> 4 & 0xF;
    const unsigned indexBytes = version == 0 ? 0 : sizes & 0xF;
    const uint64_t extentBytes = indexBytes + offsetBytes + lengthBytes;
    const uint32_t items = version < 2 ? file.read16() : file.read32();
    for (uint32_t i = 0; i < items; ++i) {
        if (!file.fits(6)) {
            return false;
        }
        file.seek_cur(version < 2 ? 2 : 4); // the item
        const bool inFile = version == 0 || (file.read16() & 0xF) == 0;
        const bool here = file.read16() == 0; // not in another file that the data references name
        const uint64_t base = number(baseBytes);
        const uint64_t extents = file.read16();
        if (!file.fits(extents * extentBytes)) {
            return false;
        }
        for (uint64_t j = 0; j < (extentBytes != 0 ? extents : std::min<uint64_t>(extents, 1)); ++j) {
            number(indexBytes);
            const uint64_t extent = number(offsetBytes);
            number(lengthBytes);
            if (inFile && here) {
                offsets.push_back(base + extent);
            }
        }
    }
    return true;
}

Objection damagedText(const BOX& box) {
    return text(L"%ls is damaged: not all that points to the media data can be found",
                box.basicTag().c_str());
}

/// Finds, at any level, the boxes whose offsets cannot be corrected.
void collectFixed(BinFile& file, uint64_t from, uint64_t to, int level, Pointers& pointers) {
    constexpr int deepest = 8;
    const auto collect = [&](const BOX& box, bool (*read)(BinFile&, std::vector<uint64_t>&)) {
        pointers.fixed.push_back({box.basicTag(), {}});
        if (!read(file, pointers.fixed.back().offsets)) {
            pointers.damage = damagedText(box);
        }
    };
    forEachHeader(file, from, to, [&](const BOX& box) {
        uint64_t body = box.offset + box.headerSize();
        file.limit = box.end();
        switch (box.tag) {
        case fourcc("saio"):
            collect(box, readAuxiliaryOffsets);
            return;
        case fourcc("iloc"):
            collect(box, readItemLocations);
            return;
        case fourcc("meta"): // with a version and flags; QuickTime's has none
            file.seek_set(body + sizeof(uint32_t));
            body += file.read32() == inOrder<std::endian::big>(fourcc("hdlr")) ? 0 : sizeof(uint32_t);
            break;
        case fourcc("moov"):
        case fourcc("trak"):
        case fourcc("mdia"):
        case fourcc("minf"):
        case fourcc("stbl"):
        case fourcc("udta"):
            break;
        default:
            return;
        }
        if (level < deepest) {
            collectFixed(file, body, box.end(), level + 1, pointers);
        }
    });
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

/// Whether all bytes are zero, as those are that pad a box.
bool isPadding(BinFile& file, uint64_t from, uint64_t to, uint64_t& budget) {
    ByteArray block(std::min(to - from, blockBytes));
    for (; from < to; from += block.size()) {
        const uint64_t size = std::min<uint64_t>(to - from, block.size());
        if (budget < size || !readAt(file, from, block.data(), size) ||
            std::any_of(block.begin(), block.begin() + size, [](uint8_t byte) { return byte != 0; })) {
            return false;
        }
        budget -= size;
    }
    return true;
}

/// Whether a box on that way can hide no chunk offsets from this reader that another one would find: its
/// children fill it, but for padding or less than a header, and no box of the way lies at a wrong level.
bool isSound(const NestedBox& box, BinFile& file, uint64_t& budget) {
    const size_t inside = levelOf(box.tag) + 1;
    const uint64_t reached =
        box.children.empty() ? box.offset + box.headerSize() : box.children.back()->end();
    const bool inPlace = std::all_of(box.children.begin(), box.children.end(), [inside](const auto& child) {
        return levelOf(child->tag) == 0 || levelOf(child->tag) == inside;
    });
    return reached <= box.end() && inPlace &&
           (box.end() - reached < BOX::compactHeader || isPadding(file, reached, box.end(), budget));
}

Objection damageOf(const NestedBox& root, BinFile& file) {
    const BOX* damaged = nullptr;
    uint64_t budget = file.length();
    for (const char* const path :
         {"moov", "moov.trak", "moov.trak.mdia", "moov.trak.mdia.minf", movieTables}) {
        root.find(path, [&](const BOX& box) {
            damaged = isSound(static_cast<const NestedBox&>(box), file, budget) ? damaged : &box;
            return true;
        });
    }
    return damaged == nullptr ? Objection() : damagedText(*damaged);
}

/// Of each data reference of a track (ISO/IEC 14496-12 8.7.2), whether it names this file.
std::vector<bool> dataReferences(const NestedBox& mediaInformation, BinFile& file) {
    std::vector<bool> isHere;
    const auto read = [&](const BOX& reference) {
        file.limit = reference.end();
        isHere.push_back(file.read32() % 2 == 1); // its flags
    };
    if (const BOX* const dinf = mediaInformation.first("dinf")) {
        forEachHeader(file, dinf->offset + dinf->headerSize(), dinf->end(), [&](const BOX& box) {
            if (box.tag == fourcc("dref")) {
                forEachHeader(file, box.offset + box.headerSize() + 8, box.end(), read);
            }
        });
    }
    return isHere;
}

enum class Place { here, elsewhere, unknown };

/// Where the media data of a track lies. Where its data references differ, its sample entries tell.
Place placeOf(const NestedBox& mediaInformation, const NestedBox& sampleTable, BinFile& file) {
    const std::vector<bool> isHere = dataReferences(mediaInformation, file);
    if (std::find(isHere.begin(), isHere.end(), false) == isHere.end()) { // or there is no reference
        return Place::here;
    }
    if (std::find(isHere.begin(), isHere.end(), true) == isHere.end()) {
        return Place::elsewhere;
    }
    std::vector<Place> places;
    sampleTable.find("stsd", [&](const BOX& descriptions) {
        for (const auto& entry : static_cast<const STSD&>(descriptions).children) {
            file.limit = entry->end();
            file.seek_set(entry->offset + entry->headerSize() + 6);
            const size_t reference = file.read16();
            const bool known = reference >= 1 && reference <= isHere.size();
            places.push_back(!known                  ? Place::unknown
                             : isHere[reference - 1] ? Place::here
                                                     : Place::elsewhere);
        }
        return true;
    });
    const bool same = !places.empty() && std::all_of(places.begin(), places.end(),
                                                     [&](Place place) { return place == places.front(); });
    return same ? places.front() : Place::unknown;
}

void addTables(const NestedBox& sampleTable, uint64_t home, Pointers& pointers) {
    for (const auto& child : sampleTable.children) {
        const bool wide = child->tag == fourcc("co64");
        if (wide || child->tag == fourcc("stco")) {
            pointers.tables.push_back(
                {.box = static_cast<const STCO*>(child.get()), .width = wide ? 8U : 4U, .home = home});
        }
    }
}

void collectTables(const NestedBox& root, BinFile& file, Pointers& pointers) {
    const BOX* const media = root.first("mdat");
    pointers.home = media != nullptr        ? media->offset
                    : root.children.empty() ? 0
                                            : root.children.back()->end();
    root.find("moov.trak.mdia.minf", [&](const BOX& box) {
        const auto& information = static_cast<const NestedBox&>(box);
        information.find("stbl", [&](const BOX& stbl) {
            const auto& sampleTable = static_cast<const NestedBox&>(stbl);
            const Place place = placeOf(information, sampleTable, file);
            if (place == Place::unknown && pointers.damage.empty()) {
                pointers.damage = text(L"%ls: its samples lie in several files", stbl.basicTag().c_str());
            }
            if (place != Place::elsewhere) {
                addTables(sampleTable, pointers.home, pointers);
            }
            return true;
        });
        return true;
    });
    for (const auto& box : root.children) {
        if (isSpatial(*box)) {
            pointersOfBlock(static_cast<const NestedBox&>(*box), pointers);
        }
    }
}

/// Shifts every entry in the file; false, with nothing written, when one would leave its range.
bool shiftInPlace(BinFile& file, const std::vector<Pointers::Table>& tables, long long change) {
    Moves moves;
    moves.keep(0, ~uint64_t{0}, change);
    for (const Pointers::Table& table : tables) {
        const Pointers::Survey survey = table.survey(file, moves);
        if (!survey.objection.empty() || survey.leaves32Bits) {
            Brisa::Console::err(L"MP4: %ls.\n", survey.objection.empty() ? doesNotFit(table.width).c_str()
                                                                         : survey.objection.c_str());
            return false;
        }
    }
    return std::all_of(tables.begin(), tables.end(), [&](const Pointers::Table& table) {
        return forEachBlock(file, table, [&](uint8_t* block, uint64_t offset, uint64_t size) {
            table.shift(moves, block, block, table.width, size / table.width);
            return file.seek_set(offset) && file.writeAll(block, size) == size;
        });
    });
}

} // namespace

Pointers::Survey Pointers::Table::survey(BinFile& file, const Moves& moves) const {
    Survey survey;
    const uint64_t bytes = uint64_t{box->entryCount} * width;
    const uint64_t end = box->endWithin(file.length());
    if (box->tableOffset > end || bytes > end - box->tableOffset) {
        survey.objection =
            text(L"%ls has no room for its %u entries", box->basicTag().c_str(), box->entryCount);
        return survey;
    }
    Shifter shifted(*this, moves);
    const bool read = forEachBlock(file, *this, [&](const uint8_t* block, uint64_t, uint64_t size) {
        for (uint64_t i = 0; i < size; i += width) {
            const uint64_t entry = load(block + i, width);
            uint64_t moved;
            if (!shifted(entry, moved)) {
                survey.objection = doesNotFit(width);
                return false;
            }
            survey.moves = survey.moves || moved != entry;
            survey.leaves32Bits = survey.leaves32Bits || (moved > UINT32_MAX && width == sizeof(uint32_t));
        }
        return true;
    });
    if (!read && survey.objection.empty()) {
        survey.objection = text(L"%ls cannot be read", box->basicTag().c_str());
    }
    return survey;
}

void Pointers::Table::shift(const Moves& moves, const uint8_t* from, uint8_t* to, unsigned newWidth,
                            uint64_t count) const {
    Shifter shifted(*this, moves);
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t moved = 0;
        shifted(load(from + i * width, width), moved);
        store(to + i * newWidth, newWidth, moved);
    }
}

bool Pointers::Table::write(BinFile& file, const Moves& moves, FileIO& destination, unsigned newWidth) const {
    ByteArray moved(blockBytes / width * newWidth);
    return forEachBlock(file, *this, [&](const uint8_t* block, uint64_t, uint64_t size) {
        const uint64_t count = size / width;
        shift(moves, block, moved.data(), newWidth, count);
        return destination.writeAll(moved.data(), count * newWidth) == count * newWidth;
    });
}

Objection Pointers::objection(const Moves& moves) const {
    const bool fragmentMoves = std::any_of(fragments.begin(), fragments.end(),
                                           [&](uint64_t offset) { return moves.of(offset) != 0; });
    if (fragmentMoves) {
        return L"the movie fragments must stay where they are";
    }
    for (const Fixed& pointers : fixed) {
        for (const uint64_t offset : pointers.offsets) {
            if (moves.of(offset) != 0) {
                return text(L"%ls holds offsets that cannot be corrected", pointers.holder.c_str());
            }
        }
    }
    return moveWith(moves) ? damage : Objection();
}

bool Pointers::pointInto(BinFile& file, uint64_t from, uint64_t to) const {
    const auto within = [from, to](uint64_t offset) { return from <= offset && offset < to; };
    for (const Fixed& pointers : fixed) {
        if (std::any_of(pointers.offsets.begin(), pointers.offsets.end(), within)) {
            return true;
        }
    }
    return std::any_of(tables.begin(), tables.end(), [&](const Table& table) {
        const auto pointsElsewhere = [&](const uint8_t* block, uint64_t, uint64_t size) {
            for (uint64_t at = 0; at < size; at += table.width) {
                if (within(load(block + at, table.width))) {
                    return false;
                }
            }
            return true;
        };
        return !forEachBlock(file, table, pointsElsewhere); // where it cannot be read it might
    });
}

void pointersOfBlock(const NestedBox& block, Pointers& pointers) {
    block.find("ZATR.mdia.minf.stbl", [&](const BOX& box) {
        // The block's size may change, and its type; the identity behind them stands for where it lies.
        addTables(static_cast<const NestedBox&>(box), block.offset + block.headerSize(), pointers);
        return true;
    });
}

Pointers pointersOf(const NestedBox& root, BinFile& file) {
    Pointers pointers;
    for (const auto& box : root.children) {
        if (box->tag == fourcc("moov") || box->tag == fourcc("meta")) {
            collectFixed(file, box->offset, std::min(box->end(), file.length()), 0, pointers);
        }
    }
    if (root.first("moof") != nullptr) {
        for (const auto& box : root.children) {
            if (box->tag == fourcc("moof") || box->tag == fourcc("mdat")) {
                pointers.fragments.push_back(box->offset);
            }
        }
    }
    if (pointers.damage.empty()) {
        pointers.damage = damageOf(root, file);
    }
    collectTables(root, file, pointers);
    file.limit = ~uint64_t{0};
    pointers.record = recordOfSound(root);
    if (pointers.record != nullptr &&
        file.seek_set(pointers.record->offset + pointers.record->headerSize())) {
        pointers.recorded = file.read64();
    }
    return pointers;
}

template <class Table, class Entry>
bool modifyIndex(BinFile& file, BOX& table, long long change) {
    return shiftInPlace(file, {{.box = static_cast<const Table*>(&table), .width = sizeof(Entry), .home = 0}},
                        change);
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
    Pointers pointers;
    root->find(sampleTablePath.c_str(), [&](const BOX& box) {
        if (box.hasChild()) {
            addTables(static_cast<const NestedBox&>(box), 0, pointers);
        }
        return true;
    });
    return !pointers.tables.empty() && shiftInPlace(file, pointers.tables, change);
}

} // namespace MP4
