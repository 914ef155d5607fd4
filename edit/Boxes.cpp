// SPDX-License-Identifier: MIT
#include "Boxes.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace edit {

namespace {

using Brisa::FileIO;

/// Reads bytes of the container's file.
std::string stretchOf(const MP4::Container& container, uint64_t from, uint64_t to) {
    std::string bytes;
    bool complete = false;
    errno = 0;
    container.open([&](FileIO& file) {
        if (from <= to && to <= file.length() && file.seek_set(from)) {
            bytes.resize(to - from);
            complete = file.readAll(bytes.data(), bytes.size()) == bytes.size();
        }
    });
    if (!complete) {
        throw Failure("could not be read: " + (errno != 0 ? systemReason(errno) : "a box is cut off"));
    }
    return bytes;
}

} // namespace

void attach(MP4::Container& container, const std::string& name) {
    container.keepContents = false;
    errno = 0;
    demand(container.attach(Brisa::wchar::fromBytes(name)), name + ": could not be opened");
}

const MP4::Container& attached(Job& job) {
    job.container.keepContents = false;
    demand(job.container.attach(job.path), "could not be opened");
    if (!looksLikeMp4(job.container)) {
        throw Failure("is no MP4 file");
    }
    return job.container;
}

bool looksLikeMp4(const MP4::Container& container) {
    return container.moov != nullptr || container.mdat != nullptr || container.root->first("ftyp") != nullptr;
}

void findIn(const MP4::Container& container, const char* path, std::function<bool(MP4::BOX&)> predicate) {
    constexpr std::string_view movie = "moov.";
    if (!std::string_view(path).starts_with(movie)) {
        container.find(path, std::move(predicate));
    } else if (container.moov != nullptr) {
        container.moov->find(path + movie.size(), std::move(predicate));
    }
}

MP4::BOX* firstIn(const MP4::Container& container, const char* path) {
    MP4::BOX* first = nullptr;
    findIn(container, path, [&first](MP4::BOX& box) {
        first = first != nullptr ? first : &box;
        return false;
    });
    return first;
}

std::string bodyOf(const MP4::Container& container, const MP4::BOX& box) {
    const uint64_t identity = box.tag == MP4::fourcc("uuid") ? sizeof(MP4::Usertype) : 0;
    return stretchOf(container, box.offset + box.headerSize() + identity, box.end());
}

std::string wholeBox(const MP4::Container& container, const MP4::BOX& box) {
    return stretchOf(container, box.offset, box.end());
}

bool matches(const MP4::Container& container, uint64_t offset, std::string_view bytes) {
    constexpr size_t block = 65536;
    bool same = false;
    container.open([&](FileIO& file) {
        std::string piece;
        for (same = file.seek_set(offset); same && !bytes.empty(); bytes.remove_prefix(piece.size())) {
            piece.resize(std::min(block, bytes.size()));
            same = file.readAll(piece.data(), piece.size()) == piece.size() && bytes.starts_with(piece);
        }
    });
    return same;
}

} // namespace edit
