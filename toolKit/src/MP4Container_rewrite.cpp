// SPDX-License-Identifier: MIT
#include <algorithm>
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

bool tell(const Plan& plan, Way way) {
    Console::out(L"plan: %ls\n", way == Way::patch         ? L"one write over what is there"
                                 : way == Way::newMovieBox ? L"a new movie box"
                                                           : L"a new file");
    plan.dump();
    return true;
}

/// Completes the plan and carries it out, as `way` says in the end; whether it did.
bool commit(Container& container, Plan& plan, Way& way) {
    Claim claim(container);
    if (!claim.objection().empty()) {
        return refuse(container.path, claim.objection());
    }
    BinFile file(claim.file());
    const Pointers pointers = pointersOf(*container.root, file);
    if (way == Way::newFile && canMakeNewMovieBox(container, plan, file, pointers)) {
        way = Way::newMovieBox;
        keepOnlyMovieBox(container, plan);
    }
    if (const Objection reason = plan.complete(file, pointers); !reason.empty()) {
        return refuse(container.path, reason);
    }
    if (!mayWrite(container)) {
        return false;
    }
    if (container.dryRun) {
        return tell(plan, way);
    }
    return way == Way::patch         ? writePatch(claim, plan)
           : way == Way::newMovieBox ? writeNewMovieBox(container, claim, plan, pointers)
                                     : writeNewFile(container, claim, plan);
}

bool carryOut(Container& container, const wchar_t* operation, Plan& plan, Way way) {
    if (!commit(container, plan, way)) {
        return operation != nullptr && (way == Way::newFile ? rewriteFailed(container, operation)
                                                            : patchFailed(container, operation));
    }
    if (!container.dryRun) {
        reattach(container);
    }
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
