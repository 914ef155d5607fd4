// SPDX-License-Identifier: MIT
#include "MP4Container.h"

#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

using Brisa::Console;

bool hasPicture(const TRAK& track) {
    bool found = false;
    track.find("tkhd", [&found](const BOX& header) {
        found = found || static_cast<int32_t>(static_cast<const TKHD&>(header).width) > 0;
        return true;
    });
    return found;
}

bool isVideo(const TRAK& track) {
    const BOX* const media = track.first("mdia");
    return media != nullptr && static_cast<const MDIA*>(media)->handler == fourcc("vide");
}

/// The last track with a picture whose media is video; where no track says so (a text track has a picture,
/// too), the last with a picture.
TRAK* videoTrack(const MOOV& movie) {
    TRAK* last = nullptr;
    movie.find("trak", [&last](BOX& box) {
        auto& track = static_cast<TRAK&>(box);
        if (hasPicture(track) && (last == nullptr || isVideo(track) || !isVideo(*last))) {
            last = &track;
        }
        return true;
    });
    return last;
}

} // namespace

bool Container::attach(const std::wstring& path_, unsigned long long limit) {
    return Brisa::FileIO::open(path_, [&](Brisa::FileIO& file) {
        path = path_;
        held.reset();
        read(file, limit);
    });
}

void Container::read(Brisa::FileIO& file, unsigned long long limit) {
    BinFile view(file);
    view.allowance.keepContents = keepContents;
    view.allowance.tableTotals = tableTotals;
    parse(view, limit);
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
    trak = moov != nullptr ? videoTrack(*moov) : nullptr;
}

void Container::find(const char* boxPath, std::function<bool(BOX&)> predicate) const {
    if (root) {
        root->find(boxPath, std::move(predicate));
    }
}

void Container::find(const char* boxPath, std::function<Search(BOX&)> predicate) const {
    if (root) {
        root->find(boxPath, std::move(predicate));
    }
}

bool Container::open(std::function<void(Brisa::FileIO&)> work) const {
    return Brisa::FileIO::open(path, std::move(work));
}

bool Container::open_a(std::function<void(Brisa::FileIO&)> work) {
    return Brisa::FileIO::open_a(path, [&](Brisa::FileIO& file) {
        const bool mine = (held != nullptr || file.lock()) && file.identity() == parsed;
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

} // namespace MP4
