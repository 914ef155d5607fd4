// SPDX-License-Identifier: MIT
#include <algorithm>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

namespace {

/// By a change of its type, or of the file's length.
bool removeTopLevel(Container& container, const BOX& box) {
    Claim claim(container);
    if (!claim.objection().empty()) {
        return refuse(container.path, claim.objection());
    }
    const uint64_t length = container.root->boxSize;
    const bool last = box.end() == length;
    if (box.end() > length) {
        return refuse(container.path, text(L"%ls is cut off", box.basicTag().c_str()));
    }
    if (!mayWrite(container)) {
        return false;
    }
    if (container.dryRun) {
        Brisa::Console::out(L"plan: %ls %ls\n", last ? L"cut off" : L"make free", box.basicTag().c_str());
        return true;
    }
    const bool done = claim.update([&](Brisa::FileIO& file) {
        Attempt attempt(file);
        // Cut off, it is gone at once; sound has a record as well, and is no sound before that goes.
        const bool marked = !last || isSpatial(box);
        const bool gone = (!marked || attempt.retype(box.offset, fourcc("free"))) &&
                          (!isSpatial(box) || forgetSound(container, attempt)) && file.flush() &&
                          (!last || file.truncate(box.offset));
        if (gone) {
            attempt.keep();
            file.flush(); // if this fails, a `free` box may stay at the end
        }
        return gone;
    });
    claim.letGo();
    reattach(container);
    return done;
}

} // namespace

bool Container::isMdatFirst() const {
    if (root == nullptr) {
        return false;
    }
    const auto& boxes = root->children;
    const auto first = std::find_if(boxes.begin(), boxes.end(), [](const auto& box) {
        return box->tag == fourcc("moov") || box->tag == fourcc("mdat");
    });
    return first != boxes.end() && (*first)->tag == fourcc("mdat");
}

bool Container::moovFirst() {
    constexpr const wchar_t* operation = L"moovFirst";
    if (moov == nullptr || !isMdatFirst()) {
        return false;
    }
    if (root->children.back()->end() > root->boxSize || moov->boxSize < moov->headerSize()) {
        refuse(path, L"a box is cut off");
        return rewriteFailed(*this, operation);
    }
    Plan plan(*root);
    plan.keep(0, mdat->offset);
    plan.keep(moov->offset, moov->end());
    plan.keep(mdat->offset, moov->offset);
    plan.keep(moov->end(), root->boxSize);
    plan.resize(moov, 0); // an open-ended `moov` is the last box no longer
    return carryOut(*this, operation, plan);
}

bool Container::updateTimeStamp(unsigned long long time) {
    if (root == nullptr) {
        return false;
    }
    Plan plan(*root);
    const auto set = [&](const BOX& header, uint8_t version) {
        const CreationTime field(header, version);
        if (field.offset + field.width <= header.endWithin(root->boxSize)) {
            plan.replace(field.offset, field.offset + field.width, field.bytes(time));
        }
        return true;
    };
    if (const auto* const header = static_cast<MVHD*>(root->first("moov.mvhd"))) {
        set(*header, header->version);
    }
    find("moov.trak.tkhd", [&](const BOX& box) { return set(box, static_cast<const TKHD&>(box).version); });
    find("moov.trak.mdia.mdhd",
         [&](const BOX& box) { return set(box, static_cast<const MDHD&>(box).version); });
    return patch(*this, nullptr, plan);
}

bool Container::removeBox(BOX& box) {
    constexpr const wchar_t* operation = L"removeBox";
    if (box.depth == 0) {
        return removeTopLevel(*this, box);
    }
    Plan plan(*root);
    plan.exchange(box, {});
    return carryOut(*this, operation, plan);
}

} // namespace MP4
