// SPDX-License-Identifier: MIT
#include "Check.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <optional>

#include "ByteOrder.h"
#include "Kind.h"
#include "Leftovers.h"
#include "Tree.h"

namespace edit {

namespace {

using Brisa::FileIO;
using MP4::BOX;
using MP4::fourcc;

std::string named(const BOX& box) {
    return "'" + typeOf(box) + "'";
}

bool isOneOf(const BOX& box, std::initializer_list<uint32_t> tags) {
    return std::find(tags.begin(), tags.end(), box.tag) != tags.end();
}

/// Whether the four bytes can be a type: text, or the A9 of QuickTime's user data.
bool hasTextAsType(const BOX& box) {
    const auto bytes = std::bit_cast<std::array<uint8_t, sizeof box.tag>>(box.tag);
    return std::all_of(bytes.begin(), bytes.end(),
                       [](uint8_t byte) { return (byte >= 0x20 && byte <= 0x7E) || byte == 0xA9; });
}

/// Boxes at the top level in which no media data lies.
bool onlyDescribes(const BOX& box) {
    return isOneOf(box, {fourcc("ftyp"), fourcc("styp"), fourcc("moov"), fourcc("moof"), fourcc("mfra"),
                         fourcc("sidx"), fourcc("ssix"), fourcc("pdin"), fourcc("prft"), fourcc("emsg")});
}

/// Boxes whose children do not begin where the tree takes them to begin in every kind of file.
bool hasFieldsInFront(const BOX& box) {
    return isOneOf(box, {fourcc("avc1"), fourcc("sowt"), fourcc("meta")});
}

/// Where the first child of a box with boxes in it begins.
uint64_t firstChildOf(const BOX& box) {
    const uint64_t fields = box.tag == fourcc("stsd")   ? 8
                            : box.tag == fourcc("uuid") ? sizeof(MP4::Usertype)
                                                        : 0;
    return box.offset + box.headerSize() + fields;
}

/// The first byte of a stretch that is not 0.
std::optional<uint64_t> firstNonZero(FileIO& file, uint64_t from, uint64_t end) {
    std::vector<char> block(65536);
    for (uint64_t at = from; at < end && file.seek_set(at);) {
        const uint64_t count = file.readAll(block.data(), std::min<uint64_t>(block.size(), end - at));
        const auto last = block.begin() + static_cast<ptrdiff_t>(count);
        const auto found = std::find_if(block.begin(), last, [](char byte) { return byte != 0; });
        if (found != last) {
            return at + static_cast<uint64_t>(found - block.begin());
        }
        if (count == 0) {
            break;
        }
        at += count;
    }
    return {};
}

/// A whole box whose header begins with, or right behind, zeros that end at `nonZero`.
std::unique_ptr<BOX> boxAround(FileIO& file, uint64_t from, uint64_t nonZero, uint64_t length) {
    MP4::BinFile view(file);
    const uint64_t mostZeros = sizeof(uint32_t) - 1; // in front of the last byte of a size
    for (uint64_t at = nonZero - std::min(nonZero - from, mostZeros); at <= nonZero; ++at) {
        view.seek_set(at);
        auto box = std::make_unique<BOX>(view, 0, nullptr);
        const bool known =
            onlyDescribes(*box) || isOneOf(*box, {fourcc("mdat"), fourcc("free"), fourcc("skip"),
                                                  fourcc("uuid"), fourcc("udta"), fourcc("meta")});
        if (known && box->boxSize >= box->headerSize() && box->end() <= length) {
            return box;
        }
    }
    return nullptr;
}

/// Whether the track's data reference says that its samples are in another file (ISO/IEC 14496-12 8.7.2).
bool isElsewhere(FileIO& file, const MP4::TRAK& track) {
    // The header and fields of dref, then the header and flags of its first entry.
    constexpr uint64_t upToFlags = 8 + 8 + 8 + 4;
    const BOX* const holder = track.first("mdia.minf.dinf");
    std::array<char, upToFlags> bytes{};
    return holder != nullptr && file.seek_set(holder->offset + holder->headerSize()) &&
           file.readAll(bytes.data(), bytes.size()) == bytes.size() &&
           std::equal(&bytes[4], &bytes[8], "dref") && (bytes.back() & 1) == 0;
}

/// Looks at one file, and collects what it finds.
class Survey {
public:
    Survey(const MP4::Container& container_, FileIO& file_)
        : container(container_), file(file_), length(container_.root->boxSize),
          top(container_.root->children) {}

    std::vector<Finding> all() {
        topLevel();
        for (const auto& box : top) {
            inside(*box);
        }
        doubles();
        size_t number = 0;
        for (const MP4::TRAK* const track : tracksOf(container)) {
            chunks(*track,
                   track->tag == fourcc("ZATR") ? "the spatial sound" : "track " + std::to_string(++number));
        }
        for (const Leftover& left : leftoversIn(container, file)) {
            if (left.box->end() <= length) { // one that is cut off has been told
                found(left.box->offset, named(*left.box) + " of " + byteCount(left.box->boxSize) +
                                            " is left over from an edit (its content was " + left.was + ")");
            }
        }
        std::stable_sort(findings.begin(), findings.end(),
                         [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
        return std::move(findings);
    }

private:
    void found(uint64_t offset, std::string text) { findings.push_back({offset, std::move(text)}); }

    void topLevel() {
        for (const auto& box : top) {
            if (!hasTextAsType(*box) || box->boxSize < box->headerSize()) {
                found(box->offset, "the bytes here are no box header, but readers take them for one of " +
                                       byteCount(box->boxSize));
            } else if (box->end() > length) {
                found(box->offset,
                      named(*box) + " is cut off: " + byteCount(box->end() - length) + " of its " +
                          grouped(box->boxSize) + " are missing" +
                          (box->tag == fourcc("free") ? ", as an interrupted append leaves it" : ""));
            }
        }
        if (container.moov == nullptr) {
            found(0, "there is no 'moov': nothing tells what the media data are");
        }
        const uint64_t reached = top.empty() ? 0 : top.back()->end();
        if (reached < length) {
            unreached(reached, length);
        }
    }

    /// Bytes that no walk from box to box arrives at.
    void unreached(uint64_t from, uint64_t end) {
        const auto nonZero = firstNonZero(file, from, end);
        std::string text = byteCount(end - from) + (nonZero ? "" : " of zeros") + " that are no box";
        if (nonZero) {
            if (const auto hidden = boxAround(file, from, *nonZero, end)) {
                text = hidden->offset == from
                           ? text
                           : byteCount(hidden->offset - from) + " that are no box hide a " + named(*hidden) +
                                 " of " + byteCount(hidden->boxSize) + " at " + grouped(hidden->offset);
            }
        }
        found(from, text);
    }

    void inside(const BOX& box) {
        if (hasFieldsInFront(box)) {
            return;
        }
        const Boxes children = childrenOf(box);
        for (const auto& child : children) {
            if (child->end() > box.end()) {
                found(child->offset, named(*child) + " sticks out of the " + named(box) + " around it by " +
                                         byteCount(child->end() - box.end()));
            }
            inside(*child);
        }
        if (MP4::as<MP4::NestedBox>(box) == nullptr || (box.tag == fourcc("uuid") && children.empty())) {
            return;
        }
        const uint64_t reached = children.empty() ? firstChildOf(box) : children.back()->end();
        const uint64_t end = box.endWithin(length);
        if (reached < end &&
            firstNonZero(file, reached, end)) { // zeros pad, and end user data in QuickTime files
            found(reached, byteCount(end - reached) + " in " + named(box) + " that are no box");
        }
    }

    void doubles() {
        std::map<MP4::Usertype, uint64_t> seen;
        std::optional<uint64_t> movie;
        for (const auto& box : top) {
            if (box->tag == fourcc("moov")) {
                again("'moov'", box->offset, movie ? *movie : box->offset);
                movie = movie ? movie : box->offset;
            }
            const auto* const payload = MP4::as<MP4::UUID>(box.get());
            if (payload != nullptr && payload->is(payload->usertype)) {
                const auto first = seen.try_emplace(payload->usertype, box->offset).first;
                const char* const kind = kindOf(payload->usertype);
                again(kind != nullptr ? kind : "'uuid' " + identityText(payload->usertype), box->offset,
                      first->second);
            }
        }
    }

    void again(const std::string& what, uint64_t offset, uint64_t first) {
        if (offset != first) {
            found(offset, what + " is there again: the first one, at " + grouped(first) + ", counts");
        }
    }

    /// Whether media data may lie at an offset inside the file.
    bool mayBeMedia(uint64_t offset) {
        if (around == nullptr || offset < around->offset || offset >= around->end()) {
            const auto behind =
                std::upper_bound(top.begin(), top.end(), offset,
                                 [](uint64_t at, const auto& box) { return at < box->offset; });
            around = behind == top.begin() ? nullptr : std::prev(behind)->get();
        }
        return around == nullptr || offset >= around->end() ||
               (offset >= around->offset + around->headerSize() && !onlyDescribes(*around));
    }

    void chunks(const MP4::TRAK& track, const std::string& name) {
        const MP4::STCO* const table = chunkTableOf(track);
        if (table == nullptr || isElsewhere(file, track)) {
            return;
        }
        struct Bad {
            uint64_t count = 0;
            uint64_t first = 0;
            void add(uint64_t offset) { first = count++ == 0 ? offset : first; }
        };
        Bad outside;
        Bad noMedia;
        const bool complete = eachChunk(file, *table, [&](uint64_t offset) {
            if (offset >= length) {
                outside.add(offset);
            } else if (!mayBeMedia(offset)) {
                noMedia.add(offset);
            }
        });
        const std::string where = " of the " + grouped(table->entryCount) + " chunk offsets of " + name;
        if (!complete) {
            found(table->offset, named(*table) + " of " + name + " has no room for its " +
                                     grouped(table->entryCount) + " entries");
        }
        if (outside.count != 0) {
            found(table->offset, grouped(outside.count) + where + " lead outside the file, the first to " +
                                     grouped(outside.first));
        }
        if (noMedia.count != 0) {
            found(table->offset, grouped(noMedia.count) + where + " lead to no media, the first to " +
                                     grouped(noMedia.first));
        }
    }

    const MP4::Container& container;
    FileIO& file;
    const uint64_t length;
    const Boxes top;
    const BOX* around = nullptr; ///< the top-level box that held the last chunk
    std::vector<Finding> findings;
};

} // namespace

std::vector<Finding> findingsIn(const MP4::Container& container, bool& readable) {
    std::vector<Finding> findings;
    readable = false;
    container.open([&](FileIO& file) {
        findings = Survey(container, file).all();
        readable = !file.failed() && !container.incomplete();
    });
    return findings;
}

} // namespace edit
