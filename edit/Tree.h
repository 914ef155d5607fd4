// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "MP4Container.h"
#include "Text.h"

/// What a box tree tells to people and to other programs: names, identities, fields, chunk tables, JSON.
///
/// Texts are UTF-8, whatever the bytes of the file are.
namespace edit {

using Json = nlohmann::ordered_json; ///< members in the order in which they were put in
using Boxes = std::span<const std::unique_ptr<MP4::BOX>>;

/// The four characters of a type as BOX::type() tells them.
std::string typeOf(const MP4::BOX& box);
/// 8b18d5c3-0e7a-25c7-b3ad-252358b401ee
std::string identityText(const MP4::Usertype& identity);
/// The boxes directly inside a box.
Boxes childrenOf(const MP4::BOX& box);
/// The fields that the box's class has read, under the names that a text dump gives them.
Json fieldsOf(const MP4::BOX& box);
/// On one line; bytes that are no UTF-8 become U+FFFD.
std::string textOf(const Json& json);

/// All that describe samples: the tracks of the movie, then those of spatial sound.
std::vector<const MP4::TRAK*> tracksOf(const MP4::Container& container);
/// Calls `visit` with each chunk offset of a table, which is read in blocks. False when the box has no room
/// for its entries, or the file could not be read.
bool eachChunk(Brisa::FileIO& file, const MP4::STCO& table, const std::function<void(uint64_t)>& visit);
/// The chunk-offset table of a track (a `trak` or `ZATR` box); null if it has none.
const MP4::STCO* chunkTableOf(const MP4::TRAK& track);

/// How writeBoxes() tells boxes.
struct TreeForm {
    std::function<Json(Boxes)> members; ///< of the object that stands for one box, or for a run of several
    const char* childrenKey;            ///< the member that holds the array of a box's children
    std::function<bool(const MP4::BOX&)> alone; ///< whether a box is never told as one of a run
    /// Among more boxes than this, those that need not stand alone are told in runs.
    size_t most = std::numeric_limits<size_t>::max();
};
/// Writes boxes as a JSON array, box by box: memory does not grow with their number.
bool writeBoxes(Boxes boxes, const TreeForm& form, const Sink& sink);

/// Writes the tree as one JSON object: `type`, `offset`, `size`, `fields` and, of a box with boxes in it,
/// `children`. The outermost object is the file.
bool writeTree(const MP4::Container& container, const Sink& sink);

} // namespace edit
