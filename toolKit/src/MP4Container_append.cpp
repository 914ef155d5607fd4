// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::Console;
using Brisa::FileIO;

/// The end of a file as a reader sees it that walks the top-level boxes.
struct Tail {
    uint64_t length = 0; ///< where the next box goes
    const BOX* last = nullptr;
    bool openEnded = false; ///< whether the last box has a size field of 0
    bool leftover = false;  ///< whether a `free` box that is cut off lies behind that
};

/// A leftover of an append that did not come to its end.
bool isLeftover(const BOX& box, uint64_t length) {
    return box.tag == fourcc("free") && box.end() > length;
}

Tail tailOf(const NestedBox& boxes, BinFile& file) {
    Tail tail{.length = boxes.boxSize};
    const auto& all = boxes.children;
    auto last = all.rbegin();
    if (last != all.rend() && isLeftover(**last, tail.length)) {
        tail.leftover = true;
        tail.length = (*last)->offset;
        ++last;
    }
    if (last != all.rend()) {
        tail.last = last->get();
        tail.openEnded = file.seek_set(tail.last->offset) && file.read32() == 0;
    }
    return tail;
}

/// Whether the four bytes could be the type of a box, and not any bytes.
bool isText(uint32_t tag) {
    const auto bytes = std::bit_cast<std::array<uint8_t, 4>>(tag);
    return std::all_of(bytes.begin(), bytes.end(),
                       [](uint8_t byte) { return (byte >= 0x20 && byte <= 0x7E) || byte == 0xA9; });
}

Objection objectionTo(const Container& container, const Tail& tail, BinFile& file) {
    const uint64_t reached = tail.last != nullptr ? tail.last->end() : 0;
    if (file.failed()) {
        return L"it cannot be read";
    }
    if (reached > tail.length) {
        return L"its last box is cut off; readers would not find a box behind it";
    }
    if (reached < tail.length) {
        return tail.length - reached < BOX::compactHeader
                   ? L"it ends with bytes that are no box; readers would not find a box behind them"
                   : L"a box header without a type or a size lies in it; readers would not find a box behind "
                     L"it";
    }
    if (tail.openEnded && !isText(tail.last->tag)) {
        return L"its last box is damaged";
    }
    if (tail.openEnded && tail.last->boxSize > UINT32_MAX) {
        return L"its last box is open-ended, and too long for a 32-bit size";
    }
    const uint64_t length = container.root->boxSize;
    if (tail.leftover && pointersOf(*container.root, file).pointInto(file, tail.length, length)) {
        return L"its last box is cut off, and media data lies in it";
    }
    return {};
}

} // namespace

Objection objectionToAppend(const Container& container, BinFile& file) {
    return objectionTo(container, tailOf(*container.root, file), file);
}

Objection objectionToAppend(const Container& container, const Claim& claim) {
    if (!claim.objection().empty()) {
        return claim.objection();
    }
    BinFile view(claim.file());
    return objectionToAppend(container, view);
}

uint64_t endForAppend(const Container& container) {
    const auto& all = container.root->children;
    const uint64_t length = container.root->boxSize;
    return all.empty() || !isLeftover(*all.back(), length) ? length : all.back()->offset;
}

bool tellAppend(const Container& container, uint64_t size) {
    Console::out(L"plan: append %llu bytes at %llu\n", static_cast<unsigned long long>(size),
                 static_cast<unsigned long long>(endForAppend(container)));
    return true;
}

bool putBox(FileIO& file, Attempt& attempt, uint64_t place, const NewBox& box) {
    return file.seek_set(place) && box.write(file) && file.position() == place + box.size && file.flush() &&
           (!box.beforeItCounts || (box.beforeItCounts(attempt) && file.flush())) && Brisa::Watch::goOn() &&
           attempt.retype(place, box.type) && file.flush() &&
           (!box.whenItCounts || (box.whenItCounts(attempt) && file.flush()));
}

// A reader that comes after the process died finds, behind each step: the old file with a `free` box that is
// cut off (the next append takes it away); with a whole `free` box; with the new box.
bool appendBox(Container& container, FileIO& file, NewBox box) {
    BinFile view(file);
    const Tail tail = tailOf(*container.root, view);
    if (const Objection reason = objectionTo(container, tail, view); !reason.empty()) {
        return refuse(container.path, reason);
    }
    if (tail.openEnded) {
        const auto sized = bytesOf(static_cast<uint32_t>(tail.last->boxSize));
        box.beforeItCounts = [&, sized, others = box.beforeItCounts](Attempt& attempt) {
            return attempt.overwrite(tail.last->offset, sized) && (!others || others(attempt));
        };
    }
    if (tail.leftover && !file.truncate(tail.length)) {
        return false;
    }
    Attempt attempt(file);
    if (!putBox(file, attempt, tail.length, box)) {
        return false;
    }
    attempt.keep();
    if (tail.last != nullptr && tail.last->tag == fourcc("mfra")) {
        Console::err(
            L"MP4: %ls: the index of the movie fragments (mfra) is no longer at the end, where readers look "
            L"for it.\n",
            container.path.c_str());
    }
    return true;
}

namespace {

/// Whether two boxes carry the same kind of content.
bool areOfOneKind(const BOX& one, const BOX& other) {
    const auto* const identity = dynamic_cast<const UUID*>(&one);
    const auto* const otherIdentity = dynamic_cast<const UUID*>(&other);
    return one.tag == other.tag &&
           (identity == nullptr || otherIdentity == nullptr || identity->usertype == otherIdentity->usertype);
}

bool appendOrReplace(Container& container, const BOX* old, const ByteArray& header,
                     const std::function<bool(FileIO&)>& content) {
    const bool large = header.size() == 2 * BOX::compactHeader && loadBigEndian<uint32_t>(header.data()) == 1;
    if (header.size() != BOX::compactHeader && !large) {
        return refuse(container.path,
                      L"what should be put in has no header of 8 bytes, or 16 with a largesize");
    }
    NewBox box{.size = loadBigEndian<uint32_t>(header.data()), .type = 0, .write = {}};
    std::memcpy(&box.type, header.data() + sizeof(uint32_t), sizeof box.type);
    if (large) {
        box.size = loadBigEndian<uint64_t>(header.data() + BOX::compactHeader);
    }
    box.write = [&](FileIO& file) {
        ByteArray masked = header;
        std::memcpy(&masked[sizeof(uint32_t)], "free", sizeof(uint32_t));
        return file.writeAll(masked.data(), masked.size()) == masked.size() && content(file);
    };
    if (old != nullptr) {
        // From the last to the first: until the first one goes, it is the one that a reader takes.
        box.whenItCounts = [&](Attempt& attempt) {
            const auto& all = container.root->children;
            return std::all_of(all.rbegin(), all.rend(), [&](const auto& other) {
                return !areOfOneKind(*other, *old) || attempt.retype(other->offset, fourcc("free"));
            });
        };
    }
    Claim claim(container);
    if (const Objection reason = objectionToAppend(container, claim); !reason.empty()) {
        return refuse(container.path, reason);
    }
    if (!mayWrite(container)) {
        return false;
    }
    if (container.dryRun) {
        return tellAppend(container, box.size);
    }
    const bool done = claim.update([&](FileIO& file) { return appendBox(container, file, box); });
    claim.letGo();
    reattach(container);
    return done;
}

} // namespace

bool Container::append(const ByteArray& header, std::function<bool(FileIO&)> content) {
    return appendOrReplace(*this, nullptr, header, content);
}

bool Container::replaceBox(BOX& old, const ByteArray& header, std::function<bool(FileIO&)> content) {
    return appendOrReplace(*this, &old, header, content);
}

} // namespace MP4
