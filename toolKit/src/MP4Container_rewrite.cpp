#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "ByteOrder.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::Console;
using Brisa::FileIO;

constexpr const wchar_t* temporarySuffix = L".tmp.mp4";

/// A file under construction: gone with the object unless it was kept.
class NewFile {
public:
    explicit NewFile(std::wstring path_) : path(std::move(path_)) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (exists) {
            FileIO::unlink(path);
        }
    }

    bool write(const std::function<bool(BinFile&)>& content) {
        bool written = false;
        FileIO::open_w(path, [&](FileIO& file) {
            exists = true;
            BinFile view(file);
            written = content(view) && !view.failed();
        });
        return written;
    }

    /// Takes the place of the file at `old`, with the permissions of the one that is open there.
    bool replace(const FileIO& oldFile, const std::wstring& old) {
        bool settled = false;
        FileIO::open_a(path,
                       [&](const FileIO& file) { settled = file.adoptPermissions(oldFile) && file.sync(); });
        if (!settled || !oldFile.isFileAt(old) || !FileIO::rename(path, old)) {
            Console::err(L"MP4: %ls cannot take the place of %ls.\n", path.c_str(), old.c_str());
            return false;
        }
        keep();
        return true;
    }

    void keep() { exists = false; }

    const std::wstring path;

private:
    bool exists = false;
};

bool patch(Container& written, const std::function<bool(Container&, BinFile&)>& step) {
    bool patched = false;
    written.open_a([&](FileIO& file) {
        BinFile view(file);
        patched = step(written, view) && !view.failed();
    });
    return patched;
}

std::function<bool(BinFile&)> writerOf(const ByteArray& bytes) {
    return [&bytes](BinFile& file) { return file.writeAll(bytes.data(), bytes.size()) == bytes.size(); };
}

bool copyAround(const std::vector<Insertion>& insertions, BinFile& source, BinFile& destination,
                unsigned long long& insertionOffset) {
    uint64_t copied = 0;
    for (const Insertion& insertion : insertions) {
        if (!copyStretch(source, destination, copied, insertion.from)) {
            return false;
        }
        insertionOffset = destination.position();
        if (!insertion.write(destination)) {
            return false;
        }
        copied = insertion.to;
    }
    return copyStretch(source, destination, copied, source.length());
}

Moves movesOf(const std::vector<Insertion>& insertions) {
    Moves moves;
    long long by = 0;
    for (auto insertion = insertions.begin(); insertion != insertions.end(); ++insertion) {
        const auto next = std::next(insertion);
        by += insertion->change();
        moves.add(insertion->to, next == insertions.end() ? Moves::toTheEnd : next->from, by);
    }
    return moves;
}

} // namespace

bool fitsBox(uint64_t bytes) {
    const bool fits = bytes <= UINT32_MAX - UUID::prefixSize;
    if (!fits) {
        Console::err(L"MP4: %llu bytes do not fit a box with a 32-bit size.\n",
                     static_cast<unsigned long long>(bytes));
    }
    return fits;
}

Insertion asLastChild(NestedBox& parent, uint64_t size, std::function<bool(BinFile&)> write) {
    // Not always the end of the parent: what may follow the last child (QuickTime closes user data
    // with four zero bytes) would hide anything that comes behind it.
    const uint64_t at =
        parent.children.empty() ? parent.offset + parent.headerSize() : parent.children.back()->end();
    return {.from = at, .to = at, .size = size, .grown = &parent, .write = std::move(write)};
}

Insertion asLastChild(NestedBox& parent, const ByteArray& bytes) {
    return asLastChild(parent, bytes.size(), writerOf(bytes));
}

Insertion inPlaceOf(BOX& child, const ByteArray& bytes) {
    return {.from = child.offset,
            .to = child.end(),
            .size = bytes.size(),
            .grown = child.parent,
            .write = writerOf(bytes)};
}

bool liesWithin(uint64_t from, uint64_t to, const BOX* around, uint64_t length) {
    for (; around != nullptr && around->depth >= 0; around = around->parent) {
        if (from < around->offset + around->headerSize() || from > to || to > around->end()) {
            return false;
        }
        from = around->offset;
        to = around->end();
    }
    return to <= length;
}

bool canResize(const std::vector<Resizing>& boxes) {
    return std::all_of(boxes.begin(), boxes.end(), [](const Resizing& resizing) {
        const BOX& box = *resizing.box;
        uint64_t size;
        const bool fits = !__builtin_add_overflow(box.boxSize, resizing.change, &size) &&
                          size >= box.headerSize() && (box.largeSize || size <= UINT32_MAX);
        if (!fits) {
            Console::err(L"MP4: the size of %ls, changed by %lld, does not fit its %u bits.\n",
                         box.basicTag().c_str(), resizing.change, box.largeSize ? 64U : 32U);
        }
        return fits;
    });
}

bool resize(BinFile& file, const std::vector<Resizing>& boxes) {
    return canResize(boxes) && std::all_of(boxes.begin(), boxes.end(), [&file](const Resizing& resizing) {
               BOX header(*resizing.box, nullptr);
               header.offset = resizing.offset;
               return header.size(file, shifted(header.boxSize, resizing.change));
           });
}

bool readAt(BinFile& file, uint64_t offset, uint8_t* bytes, uint64_t size) {
    return file.seek_set(offset) && file.readAll(bytes, size) == size;
}

bool overwrite(BinFile& file, uint64_t offset, const ByteArray& bytes) {
    ByteArray old(bytes.size());
    if (!readAt(file, offset, old.data(), old.size()) || !file.seek_set(offset)) {
        return false;
    }
    const bool written = file.writeAll(bytes.data(), bytes.size()) == bytes.size();
    if (!written && file.seek_set(offset)) {
        file.writeAll(old.data(), old.size());
    }
    return written;
}

bool copyStretch(BinFile& source, BinFile& destination, uint64_t from, uint64_t to) {
    return from <= to && source.seek_set(from) && source.copyTo(destination, to - from) == to - from;
}

std::wstring Container::newFilePath() const {
    return outputPath != nullptr ? outputPath : path + temporarySuffix;
}

bool Container::rewriteFailed(const wchar_t* operation) {
    Console::out(L"Container::modifyContainer::%ls(%ls to %ls) failed.\n", operation, path.c_str(),
                 newFilePath().c_str());
    attach(path);
    return false;
}

bool Container::patchFailed(const wchar_t* operation) const {
    Console::out(L"Container::modifyContainer::%ls(%ls) failed.\n", operation, path.c_str());
    return false;
}

bool Container::modifyContainer(const wchar_t* operation, std::function<bool(BinFile&)> edit) {
    bool modified = false;
    open_a([&](FileIO& file) {
        BinFile view(file);
        modified = describes(file) && edit(view);
    });
    if (!modified) {
        patchFailed(operation);
    }
    attach(path);
    return modified;
}

bool Container::modifyContainer(const wchar_t* operation,
                                std::function<bool(BinFile&, BinFile&, unsigned long long&)> copy,
                                std::function<bool(Container&, BinFile&)> first,
                                std::function<bool(Container&, BinFile&)> second) {
    NewFile newFile(newFilePath());
    bool rewritten = false;
    open([&](FileIO& file) {
        if (!FileIO::isFree(newFile.path) || file.isFileAt(newFile.path)) {
            Console::err(L"MP4: %ls is no place for a new file.\n", newFile.path.c_str());
            return;
        }
        if (!describesAll(file)) {
            return;
        }
        BinFile source(file);
        unsigned long long insertionOffset = 0;
        Container written;
        written.keepContents = false;
        rewritten = newFile.write([&](BinFile& destination) {
            return copy(source, destination, insertionOffset) && !source.failed();
        }) && written.attach(newFile.path, insertionOffset) &&
                    !written.incomplete() && patch(written, first) && written.attach(newFile.path) &&
                    !written.incomplete() && patch(written, second) &&
                    (outputPath != nullptr || newFile.replace(file, path));
    });
    if (!rewritten) {
        return rewriteFailed(operation);
    }
    if (outputPath != nullptr) {
        newFile.keep();
        path = newFile.path;
        outputPath = nullptr;
    }
    attach(path);
    return true;
}

bool Container::insertBox(const wchar_t* operation, BOX& box, bool replace,
                          std::function<bool(BinFile&)> write,
                          std::function<bool(Container&, BinFile&)> first,
                          std::function<bool(Container&, BinFile&)> second) {
    const std::vector<Insertion> insertions{{.from = replace ? box.offset : box.end(),
                                             .to = box.end(),
                                             .size = 0, // known to `write` and the steps alone
                                             .grown = nullptr,
                                             .write = std::move(write)}};
    Moves moves;
    moves.add(box.end(), Moves::toTheEnd, 1); // how far is not known yet
    if (movesFragments(moves)) {
        return rewriteFailed(operation);
    }
    return modifyContainer(
        operation,
        [&](BinFile& source, BinFile& destination, unsigned long long& insertionOffset) {
            return copyAround(insertions, source, destination, insertionOffset);
        },
        std::move(first), std::move(second));
}

bool Container::modifyBoxSize(BinFile& file, BOX& box, long long change) {
    std::vector<Resizing> boxes;
    for (const BOX* around = &box; around != nullptr && around != root.get(); around = around->parent) {
        boxes.push_back({around, around->offset, change});
    }
    return resize(file, boxes);
}

bool Container::rewrite(const wchar_t* operation, const std::vector<Insertion>& insertions,
                        bool* reachedOffsets) {
    const bool sound = std::all_of(insertions.begin(), insertions.end(), [this](const Insertion& insertion) {
        return liesWithin(insertion.from, insertion.to, insertion.grown, root->boxSize);
    });
    if (!sound) {
        Console::err(L"MP4: %ls: the boxes to be changed do not lie within one another.\n", path.c_str());
        return rewriteFailed(operation);
    }
    const Moves moves = movesOf(insertions);
    const bool everyChunkMoves = mediaMovesAsOne(moves);
    if (!mayMove(moves, everyChunkMoves)) {
        return rewriteFailed(operation);
    }
    std::map<const BOX*, long long> changes;
    for (const Insertion& insertion : insertions) {
        for (const BOX* box = insertion.grown; box != nullptr && box != root.get(); box = box->parent) {
            changes[box] += insertion.change();
        }
    }
    std::vector<Resizing> boxes;
    for (const auto& [box, change] : changes) {
        boxes.push_back({box, shifted(box->offset, moves.at(box->offset)), change});
    }
    if (!canResize(boxes)) {
        return rewriteFailed(operation);
    }
    return modifyContainer(
        operation,
        [&](BinFile& source, BinFile& destination, unsigned long long& insertionOffset) {
            return copyAround(insertions, source, destination, insertionOffset);
        },
        [&](Container&, BinFile& file) { return resize(file, boxes); },
        [&](Container& written, BinFile& file) {
            if (reachedOffsets != nullptr) {
                *reachedOffsets = true;
            }
            return correctOffsets(written, file, moves, everyChunkMoves);
        });
}

} // namespace MP4
