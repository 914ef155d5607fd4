#include "MP4Container.h"

#include <algorithm>

#include "Brisa/BrisaConsole.h"

namespace MP4 {

namespace {

using Brisa::Console;

/// The end of a file as a reader sees it that walks the top-level boxes.
struct Tail {
    uint64_t length;         ///< of the file
    uint64_t reached = 0;    ///< where the walk ends
    bool openEnded = false;  ///< whether the last box has a size field of 0
    uint64_t lastOffset = 0; ///< of the last box
    bool known = true;       ///< false when the system failed to read
};

Tail walkToTail(Brisa::FileIO& file) {
    BinFile view(file);
    Tail tail{.length = file.length()};
    NestedBox boxes(0, tail.length, fourcc("root"), nullptr);
    boxes.parseBox(view, tail.length);
    if (!boxes.children.empty()) {
        const BOX& last = *boxes.children.back();
        tail.reached = last.end();
        tail.lastOffset = last.offset;
        view.limit = tail.length;
        view.seek_set(last.offset);
        tail.openEnded = view.read32() == 0;
    }
    tail.known = !view.failed();
    return tail;
}

void warnIfUnreachable(const Tail& tail, const std::wstring& path) {
    constexpr uint64_t headerBytes = 8;
    if (tail.reached == tail.length) {
        return;
    }
    const wchar_t* const reason = tail.reached > tail.length ? L"the last box in front of it is cut off"
                                  : tail.length - tail.reached < headerBytes
                                      ? L"the bytes in front of it are no box"
                                      : L"the box header in front of it has no type or no size";
    Console::err(L"MP4: warning: readers will not find the box appended to %ls: %ls.\n", path.c_str(),
                 reason);
}

} // namespace

bool Container::attach(const std::wstring& path_, unsigned long long limit) {
    bool attached = false;
    Brisa::FileIO::open(path_, [&](Brisa::FileIO& file) {
        path = path_;
        BinFile view(file);
        view.keepContents = keepContents;
        parse(view, limit);
        attached = !view.failed();
        if (!attached) {
            Console::err(L"MP4: reading %ls failed.\n", path.c_str());
            forgetTree();
        }
    });
    return attached;
}

void Container::forgetTree() {
    root.reset();
    moov = nullptr;
    mdat = nullptr;
    trak = nullptr;
}

void Container::parse(BinFile& file, unsigned long long limit) {
    forgetTree();
    root = std::make_unique<ROOT>(0, std::min<uint64_t>(file.length(), limit), fourcc("root"), nullptr);
    root->depth = -1;
    root->parseBox(file, limit);

    mdat = static_cast<MDAT*>(root->first("mdat"));
    moov = static_cast<MOOV*>(root->first("moov"));
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

bool Container::open_a(std::function<void(Brisa::FileIO&)> work) const {
    return Brisa::FileIO::open_a(path, std::move(work));
}

void Container::dump() const {
    if (root) {
        root->dump();
    }
}

bool Container::append(std::function<bool(Brisa::FileIO&)> write) const {
    bool appended = false;
    open_a([&](Brisa::FileIO& file) {
        const Tail tail = walkToTail(file);
        if (!tail.known) {
            return;
        }
        BinFile view(file);
        const BOX last(tail.lastOffset, tail.length - tail.lastOffset, 0, nullptr);
        if (tail.openEnded && last.boxSize > UINT32_MAX) {
            Console::err(
                L"MP4: nothing can be appended to %ls: its last box is open-ended and too long for a "
                L"32-bit size.\n",
                path.c_str());
            return;
        }
        appended =
            (!tail.openEnded || last.size(view, last.boxSize)) && file.seek_set(tail.length) && write(file);
        if (appended) {
            warnIfUnreachable(tail, path);
            return;
        }
        file.truncate(tail.length);
        if (tail.openEnded) {
            last.size(view, 0);
        }
    });
    return appended;
}

} // namespace MP4
