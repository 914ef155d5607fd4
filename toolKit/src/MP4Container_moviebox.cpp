// SPDX-License-Identifier: MIT
// A new movie box in the same file: no media data moves, and the old one becomes a hole that the next can
// fill.

#include <algorithm>
#include <array>
#include <cstring>

#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::FileIO;

/// A stretch of the file, behind where the media begin, that a movie box lies in, or a `free` box.
struct Hole {
    uint64_t from = 0;
    uint64_t to = 0;
    bool hasMovie = false;
    bool isKnown = false;   ///< whether it begins as a movie box does: what holes are known by
    bool takesMark = false; ///< whether what it begins with may be written over, so that it is known

    [[nodiscard]] uint64_t size() const { return to - from; }
    /// Whether a box of this size can be in it, with another one behind.
    [[nodiscard]] bool takes(uint64_t box) const {
        return box == size() || (box < size() && size() - box >= BOX::compactHeader);
    }
    /// What makes it one `free` box.
    [[nodiscard]] ByteArray beginning() const {
        ByteArray bytes = headerOf(fourcc("free"), size() - BOX::compactHeader);
        bytes.append(takesMark && size() >= 2 * BOX::compactHeader ? headerOf(fourcc("mvhd"), 0)
                                                                   : ByteArray());
        return bytes;
    }
};

using Holes = std::vector<Hole>;

/// Whether what is in a box begins as a movie box does.
bool beginsAsMovie(const BOX& box, BinFile& file) {
    std::array<char, 4> first{};
    return readAt(file, box.offset + box.headerSize() + sizeof(uint32_t), first.data(), first.size()) &&
           std::memcmp(first.data(), "mvhd", first.size()) == 0;
}

/// Each movie box, and each `free` box behind where the media begin, by itself.
Holes partsOf(const Container& container, BinFile& file) {
    const auto& all = container.root->children;
    Holes parts;
    auto box =
        std::find_if(all.begin(), all.end(), [](const auto& any) { return any->tag == fourcc("mdat"); });
    for (; box != all.end(); ++box) {
        const BOX& here = **box;
        const bool isFree =
            here.tag == fourcc("free") && !here.largeSize && here.end() <= container.root->boxSize;
        if (here.tag == fourcc("moov") || isFree) {
            parts.push_back({.from = here.offset,
                             .to = here.end(),
                             .hasMovie = !isFree,
                             .isKnown = beginsAsMovie(here, file),
                             .takesMark = &here == container.moov});
        }
    }
    return parts;
}

/// Parts that touch one another, as one; but none begins with a `free` box that would not be known for a
/// hole.
Holes joined(const Holes& parts) {
    Holes holes;
    for (const Hole& part : parts) {
        Hole* const last = holes.empty() ? nullptr : &holes.back();
        if (last != nullptr && last->to == part.from && (last->isKnown || last->takesMark) &&
            part.to - last->from <= UINT32_MAX) {
            last->to = part.to;
            last->hasMovie = last->hasMovie || part.hasMovie;
        } else {
            holes.push_back(part);
        }
    }
    return holes;
}

/// The first hole that the new movie box fits into, and that nothing points into; an empty one if there is
/// none.
Hole holeFor(uint64_t size, Holes parts, BinFile& file, const Pointers& pointers) {
    std::erase_if(parts, [](const Hole& part) { return part.hasMovie; });
    const Holes holes = joined(parts);
    const auto found = std::find_if(holes.begin(), holes.end(), [&](const Hole& hole) {
        return hole.isKnown && hole.takes(size) && !pointers.pointInto(file, hole.from, hole.to);
    });
    return found != holes.end() ? *found : Hole();
}

/// Every movie box becomes a hole, from the last to the first, each by one write.
bool dropMovies(const Holes& holes, Attempt& attempt) {
    return std::all_of(holes.rbegin(), holes.rend(), [&](const Hole& hole) {
        return !hole.hasMovie || (hole.size() <= UINT32_MAX ? attempt.overwrite(hole.from, hole.beginning())
                                                            : attempt.retype(hole.from, fourcc("free")));
    });
}

/// The parts once a box is in the hole, and `rest` is left of it.
Holes without(const Hole& hole, const Hole& rest, Holes parts) {
    std::erase_if(parts, [&](const Hole& part) { return hole.from <= part.from && part.to <= hole.to; });
    if (rest.size() != 0) {
        const auto behind =
            std::find_if(parts.begin(), parts.end(), [&](const Hole& part) { return part.from >= rest.to; });
        parts.insert(behind, rest);
    }
    return parts;
}

// A reader that comes after the process died finds, behind each step: the old movie and one hole; the same,
// with the new movie in a `free` box; both movies, of which the first counts; the new movie.
bool fillHole(const Container& container, FileIO& file, const Pointers& pointers, const Holes& parts,
              const Hole& hole, NewBox box) {
    // As far from the old movie as can be: what is left of the hole becomes one with what that leaves.
    const bool behindMovie = hole.from == container.moov->end();
    const uint64_t place = behindMovie ? hole.to - box.size : hole.from;
    const Hole rest{.from = behindMovie ? hole.from : place + box.size,
                    .to = behindMovie ? place : hole.to,
                    .takesMark = true};
    Holes left = joined(without(hole, rest, parts));
    // An old movie box at the end of the file need not stay as a hole.
    BinFile view(file);
    const Hole last = left.empty() ? Hole() : left.back();
    const bool shorter =
        last.hasMovie && last.to == container.root->boxSize && !pointers.pointInto(view, last.from, last.to);
    if (shorter) {
        left.pop_back();
    }

    Attempt attempt(file);
    const auto putRest = [&](Attempt& rests) {
        return rest.size() == 0 || rests.overwrite(rest.from, rest.beginning());
    };
    // Of the two the latter one first: until the other one is there, it is content of the hole.
    box.beforeItCounts = behindMovie ? putRest : std::function<bool(Attempt&)>();
    box.whenItCounts = [&](Attempt& drops) { return dropMovies(left, drops); };
    const bool done = attempt.remember(hole.from, hole.size()) &&
                      attempt.overwrite(hole.from, hole.beginning()) && file.flush() &&
                      (behindMovie || (putRest(attempt) && file.flush())) &&
                      putBox(file, attempt, place, box) && (!shorter || file.truncate(last.from));
    done ? attempt.keep() : void(); // on disk but for the truncation, which takes away what counts no more
    return done;
}

} // namespace

bool canMakeNewMovieBox(const Container& container, const Plan& plan, BinFile& file,
                        const Pointers& pointers) {
    const BOX* const moov = container.moov;
    return container.newMovieBox && container.outputPath == nullptr && moov != nullptr &&
           container.isMdatFirst() && container.root->first("moof") == nullptr &&
           container.root->first("mfra") == nullptr &&
           plan.changesOnly(moov->offset + moov->headerSize(), moov->end()) &&
           !pointers.pointInto(file, moov->offset, moov->end()) && objectionToAppend(container, file).empty();
}

void keepOnlyMovieBox(const Container& container, Plan& plan) {
    const BOX& moov = *container.moov;
    plan.keepOnly(moov.offset, moov.end(), container.root->boxSize);
    plan.replace(moov.offset + sizeof(uint32_t), moov.offset + BOX::compactHeader, typeBytes(fourcc("free")));
    plan.resize(&moov, 0); // an open-ended one gets its size
}

bool writeNewMovieBox(Container& container, Claim& claim, const Plan& plan, const Pointers& pointers) {
    BinFile source(claim.file());
    const Holes parts = partsOf(container, source);
    const Hole hole = holeFor(plan.size(), parts, source, pointers);
    const Holes left = joined(parts);
    NewBox box{.size = plan.size(),
               .type = fourcc("moov"),
               .write = [&](FileIO& file) { return plan.write(source, file); },
               .whenItCounts = [&](Attempt& attempt) { return dropMovies(left, attempt); }};
    return claim.update([&](FileIO& file) {
        return hole.size() != 0 ? fillHole(container, file, pointers, parts, hole, box)
                                : appendBox(container, file, box);
    });
}

} // namespace MP4
