// SPDX-License-Identifier: MIT
// Who else is there, and what is taken back.

#include <exception>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "MP4Box_fields.h"
#include "MP4Container.h"
#include "MP4Container_edit.h"

namespace MP4 {

using Brisa::Console;
using Brisa::FileIO;

Container::Container() = default;
Container::~Container() = default;

namespace {

constexpr double patience = 2; // seconds that an edit waits for another one

/// Opens and locks the file that the path names; null, and the reason, if it cannot be had.
template <class Held>
std::unique_ptr<Held> lockedAt(const std::wstring& path, Objection& reason) {
    for (int tries = 0; tries < 100; ++tries) {
        auto held = std::make_unique<Held>(path);
        if (!held->file.isOpen()) {
            reason = L"it cannot be opened";
            return nullptr;
        }
        if (!held->file.lock(patience)) {
            reason = L"it is being edited by somebody else";
            return nullptr;
        }
        if (held->file.isFileAt(path)) { // and not one that was renamed over it while we waited
            return held;
        }
    }
    reason = L"it is replaced by somebody else, again and again";
    return nullptr;
}

} // namespace

bool refuse(const std::wstring& path, const Objection& reason) {
    Console::err(L"MP4: %ls: %ls.\n", path.c_str(), reason.c_str());
    return false;
}

bool mayWrite(const Container& container) {
    return !container.beforeWriting || container.beforeWriting();
}

bool Container::claim(const std::wstring& path_) {
    Objection reason;
    auto locked = lockedAt<Held>(path_, reason);
    if (locked == nullptr) {
        return refuse(path_, reason);
    }
    path = path_;
    held = std::move(locked);
    read(held->file, ~0ULL);
    return true;
}

void reattach(Container& container) {
    try {
        container.refresh();
    } catch (const std::exception&) {
        Console::err(L"MP4: %ls: there is not enough memory to read it again.\n", container.path.c_str());
    }
}

void Container::refresh() {
    if (held != nullptr && held->path == path && held->file.isFileAt(path) && held->file.seek_set(0)) {
        read(held->file, ~0ULL);
    } else {
        held != nullptr ? claim(path) : attach(path);
    }
}

Claim::Claim(Container& container_) : container(container_) {
    if (container.partial) {
        reason = L"it could not be parsed whole";
    } else if (container.root == nullptr || container.root->boxSize != container.parsed.length) {
        reason = L"it was parsed in part only";
    } else if (container.held == nullptr) {
        own = lockedAt<Container::Held>(container.path, reason);
    }
    if (reason.empty() && !isUntouched()) {
        reason = L"it is not what was parsed of it";
    }
}

Claim::~Claim() = default;

FileIO& Claim::file() const {
    return own != nullptr ? own->file : container.held->file;
}

bool Claim::isUntouched() const {
    return file().identity() == container.parsed && file().isFileAt(container.path);
}

namespace {

bool isReplaced(const FileIO& file, const std::wstring& path) {
    try {
        return file.isNotFileAt(path);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace

bool Claim::update(const std::function<bool(FileIO&)>& work) {
    FileIO writing(container.path, 'a');
    if (!writing.isOpen()) {
        return false;
    }
    if (writing.identity() != container.parsed) {
        return refuse(container.path, L"it is not what was parsed of it");
    }
    writing.flushSoon();
    const bool done = work(writing);
    container.parsed = writing.identity();
    // It is committed: only another file at the path makes it fail, not that nobody can look.
    return done &&
           (!isReplaced(writing, container.path) || refuse(container.path, L"its path no longer names it"));
}

Attempt::Attempt(FileIO& file_) : file(file_), length(file_.length()) {}

Attempt::~Attempt() {
    if (kept) {
        return;
    }
    const Brisa::Watch nobody({}); // an interrupted edit is taken back as well
    bool back = true;
    for (auto old = overwritten.rbegin(); old != overwritten.rend(); ++old) {
        back = file.seek_set(old->offset) &&
               file.writeAll(old->bytes.data(), old->bytes.size()) == old->bytes.size() && back;
    }
    // At last: some of it may lie behind the old end.
    back = (file.length() <= length || file.truncate(length)) && back;
    if (!back) {
        Console::err(L"MP4: what was written could not be taken back.\n");
    }
}

bool Attempt::remember(uint64_t offset, uint64_t size) {
    ByteArray bytes(size);
    if (!file.seek_set(offset) || file.readAll(bytes.data(), size) != size) {
        return false;
    }
    overwritten.push_back({offset, std::move(bytes)});
    return true;
}

bool Attempt::overwrite(uint64_t offset, const ByteArray& bytes) {
    return remember(offset, bytes.size()) && file.seek_set(offset) &&
           file.write(bytes.data(), bytes.size()) == bytes.size(); // in one piece, not block by block
}

bool Attempt::retype(uint64_t offset, uint32_t tag) {
    return overwrite(offset + sizeof(uint32_t), typeBytes(tag));
}

} // namespace MP4
