// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "Brisa/BrisaNewFile.h"
#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::Console;
using Brisa::FileIO;
using Brisa::NewFile;

constexpr const wchar_t* temporarySuffix = L".tmp.mp4";

std::wstring newFilePath(const Container& container) {
    return container.outputPath != nullptr ? container.outputPath : container.path + temporarySuffix;
}

/// The file that a rewrite writes; null, and the reason, where it would harm another one.
std::unique_ptr<NewFile> newFileFor(const Container& container, const FileIO& old, Objection& reason) {
    const std::wstring place = newFilePath(container);
    const bool harmless = FileIO::isFree(place) && !old.isFileAt(place);
    auto file = !harmless                         ? nullptr
                : container.outputPath != nullptr ? NewFile::beside(place)
                                                  : NewFile::at(place);
    if (file == nullptr) {
        reason = text(L"%ls is no place for a new file", place.c_str());
    }
    return file;
}

/// A new file that is complete gets to its place.
bool settle(Container& container, const Claim& claim, NewFile& file) {
    const auto lastLook = [&] {
        return claim.isUntouched() || refuse(container.path, L"somebody wrote to it meanwhile");
    };
    const bool beside = container.outputPath != nullptr;
    const std::wstring place = beside ? container.outputPath : container.path;
    if (!file.take(place, !beside, &claim.file(), lastLook)) {
        return refuse(file.path(), text(L"it cannot take the place of %ls", place.c_str()));
    }
    if (beside) {
        container.path = place;
        container.outputPath = nullptr;
    }
    return true;
}

bool writeNewFile(Container& container, const Claim& claim, const Plan& plan) {
    Objection reason;
    const auto file = newFileFor(container, claim.file(), reason);
    if (file == nullptr) {
        return refuse(container.path, reason);
    }
    if (container.outputPath == nullptr) {
        file->file().flushSoon();
    }
    BinFile source(claim.file());
    return plan.write(source, file->file()) && settle(container, claim, *file);
}

// ---- A new movie box -------------------------------------------------------------------------------

/// A stretch of `free` boxes that begins with a former `moov`.
struct Hole {
    uint64_t from = 0;
    uint64_t to = 0;
    [[nodiscard]] uint64_t size() const { return to - from; }
    /// Whether a box of this size can be in it, with another one behind.
    [[nodiscard]] bool takes(uint64_t box) const {
        return box == size() || (box < size() && size() - box >= BOX::compactHeader);
    }
    /// The header that makes it one box, and what a hole is known by, if there is room for it.
    [[nodiscard]] ByteArray beginning() const {
        ByteArray bytes = headerOf(fourcc("free"), size() - BOX::compactHeader);
        bytes.append(size() < 2 * BOX::compactHeader ? ByteArray() : headerOf(fourcc("mvhd"), 0));
        return bytes;
    }
};

/// Whether a box can be a hole or a part of one.
bool isFree(const BOX& box, uint64_t length) {
    return box.tag == fourcc("free") && !box.largeSize && box.end() <= length;
}

/// Whether what is in a box begins as a movie box does.
bool beginsAsMovie(const BOX& box, BinFile& file) {
    std::array<char, 4> first{};
    return readAt(file, box.offset + box.headerSize() + sizeof(uint32_t), first.data(), first.size()) &&
           std::memcmp(first.data(), "mvhd", first.size()) == 0;
}

/// The first hole that the new movie box fits into, and that nothing points into.
Hole holeFor(uint64_t size, const Container& container, BinFile& file, const Pointers& pointers) {
    const uint64_t length = container.root->boxSize;
    const auto& all = container.root->children;
    auto box =
        std::find_if(all.begin(), all.end(), [](const auto& any) { return any->tag == fourcc("mdat"); });
    while (box != all.end()) {
        if (!isFree(**box, length) || !beginsAsMovie(**box, file)) {
            ++box;
            continue;
        }
        Hole hole{(*box)->offset, (*box)->offset};
        for (; box != all.end() && isFree(**box, length); ++box) {
            hole.to = (*box)->end();
        }
        if (hole.takes(size) && hole.size() <= UINT32_MAX && !pointers.pointInto(file, hole.from, hole.to)) {
            return hole;
        }
    }
    return {};
}

/// An old movie box becomes a hole, by one write: together with a hole in front of it and the `free` boxes
/// behind it, unless the new movie box lies there. `rest` is what that left of its own hole. A `free` box in
/// front that was never a movie stays one of its own: a hole that began with it would not be known for one.
bool makeHole(const Container& container, BinFile& file, Attempt& attempt, const BOX& movie,
              const Hole& filled, const Hole& rest) {
    Hole hole{movie.offset, movie.end()};
    hole.from = rest.to == movie.offset ? rest.from : hole.from;
    hole.to = rest.from == movie.end() ? rest.to : hole.to;
    for (const auto& box : container.root->children) {
        if (isFree(*box, container.root->boxSize) &&
            (box->end() <= filled.from || box->offset >= filled.to)) {
            hole.from = box->end() == hole.from && beginsAsMovie(*box, file) ? box->offset : hole.from;
            hole.to = box->offset == hole.to ? box->end() : hole.to;
        }
    }
    if (movie.largeSize || hole.size() > UINT32_MAX) {
        return attempt.retype(movie.offset, fourcc("free"));
    }
    return attempt.overwrite(hole.from, hole.beginning());
}

/// Every movie box of the tree goes, up to `end`: a new one is there.
bool dropMovieBoxes(const Container& container, BinFile& file, Attempt& attempt, const Hole& filled = {},
                    const Hole& rest = {}, uint64_t end = ~uint64_t{0}) {
    const auto& all = container.root->children;
    return std::all_of(all.rbegin(), all.rend(), [&](const auto& box) {
        return box->tag != fourcc("moov") || box->offset >= end ||
               makeHole(container, file, attempt, *box, filled, rest);
    });
}

// A reader that comes after the process died finds, behind each step: the old movie and one hole; the same,
// with the new movie in a `free` box; both movies, of which the first counts; the new movie.
bool fillHole(const Container& container, FileIO& file, const Hole& hole, const NewBox& box) {
    // As far from the old movie as can be: what is left of the hole becomes one with what that leaves.
    const bool behindMovie = hole.from == container.moov->end();
    const uint64_t place = behindMovie ? hole.to - box.size : hole.from;
    const Hole rest = behindMovie ? Hole{hole.from, place} : Hole{place + box.size, hole.to};
    Attempt attempt(file);
    const auto putBox = [&] { return file.seek_set(place) && box.write(file) && file.flush(); };
    const auto putRest = [&] {
        return rest.size() == 0 || (attempt.overwrite(rest.from, rest.beginning()) && file.flush());
    };
    // Of the two the latter one first: until the other one is there, it is content of the hole.
    if (!attempt.remember(hole.from, hole.size()) || !attempt.overwrite(hole.from, hole.beginning()) ||
        !file.flush() || !(behindMovie ? putBox() && putRest() : putRest() && putBox()) ||
        !Brisa::Watch::goOn() || !attempt.retype(place, box.type) || !file.flush()) {
        return false;
    }
    // An old movie box at the end of the file need not stay as a hole, nor what is left in front of it.
    const BOX& last = *container.root->children.back();
    const bool shorter = last.tag == fourcc("moov") && last.offset >= hole.to;
    const uint64_t end = !shorter ? ~uint64_t{0} : rest.to == last.offset ? rest.from : last.offset;
    BinFile view(file);
    if (!dropMovieBoxes(container, view, attempt, hole, rest, end) || !file.flush() ||
        (shorter && !file.truncate(end))) {
        return false;
    }
    attempt.keep(); // on disk but for the truncation, which takes away what counts no more
    return true;
}

/// Whether the plan can be carried out without moving a byte of media data.
bool canMakeNewMovieBox(const Container& container, const Plan& plan, BinFile& file,
                        const Pointers& pointers) {
    const BOX* const moov = container.moov;
    return container.newMovieBox && container.outputPath == nullptr && moov != nullptr &&
           container.isMdatFirst() && container.root->first("moof") == nullptr &&
           container.root->first("mfra") == nullptr &&
           plan.changesOnly(moov->offset + moov->headerSize(), moov->end()) &&
           !pointers.pointInto(file, moov->offset, moov->end()) && objectionToAppend(container, file).empty();
}

bool writeNewMovieBox(Container& container, Claim& claim, const Plan& plan, const Pointers& pointers) {
    BinFile source(claim.file());
    const NewBox box{
        .size = plan.size(),
        .type = fourcc("moov"),
        .write = [&](FileIO& file) { return plan.write(source, file); },
        .whenItCounts = [&](Attempt& attempt) { return dropMovieBoxes(container, source, attempt); }};
    const Hole hole = holeFor(box.size, container, source, pointers);
    return claim.update([&](FileIO& file) {
        return hole.to != 0 ? fillHole(container, file, hole, box) : appendBox(container, file, box);
    });
}

bool writePatch(Claim& claim, const Plan& plan) {
    BinFile source(claim.file());
    const auto [from, to] = plan.window();
    ByteArray old(to - from);
    return readAt(source, from, old.data(), old.size()) && claim.update([&, at = from](FileIO& file) {
        Attempt attempt(file);
        const bool written = attempt.overwrite(at, plan.patched(old)) && file.flush();
        written ? attempt.keep() : void();
        return written;
    });
}

enum class Way { patch, newMovieBox, newFile };

bool carryOut(Container& container, const wchar_t* operation, Plan& plan, Way way) {
    Claim claim(container);
    Objection reason = claim.objection();
    bool done = false;
    if (reason.empty()) {
        BinFile file(claim.file());
        const Pointers pointers = pointersOf(*container.root, file);
        if (way == Way::newFile && canMakeNewMovieBox(container, plan, file, pointers)) {
            way = Way::newMovieBox;
            const BOX& moov = *container.moov;
            plan.keepOnly(moov.offset, moov.end(), container.root->boxSize);
            plan.replace(moov.offset + sizeof(uint32_t), moov.offset + BOX::compactHeader,
                         typeBytes(fourcc("free")));
            plan.resize(&moov, 0);
        }
        reason = plan.complete(file, pointers);
        const bool settled = reason.empty() && mayWrite(container);
        if (settled && container.dryRun) {
            Console::out(L"plan: %ls\n", way == Way::patch         ? L"one write over what is there"
                                         : way == Way::newMovieBox ? L"a new movie box"
                                                                   : L"a new file");
            plan.dump();
            return true;
        }
        done = settled && (way == Way::patch         ? writePatch(claim, plan)
                           : way == Way::newMovieBox ? writeNewMovieBox(container, claim, plan, pointers)
                                                     : writeNewFile(container, claim, plan));
    }
    if (!reason.empty()) {
        refuse(container.path, reason);
    }
    claim.letGo();
    if (!done) {
        return operation != nullptr && (way == Way::newFile ? rewriteFailed(container, operation)
                                                            : patchFailed(container, operation));
    }
    reattach(container);
    return true;
}

} // namespace

bool readAt(BinFile& file, uint64_t offset, void* bytes, uint64_t size) {
    return file.seek_set(offset) && file.readAll(bytes, size) == size;
}

bool fitsBox(uint64_t bytes) {
    const bool fits = bytes <= UINT32_MAX - UUID::prefixSize;
    if (!fits) {
        Console::err(L"MP4: %llu bytes do not fit a box with a 32-bit size.\n",
                     static_cast<unsigned long long>(bytes));
    }
    return fits;
}

bool rewriteFailed(Container& container, const wchar_t* operation) {
    Console::out(L"Container::modifyContainer::%ls(%ls to %ls) failed.\n", operation, container.path.c_str(),
                 newFilePath(container).c_str());
    reattach(container);
    return false;
}

bool patchFailed(Container& container, const wchar_t* operation) {
    Console::out(L"Container::modifyContainer::%ls(%ls) failed.\n", operation, container.path.c_str());
    reattach(container);
    return false;
}

bool carryOut(Container& container, const wchar_t* operation, Plan& plan) {
    return carryOut(container, operation, plan, Way::newFile);
}

bool patch(Container& container, const wchar_t* operation, Plan& plan) {
    return carryOut(container, operation, plan, Way::patch);
}

// ---- Three steps, for callers of their own ---------------------------------------------------------

namespace {

bool step(Container& written, const std::function<bool(Container&, BinFile&)>& work) {
    bool done = false;
    written.open_a([&](FileIO& file) {
        BinFile view(file);
        done = work(written, view) && !view.failed();
    });
    return done;
}

} // namespace

bool Container::modifyContainer(const wchar_t* operation, std::function<bool(BinFile&)> edit) {
    bool modified = false;
    {
        Claim claim(*this);
        modified = claim.objection().empty() ? claim.update([&](FileIO& file) {
            BinFile view(file);
            return edit(view);
        })
                                             : refuse(path, claim.objection());
    }
    if (!modified) {
        return patchFailed(*this, operation);
    }
    reattach(*this);
    return true;
}

bool Container::modifyContainer(const wchar_t* operation,
                                std::function<bool(BinFile&, BinFile&, unsigned long long&)> copy,
                                std::function<bool(Container&, BinFile&)> first,
                                std::function<bool(Container&, BinFile&)> second) {
    bool rewritten = false;
    {
        Claim claim(*this);
        Objection reason = claim.objection();
        const auto file = reason.empty() ? newFileFor(*this, claim.file(), reason) : nullptr;
        if (file == nullptr) {
            refuse(path, reason);
        } else {
            BinFile source(claim.file());
            BinFile destination(file->file());
            unsigned long long insertionOffset = 0;
            Container written;
            written.keepContents = false;
            rewritten = source.seek_set(0) && copy(source, destination, insertionOffset) &&
                        !source.failed() && !destination.failed() &&
                        written.attach(file->path(), insertionOffset) && !written.incomplete() &&
                        step(written, first) && written.attach(file->path()) && !written.incomplete() &&
                        step(written, second) && settle(*this, claim, *file);
        }
    }
    if (!rewritten) {
        return rewriteFailed(*this, operation);
    }
    reattach(*this);
    return true;
}

bool Container::insertBox(const wchar_t* operation, BOX& box, bool replace,
                          std::function<bool(BinFile&)> write,
                          std::function<bool(Container&, BinFile&)> first,
                          std::function<bool(Container&, BinFile&)> second) {
    const auto& boxes = root->children;
    const bool fragmented =
        root->first("moof") != nullptr && std::any_of(boxes.begin(), boxes.end(), [&](const auto& other) {
            return (other->tag == fourcc("moof") || other->tag == fourcc("mdat")) &&
                   other->offset >= box.end();
        });
    if (fragmented) {
        refuse(path, L"the movie fragments must stay where they are");
        return rewriteFailed(*this, operation);
    }
    const auto copyAround = [&](BinFile& source, BinFile& destination, unsigned long long& insertionOffset) {
        const uint64_t kept = replace ? box.offset : box.end();
        const uint64_t behind = source.length() - std::min(box.end(), source.length());
        if (source.copyTo(destination, kept) != kept) {
            return false;
        }
        insertionOffset = destination.position();
        return write(destination) && source.seek_set(box.end()) &&
               source.copyTo(destination, behind) == behind;
    };
    return modifyContainer(operation, copyAround, std::move(first), std::move(second));
}

bool Container::modifyBoxSize(BinFile& file, BOX& box, long long change) {
    std::vector<std::pair<const BOX*, uint64_t>> sizes;
    for (const BOX* around = &box; around != nullptr && around->depth >= 0; around = around->parent) {
        uint64_t size = 0;
        if (const Objection reason = resized(*around, change, size); !reason.empty()) {
            return refuse(path, reason);
        }
        sizes.emplace_back(around, size);
    }
    return std::all_of(sizes.begin(), sizes.end(),
                       [&file](const auto& entry) { return entry.first->size(file, entry.second); });
}

} // namespace MP4
