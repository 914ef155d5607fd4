#include "MP4Container.h"

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::Console;

/// The end of a file as a reader sees it that walks the top-level boxes.
struct Tail {
    uint64_t length = 0;     ///< of the file
    uint64_t reached = 0;    ///< where the walk ends
    uint64_t lastOffset = 0; ///< of the last box
    bool openEnded = false;  ///< whether the last box has a size field of 0
};

Tail tailOf(const NestedBox& boxes, BinFile& file) {
    Tail tail{.length = boxes.boxSize};
    if (!boxes.children.empty()) {
        const BOX& last = *boxes.children.back();
        tail.reached = last.end();
        tail.lastOffset = last.offset;
        file.seek_set(last.offset);
        tail.openEnded = file.read32() == 0;
    }
    return tail;
}

/// Takes back what was appended when it goes out of scope, unless it is kept.
class Undo {
public:
    Undo(Brisa::FileIO& file_, const Tail& before_) : file(file_), before(before_) {}
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;
    ~Undo() {
        if (kept) {
            return;
        }
        BinFile view(file);
        const bool cut = file.truncate(before.length);
        if (!cut || (before.openEnded && !(view.seek_set(before.lastOffset) && view.write32(0)))) {
            Console::err(L"MP4: what was appended could not be taken back.\n");
        }
    }
    void keep() { kept = true; }

private:
    Brisa::FileIO& file;
    const Tail& before;
    bool kept = false;
};

void warnIfUnreachable(const Tail& tail, const std::wstring& path) {
    if (tail.reached == tail.length) {
        return;
    }
    const wchar_t* const reason = tail.reached > tail.length ? L"the last box in front of it is cut off"
                                  : tail.length - tail.reached < BOX::compactHeader
                                      ? L"the bytes in front of it are no box"
                                      : L"the box header in front of it has no type or no size";
    Console::err(L"MP4: warning: readers will not find the box appended to %ls: %ls.\n", path.c_str(),
                 reason);
}

} // namespace

bool Container::attach(const std::wstring& path_, unsigned long long limit) {
    return Brisa::FileIO::open(path_, [&](Brisa::FileIO& file) {
        path = path_;
        BinFile view(file);
        view.allowance.keepContents = keepContents;
        view.allowance.tableTotals = tableTotals;
        parse(view, limit);
    });
}

void Container::parse(BinFile& file, unsigned long long limit) {
    moov = nullptr;
    mdat = nullptr;
    trak = nullptr;
    parsed = file.identity(); // first: what is written while this goes on makes a difference
    root = std::make_unique<ROOT>(0, std::min<uint64_t>(parsed.length, limit), fourcc("root"), nullptr);
    root->depth = -1;
    root->parseBox(file, limit);

    if (file.failed()) {
        Console::err(L"MP4: reading %ls failed.\n", path.c_str());
    }
    partial = file.failed() || file.allowance.exceeded;

    moov = static_cast<MOOV*>(root->first("moov"));
    mdat = static_cast<MDAT*>(root->first("mdat"));
    root->find("moov.trak", [this](BOX& box) {
        auto& track = static_cast<TRAK&>(box);
        track.find("tkhd", [this, &track](BOX& header) {
            if (static_cast<int32_t>(static_cast<TKHD&>(header).width) > 0) {
                trak = &track;
            }
            return true;
        });
        return true;
    });
}

void Container::find(const char* boxPath, std::function<bool(BOX&)> predicate) const {
    if (root) {
        root->find(boxPath, std::move(predicate));
    }
}

bool Container::open(std::function<void(Brisa::FileIO&)> work) const {
    return Brisa::FileIO::open(path, std::move(work));
}

bool Container::open_a(std::function<void(Brisa::FileIO&)> work) {
    return Brisa::FileIO::open_a(path, [&](Brisa::FileIO& file) {
        const bool mine = file.lock() && file.identity() == parsed;
        work(file);
        if (mine) { // what has changed was this container's doing
            parsed = file.identity();
        }
    });
}

void Container::dump() const {
    if (root) {
        root->dump();
    }
}

bool Container::describes(const Brisa::FileIO& file) const {
    if (partial) {
        Console::err(L"MP4: %ls could not be parsed whole.\n", path.c_str());
        return false;
    }
    if (!file.lock()) {
        Console::err(L"MP4: %ls is being edited by somebody else.\n", path.c_str());
        return false;
    }
    const bool same = root != nullptr && file.identity() == parsed;
    if (!same) {
        Console::err(L"MP4: %ls is not what was parsed of it.\n", path.c_str());
    }
    return same;
}

bool Container::describesAll(const Brisa::FileIO& file) const {
    const bool all = root != nullptr && root->boxSize == parsed.length;
    if (!all) {
        Console::err(L"MP4: %ls was parsed in part only.\n", path.c_str());
    }
    return all && describes(file);
}

bool Container::append(std::function<bool(Brisa::FileIO&)> write) {
    bool appended = false;
    open_a([&](Brisa::FileIO& file) {
        if (!describesAll(file)) {
            return;
        }
        BinFile view(file);
        const Tail tail = tailOf(*root, view);
        if (view.failed()) {
            Console::err(L"MP4: reading %ls failed.\n", path.c_str());
            return;
        }
        const uint64_t lastSize = tail.length - tail.lastOffset;
        if (tail.openEnded && lastSize > UINT32_MAX) {
            Console::err(
                L"MP4: nothing can be appended to %ls: its last box is open-ended and too long for a "
                L"32-bit size.\n",
                path.c_str());
            return;
        }
        Undo undo(file, tail);
        if (tail.openEnded &&
            !(view.seek_set(tail.lastOffset) && view.write32(static_cast<uint32_t>(lastSize)))) {
            return;
        }
        appended = file.seek_set(tail.length) && write(file);
        if (appended) {
            undo.keep();
            warnIfUnreachable(tail, path);
        }
    });
    if (appended) {
        attach(path);
    }
    return appended;
}

} // namespace MP4
