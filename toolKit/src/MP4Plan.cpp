// SPDX-License-Identifier: MIT
#include "MP4Plan.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cwchar>
#include <iterator>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"

namespace MP4 {

namespace {

using Brisa::Console;
using Brisa::FileIO;

constexpr long long growthOfEntry = sizeof(uint64_t) - sizeof(uint32_t); ///< when a table becomes `co64`
constexpr uint64_t endOfAll = ~uint64_t{0};
constexpr const wchar_t* notNested = L"the boxes to be changed do not lie within one another";

/// The first stretch that ends behind `offset`.
template <class Stretches>
auto firstBehind(const Stretches& stretches, uint64_t offset) {
    return std::upper_bound(stretches.begin(), stretches.end(), offset,
                            [](uint64_t value, const auto& stretch) { return value < stretch.to; });
}

unsigned long long ull(uint64_t number) {
    return number;
}

} // namespace

std::wstring text(const wchar_t* format, ...) {
    std::array<wchar_t, 4096> buffer{};
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vswprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return {buffer.data(), length < 0 ? std::wcslen(buffer.data()) : static_cast<size_t>(length)};
}

Objection resized(const BOX& box, long long by, uint64_t& size) {
    const bool fits = !__builtin_add_overflow(box.boxSize, by, &size) && size >= box.headerSize() &&
                      (box.largeSize || size <= UINT32_MAX);
    return fits ? Objection()
                : text(L"the size of %ls, changed by %lld, does not fit its %u bits", box.basicTag().c_str(),
                       by, box.largeSize ? 64U : 32U);
}

Moves::Stretch Moves::around(uint64_t offset) const {
    // The stretch that holds it, or the gap between two: the rest of the file.
    const auto within = [offset](const std::vector<Stretch>& stretches, bool mediaInGaps) {
        const auto found = firstBehind(stretches, offset);
        if (found != stretches.end() && found->holds(offset)) {
            return *found;
        }
        return Stretch{found == stretches.begin() ? 0 : std::prev(found)->to,
                       found == stretches.end() ? endOfAll : found->from, 0, mediaInGaps};
    };
    const Stretch place = within(kept, false);
    const Stretch kind = within(excluded, true);
    return {std::max(place.from, kind.from), std::min(place.to, kind.to), place.by,
            place.media && kind.media};
}

long long Moves::of(uint64_t offset) const {
    const auto found = firstBehind(kept, offset);
    return found != kept.end() && found->holds(offset) ? found->by : 0;
}

bool Moves::anyMedia() const {
    return std::any_of(kept.begin(), kept.end(), [this](const Stretch& stretch) {
        for (uint64_t at = stretch.from; stretch.by != 0 && at < stretch.to;) {
            const Stretch here = around(at);
            if (here.media) {
                return true;
            }
            at = here.to;
        }
        return false;
    });
}

// ---- What changes ----------------------------------------------------------------------------------

void Plan::object(Objection objection) {
    if (reason.empty()) {
        reason = std::move(objection);
    }
}

void Plan::keepOnly(uint64_t from, uint64_t to, uint64_t at) {
    stretches = {{from, to}};
    begin = at;
}

void Plan::replace(uint64_t from, uint64_t to, ByteArray bytes) {
    const uint64_t size = bytes.size();
    said.push_back({from, to, size, std::move(bytes)});
}

void Plan::replace(uint64_t from, uint64_t to, uint64_t size, Writer write) {
    said.push_back({from, to, size, std::move(write)});
}

void Plan::resize(const BOX* box, long long by) {
    for (; box != nullptr && box->depth >= 0; box = box->parent) {
        sizes[box] += by;
        const BOX* const around = box->parent;
        const bool within =
            around == nullptr || around->depth < 0
                ? box->end() <= tree.end()
                : box->offset >= around->offset + around->headerSize() && box->end() <= around->end();
        if (!within) {
            object(notNested);
        }
    }
}

void Plan::addTo(const NestedBox& parent, ByteArray bytes) {
    const uint64_t at = endOfChildren(parent);
    resize(&parent, static_cast<long long>(bytes.size()));
    replace(at, at, std::move(bytes));
}

void Plan::addTo(const NestedBox& parent, uint64_t size, Writer write) {
    const uint64_t at = endOfChildren(parent);
    resize(&parent, static_cast<long long>(size));
    replace(at, at, size, std::move(write));
}

uint64_t Plan::endOfChildren(const NestedBox& parent) {
    // Not always the end of the parent: what may follow the last child (QuickTime closes user data
    // with four zero bytes) would hide anything that comes behind it.
    const uint64_t at =
        parent.children.empty() ? parent.offset + parent.headerSize() : parent.children.back()->end();
    if (at > parent.end()) {
        object(notNested);
    }
    return at;
}

void Plan::append(ByteArray bytes) {
    appends = true;
    replace(tree.end(), tree.end(), std::move(bytes));
}

void Plan::exchange(const BOX& child, ByteArray bytes) {
    resize(child.parent, distance(child.boxSize, bytes.size()));
    if (child.parent != nullptr && child.end() > child.parent->end()) {
        object(notNested);
    }
    replace(child.offset, child.end(), std::move(bytes));
}

bool Plan::changesOnly(uint64_t from, uint64_t to) const {
    return stretches.empty() && !appends && std::all_of(said.begin(), said.end(), [&](const Change& change) {
               return from <= change.from && change.to <= to;
           });
}

bool Plan::isDropped(uint64_t offset) const {
    return std::any_of(
               said.begin(), said.end(),
               [offset](const Change& change) { return change.from <= offset && offset < change.to; }) ||
           std::none_of(stretches.begin(), stretches.end(), [offset](const Stretch& stretch) {
               return stretch.from <= offset && offset < stretch.to;
           });
}

// ---- What follows from it --------------------------------------------------------------------------

Objection Plan::complete(BinFile& file, const Pointers& pointers) {
    if (stretches.empty()) {
        keep(tree.offset, tree.end());
    }
    constexpr int patience = 3; // rounds in which only tables grow that must; then all that still move
    int round = 0;
    do {
        compute(pointers);
    } while (grow(file, pointers, ++round > patience));
    if (reason.empty()) {
        compute(pointers);
        addRecord(pointers);
        layOut();
    }
    return reason;
}

void Plan::compute(const Pointers& pointers) {
    follows.clear();
    addSizes();
    addTables(pointers);
    layOut();
    findMoves();
    object(pointers.objection(moves));
}

bool Plan::grow(BinFile& file, const Pointers& pointers, bool all) {
    if (!pointers.moveWith(moves)) {
        return false;
    }
    bool grown = false;
    for (const Pointers::Table& table : pointers.tables) {
        if (!reason.empty()) {
            return false;
        }
        if (isDropped(table.box->offset)) {
            continue;
        }
        const Pointers::Survey survey = table.survey(file, moves);
        object(survey.objection);
        if (!survey.moves) {
            continue;
        }
        unsigned& width = widths.try_emplace(table.box, table.width).first->second;
        if (width == sizeof(uint32_t) && (survey.leaves32Bits || all)) {
            // The table becomes longer, and moves what is behind it.
            width = sizeof(uint64_t);
            resize(table.box, static_cast<long long>(table.box->entryCount) * growthOfEntry);
            grown = true;
        }
    }
    return grown && reason.empty();
}

void Plan::addSizes() {
    for (const auto& [box, by] : sizes) {
        uint64_t size = 0;
        object(resized(*box, by, size));
        const unsigned width = box->largeSize ? sizeof(uint64_t) : sizeof(uint32_t);
        const uint64_t field = box->offset + (box->largeSize ? BOX::compactHeader : 0);
        follows.push_back({field, field + width, width,
                           box->largeSize ? bytesOf(size) : bytesOf(static_cast<uint32_t>(size))});
    }
}

void Plan::layOut() {
    std::vector<const Change*> changes;
    for (const auto* list : {&said, &follows}) {
        std::transform(list->begin(), list->end(), std::back_inserter(changes),
                       [](const Change& change) { return &change; });
    }
    std::stable_sort(changes.begin(), changes.end(), [](const Change* one, const Change* other) {
        return std::pair(one->from, one->to) < std::pair(other->from, other->to);
    });
    pieces.clear();
    size_t used = 0;
    uint64_t at = begin;
    const auto add = [&](uint64_t from, uint64_t size, const Change* change) {
        if (size != 0) {
            pieces.push_back({from, at, size, change});
        }
        at += size;
    };
    for (const auto& [from, to] : stretches) {
        uint64_t done = from;
        for (const Change* change : changes) {
            if (change->from < from || change->to > to) {
                continue; // not of this stretch
            }
            if (change->from < done) {
                object(notNested);
                return;
            }
            add(done, change->from - done, nullptr);
            add(change->from, change->size, change);
            done = change->to;
            ++used;
        }
        add(done, to - done, nullptr);
    }
    if (used != changes.size()) { // a change of bytes that are not kept, or only in part
        object(notNested);
    }
    length = at - begin;
}

void Plan::findMoves() {
    moves = {};
    std::vector<const Piece*> kept;
    for (const Piece& piece : pieces) {
        if (piece.change == nullptr) {
            kept.push_back(&piece);
        }
    }
    std::sort(kept.begin(), kept.end(),
              [](const Piece* one, const Piece* other) { return one->from < other->from; });
    for (const Piece* piece : kept) {
        moves.keep(piece->from, piece->from + piece->size, distance(piece->from, piece->at));
    }
    for (const auto& box : tree.children) {
        const bool describes = box->tag == fourcc("ftyp") || box->tag == fourcc("moov");
        moves.exclude(box->offset, describes ? box->end() : box->offset + box->headerSize());
    }
}

void Plan::addTables(const Pointers& pointers) {
    for (const Pointers::Table& table : pointers.tables) {
        const STCO& box = *table.box;
        const auto found = widths.find(&box);
        if (found == widths.end()) {
            continue;
        }
        const unsigned width = found->second;
        if (width != table.width) {
            const uint64_t type = box.offset + sizeof(uint32_t);
            follows.push_back({type, type + sizeof(uint32_t), sizeof(uint32_t), typeBytes(fourcc("co64"))});
        }
        follows.push_back({box.tableOffset, box.tableOffset + uint64_t{box.entryCount} * table.width,
                           uint64_t{box.entryCount} * width, Entries{&table, width}});
    }
}

void Plan::addRecord(const Pointers& pointers) {
    const BOX* const record = pointers.record;
    const Moves::Stretch stretch = moves.around(pointers.recorded);
    if (record == nullptr || isDropped(record->offset) || !stretch.media || stretch.by == 0) {
        return;
    }
    const uint64_t field = record->offset + record->headerSize();
    follows.push_back(
        {field, field + sizeof(uint64_t), sizeof(uint64_t), bytesOf(shifted(pointers.recorded, stretch.by))});
}

// ---- Carrying it out -------------------------------------------------------------------------------

std::pair<uint64_t, uint64_t> Plan::window() const {
    const auto changed = [](const Piece& piece) { return piece.change != nullptr; };
    const auto first = std::find_if(pieces.begin(), pieces.end(), changed);
    const auto last = std::find_if(pieces.rbegin(), pieces.rend(), changed);
    return first == pieces.end() ? std::pair<uint64_t, uint64_t>{0, 0}
                                 : std::pair{first->at, last->at + last->size};
}

ByteArray Plan::patched(const ByteArray& old) const {
    const auto [from, to] = window();
    ByteArray bytes(to - from);
    for (const Piece& piece : pieces) {
        if (piece.at < from || piece.at >= to) {
            continue;
        }
        const uint8_t* const source = piece.change == nullptr
                                          ? old.data() + (piece.from - from)
                                          : std::get<ByteArray>(piece.change->content).data();
        std::copy(source, source + piece.size, bytes.data() + (piece.at - from));
    }
    return bytes;
}

bool Plan::write(BinFile& file, FileIO& destination) const {
    const auto put = [&](const Piece& piece) {
        if (piece.change == nullptr) {
            return file.seek_set(piece.from) && file.copyTo(destination, piece.size) == piece.size;
        }
        if (const auto* const bytes = std::get_if<ByteArray>(&piece.change->content)) {
            return destination.writeAll(bytes->data(), bytes->size()) == bytes->size();
        }
        if (const auto* const entries = std::get_if<Entries>(&piece.change->content)) {
            return entries->table->write(file, moves, destination, entries->width);
        }
        const uint64_t before = destination.position();
        return std::get<Writer>(piece.change->content)(destination) &&
               destination.position() - before == piece.size;
    };
    return std::all_of(pieces.begin(), pieces.end(), put) && !file.failed();
}

void Plan::dump() const {
    uint64_t kept = 0;
    uint64_t moved = 0;
    for (const Piece& piece : pieces) {
        if (piece.change != nullptr) {
            const bool numbers = std::holds_alternative<Entries>(piece.change->content);
            Console::out(L"plan: at %llu: %ls%llu bytes, in the place of %llu\n", ull(piece.at),
                         numbers ? L"chunk offsets, " : L"", ull(piece.size),
                         ull(piece.change->to - piece.change->from));
            continue;
        }
        kept += piece.size;
        moved += piece.from != piece.at ? piece.size : 0;
    }
    Console::out(L"plan: %llu bytes are kept, %llu of them move\n", ull(kept), ull(moved));
}

} // namespace MP4
