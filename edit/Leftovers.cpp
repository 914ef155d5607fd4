// SPDX-License-Identifier: MIT
#include "Leftovers.h"

#include <algorithm>
#include <array>
#include <set>

#include "Kind.h"
#include "Text.h"
#include "Tree.h"

namespace edit {

namespace {

using Brisa::FileIO;
using MP4::BOX;
using MP4::fourcc;

/// What the content of a `free` box was, as far as its first bytes tell; empty if they do not.
std::string formerContent(FileIO& file, const BOX& box, bool behindMedia) {
    std::array<uint8_t, sizeof(MP4::Usertype)> front{};
    const uint64_t from = box.offset + box.headerSize();
    if (box.end() < from + front.size() || !file.seek_set(from) ||
        file.readAll(front.data(), front.size()) != front.size()) {
        return {};
    }
    if (const char* const kind = kindOf(front)) {
        return kind;
    }
    return behindMedia && std::equal(&front[4], &front[8], "mvhd") ? "moov" : "";
}

/// Whether a chunk of any track begins in the stretch, or might: a table that cannot be read counts as one
/// that does.
bool isPointedInto(const MP4::Container& container, FileIO& file, uint64_t from, uint64_t end) {
    bool pointedInto = false;
    for (const MP4::TRAK* const track : tracksOf(container)) {
        const MP4::STCO* const table = chunkTableOf(*track);
        const bool known = table == nullptr || eachChunk(file, *table, [&](uint64_t offset) {
                               pointedInto = pointedInto || (from <= offset && offset < end);
                           });
        pointedInto = pointedInto || !known;
    }
    return pointedInto;
}

/// Whether a movie box can be the one that counts: no reader would look for another.
bool isWholeMovie(const BOX& box, uint64_t length) {
    const auto* const moov = MP4::as<MP4::MOOV>(box);
    return moov != nullptr && moov->end() <= length && moov->first("mvhd") != nullptr &&
           moov->first("trak") != nullptr;
}

/// The whole movie boxes behind the one that counts, but for those that a chunk offset points to.
void findLaterMovies(const MP4::Container& container, FileIO& file, Repair& repair) {
    const uint64_t length = container.root->boxSize;
    bool seen = false;
    for (const auto& box : container.root->children) {
        const bool whole = isWholeMovie(*box, length);
        if (box->tag == fourcc("moov") && seen) {
            if (whole && !isPointedInto(container, file, box->offset, box->end())) {
                repair.movies.push_back(box.get());
            } else {
                repair.left.push_back("the second 'moov', at " + grouped(box->offset));
            }
        }
        seen = seen || whole;
    }
}

/// Where the file ends without the leftovers at its end.
uint64_t endBeforeLeftovers(const MP4::Container& container, FileIO& file,
                            const std::vector<const BOX*>& later) {
    const Boxes top = container.root->children;
    const uint64_t length = container.root->boxSize;
    std::set<const BOX*> known(later.begin(), later.end());
    for (const Leftover& left : leftoversIn(container, file)) {
        known.insert(left.box);
    }
    uint64_t end = length;
    for (auto box = top.rbegin(); box != top.rend(); ++box) {
        const bool cutOff = (*box)->tag == fourcc("free") && (*box)->end() > length;
        if (!cutOff && !(known.contains(box->get()) && (*box)->end() == end)) {
            break;
        }
        end = (*box)->offset;
    }
    return end;
}

/// Writes the types of movie boxes.
bool retype(FileIO& file, const std::vector<const BOX*>& movies, const char (&type)[5]) {
    return std::all_of(movies.begin(), movies.end(), [&](const BOX* movie) {
        return file.seek_set(movie->offset + sizeof(uint32_t)) && file.writeAll(type, 4) == 4;
    });
}

/// Makes the movie boxes `free` boxes and cuts the file; or leaves it as it was, as far as the system lets.
bool takeAway(FileIO& file, const Repair& repair) {
    const auto& movies = repair.movies;
    const bool done = retype(file, movies, "free") && (movies.empty() || file.sync()) &&
                      (repair.end == file.length() || file.truncate(repair.end));
    // Should the end not reach the disk, the leftovers are back, and that is all.
    done ? file.sync() : retype(file, movies, "moov");
    return done;
}

} // namespace

std::vector<Leftover> leftoversIn(const MP4::Container& container, FileIO& file) {
    std::vector<Leftover> leftovers;
    const BOX* former = nullptr; // the last box that was a movie box, or that lies directly behind one
    for (const auto& box : container.root->children) {
        if (box->tag != fourcc("free")) {
            continue;
        }
        const bool behindMedia = container.mdat != nullptr && container.mdat->offset < box->offset;
        std::string was = formerContent(file, *box, behindMedia);
        const bool directlyBehind = former != nullptr && former->end() == box->offset;
        if (was.empty() && directlyBehind) {
            was = "moov";
        }
        former = was == "moov" ? box.get() : nullptr;
        if (!was.empty()) {
            leftovers.push_back({box.get(), std::move(was)});
        }
    }
    return leftovers;
}

Repair repairOf(const MP4::Container& container, bool& readable) {
    Repair repair;
    const uint64_t length = container.root->boxSize;
    readable = false;
    container.open([&](FileIO& file) {
        findLaterMovies(container, file, repair);
        repair.end = endBeforeLeftovers(container, file, repair.movies);
        if (repair.end != length) {
            const bool needed = isPointedInto(container, file, repair.end, length);
            (needed ? repair.left : repair.taken)
                .push_back(byteCount(length - repair.end) + " of leftovers at the end, from " +
                           grouped(repair.end) + " on");
            repair.end = needed ? length : repair.end;
        }
        readable = !file.failed() && !container.incomplete() && file.length() == length;
    });
    std::erase_if(repair.movies, [&](const BOX* movie) { return movie->offset >= repair.end; });
    for (const BOX* movie : repair.movies) {
        repair.taken.push_back("the second 'moov', at " + grouped(movie->offset));
    }
    return repair;
}

bool carryOut(const Repair& repair, MP4::Container& container) {
    if (container.beforeWriting && !container.beforeWriting()) {
        return false;
    }
    if (container.dryRun) {
        return true;
    }
    bool done = false;
    container.open_a(
        [&](FileIO& file) { done = file.length() == container.root->boxSize && takeAway(file, repair); });
    return done;
}

} // namespace edit
