// SPDX-License-Identifier: MIT
#include "Picture.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Info.h"
#include "Kind.h"
#include "Leftovers.h"
#include "PicturePage.h"
#include "SlamMetaData.h"

namespace edit {

namespace {

using MP4::BOX;
using MP4::fourcc;

constexpr uint64_t places = 1000;  ///< in which chunks are counted along the file
constexpr size_t mostBoxes = 2000; ///< shown one by one at one level

using Former = std::map<const BOX*, std::string>; ///< what the left-over boxes were

/// The colour of a box; one of those that the page knows.
const char* colourOf(const BOX& box, const Former& former) {
    if (former.contains(&box)) {
        return "hole";
    }
    if (const auto* const payload = MP4::as<MP4::UUID>(box)) {
        return kindOf(payload->usertype) == nullptr         ? "other"
               : SlamKind::of(payload->usertype) != nullptr ? "slam"
               : payload->is(MP4::SpatialData::_UUID)       ? "sound"
                                                            : "text";
    }
    switch (box.tag) {
    case fourcc("mdat"):
    case fourcc("imda"):
        return "media";
    case fourcc("free"):
    case fourcc("skip"):
        return "free";
    case fourcc("udta"):
    case fourcc("meta"):
        return "text";
    case fourcc("ZADT"):
    case fourcc("ZATR"):
        return "sound";
    case fourcc("moof"):
    case fourcc("mfra"):
    case fourcc("sidx"):
        return "index";
    case fourcc("moov"):
        return "movie";
    default: // as the box around it, where that has a colour of its own
        return box.depth > 0 && box.parent != nullptr ? colourOf(*box.parent, former)
               : box.depth > 0                        ? "movie"
                                                      : "other";
    }
}

/// Text that can stand in a page: nothing in it ends the element around it.
std::string forPage(std::string_view json) {
    std::string text;
    for (const char character : json) {
        text += character == '<' ? "\\u003c" : std::string(1, character);
    }
    return text;
}

Json memberOf(Boxes run, const Former& former) {
    const BOX& box = *run.front();
    const BOX& last = *run.back();
    Json members{{"type", typeOf(box)},
                 {"offset", box.offset},
                 {"size", last.end() - box.offset},
                 {"kind", colourOf(box, former)}};
    if (run.size() > 1) {
        members["count"] = run.size();
        return members;
    }
    Json fields = fieldsOf(box);
    if (fields.contains("kind")) {
        members["label"] = fields["kind"];
    }
    if (!fields.empty()) {
        members["fields"] = std::move(fields);
    }
    if (const auto was = former.find(&box); was != former.end()) {
        members["note"] = "it was " + was->second;
    }
    return members;
}

/// How many chunks of a track begin in each place along the file, as pairs; places without any are left out.
Json marksOf(Brisa::FileIO& file, const MP4::STCO& table, uint64_t length) {
    std::vector<uint64_t> counts(places);
    eachChunk(file, table, [&](uint64_t offset) {
        if (offset < length) {
            ++counts[static_cast<size_t>(static_cast<double>(offset) / static_cast<double>(length) * places)];
        }
    });
    Json marks = Json::array();
    for (size_t i = 0; i < counts.size(); ++i) {
        if (counts[i] != 0) {
            marks.push_back({i, counts[i]});
        }
    }
    return marks;
}

Json chunkRows(const MP4::Container& container, Brisa::FileIO& file, const Facts& facts) {
    Json rows = Json::array();
    auto told = facts.tracks.begin();
    for (const MP4::TRAK* const track : tracksOf(container)) {
        const bool isSpatial = track->tag == fourcc("ZATR");
        if (!isSpatial && told == facts.tracks.end()) {
            continue;
        }
        const std::string name = isSpatial ? "spatial" : (told++)->kind;
        const MP4::STCO* const table = chunkTableOf(*track);
        if (table != nullptr && table->entryCount != 0) {
            rows.push_back({{"name", name + " chunks"},
                            {"chunks", table->entryCount},
                            {"marks", marksOf(file, *table, facts.length)}});
        }
    }
    return rows;
}

/// What a person looks for among any number of other boxes.
std::set<const BOX*> neverInRuns(const MP4::Container& container, const Former& former) {
    std::set<const BOX*> alone;
    for (const auto& box : container.root->children) {
        const bool wanted =
            box->tag == fourcc("moov") || box->tag == fourcc("uuid") || former.contains(box.get());
        if (wanted && alone.size() < mostBoxes) {
            alone.insert(box.get());
        }
    }
    return alone;
}

} // namespace

bool writePicture(const MP4::Container& container, const Sink& sink) {
    Facts facts = factsOf(container);
    facts.file.erase(0, facts.file.rfind('/') + 1); // the page may go elsewhere
    const std::string_view page = picturePage;
    const std::string_view mark = "@DATA@";
    const size_t at = page.find(mark);
    bool written = false;
    container.open([&](Brisa::FileIO& file) {
        Former former;
        for (Leftover& left : leftoversIn(container, file)) {
            former.emplace(left.box, std::move(left.was));
        }
        const std::set<const BOX*> alone = neverInRuns(container, former);
        const TreeForm form{
            .members = [&](Boxes run) { return memberOf(run, former); },
            .childrenKey = "boxes",
            .alone = [&](const BOX& box) { return alone.contains(&box); },
            .most = mostBoxes,
        };
        const Sink safely = [&](std::string_view json) { return sink(forPage(json)); };
        const Json tracks = chunkRows(container, file, facts);
        written = sink(page.substr(0, at)) && safely("{\"length\":" + std::to_string(facts.length)) &&
                  safely(",\"places\":" + std::to_string(places)) && safely(",\"facts\":" + jsonOf(facts)) &&
                  safely(",\"tracks\":" + textOf(tracks)) && safely(",\"boxes\":") &&
                  writeBoxes(container.root->children, form, safely) && safely("}") &&
                  sink(page.substr(at + mark.size())) && facts.whole && !file.failed();
    });
    return written;
}

} // namespace edit
