// SPDX-License-Identifier: MIT
#include "Tree.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <typeinfo>
#include <utility>
#include <vector>

#include "ByteOrder.h"
#include "Kind.h"
#include "MP4Box_avcc.h"

namespace edit {

namespace {

template <class Bytes>
std::string upToZero(const Bytes& bytes) {
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

/// Thousandths are as much as a number of single precision tells of a recording's seconds.
double roundedSeconds(float seconds) {
    return std::round(static_cast<double>(seconds) * 1000) / 1000;
}

using Fields = std::function<void(const MP4::BOX&, Json&)>;

/// The fields of one class, for boxes that are of it.
template <class Box, class Put>
Fields of(Put put) {
    return [put](const MP4::BOX& box, Json& fields) {
        if (const auto* const typed = MP4::as<Box>(box)) {
            put(*typed, fields);
        }
    };
}

const std::vector<Fields>& fieldTable() {
    static const std::vector<Fields> table{
        of<MP4::MVHD>([](const MP4::MVHD& box, Json& fields) {
            fields["timeStamp"] = box.timeStamp;
            fields["time_scale"] = static_cast<uint64_t>(box.time_scale);
            fields["duration"] = roundedSeconds(box.duration);
        }),
        of<MP4::TKHD>([](const MP4::TKHD& box, Json& fields) {
            fields["timeStamp"] = box.timeStamp;
            fields["width"] = box.width;
            fields["height"] = box.height;
        }),
        of<MP4::MDHD>([](const MP4::MDHD& box, Json& fields) {
            fields["timeStamp"] = box.timeStamp;
            fields["duration"] = box.duration;
            fields["time_scale"] = box.time_scale;
        }),
        of<MP4::STSD>([](const MP4::STSD& box, Json& fields) { fields["entryCount"] = box.entryCount; }),
        of<MP4::SOWT>([](const MP4::SOWT& box, Json& fields) {
            fields["data_reference_index"] = box.data_reference_index;
            fields["channel_count"] = box.channel_count;
            fields["sample_size"] = box.sample_size;
            fields["samplerate"] = box.samplerate;
        }),
        of<MP4::STTS>([](const MP4::STTS& box, Json& fields) { fields["entryCount"] = box.entryCount; }),
        of<MP4::STSC>([](const MP4::STSC& box, Json& fields) { fields["entryCount"] = box.entryCount; }),
        of<MP4::STSZ>([](const MP4::STSZ& box, Json& fields) {
            fields["sampleSize"] = box.sampleSize;
            fields["sample_count"] = box.sample_count;
            if (box.sampleSize != 0 || box.entries.size() == box.sample_count) {
                fields["sample_total"] = box.sample_total;
            }
        }),
        of<MP4::STCO>([](const MP4::STCO& box, Json& fields) { fields["indexes"] = box.entryCount; }),
        of<MP4::XYZ>([](const MP4::XYZ& box, Json& fields) {
            fields["xyz"] = upToZero(box.text);
            fields["language"] = box.language;
        }),
        of<MP4::LOCI>([](const MP4::LOCI& box, Json& fields) {
            fields["longitude"] = box.longitude;
            fields["latitude"] = box.latitude;
            fields["altitude"] = box.hasAltitude ? Json(box.altitude) : Json();
        }),
        of<MP4::HDLR>([](const MP4::HDLR& box, Json& fields) {
            fields["handler"] = upToZero(box.handler_type);
            fields["name"] = upToZero(box.name);
        }),
        of<MP4::UUID>([](const MP4::UUID& box, Json& fields) {
            fields["uuid"] = identityText(box.usertype);
            if (const char* const kind = kindOf(box.usertype)) {
                fields["kind"] = kind;
            }
        }),
    };
    return table;
}

/// Everything of an object but its end, so that members can follow.
std::string beginning(const Json& members) {
    std::string text = textOf(members);
    text.pop_back();
    return text;
}

template <class Entry>
bool eachEntry(Brisa::FileIO& file, const MP4::STCO& table, const std::function<void(uint64_t)>& visit) {
    constexpr uint64_t blockBytes = 65536;
    const uint64_t end = table.endWithin(~uint64_t{0});
    const uint64_t room = table.tableOffset > end ? 0 : (end - table.tableOffset) / sizeof(Entry);
    const uint64_t bytes = std::min<uint64_t>(room, table.entryCount) * sizeof(Entry);
    std::vector<uint8_t> block;
    for (uint64_t done = 0; done < bytes; done += block.size()) {
        block.resize(std::min(blockBytes, bytes - done));
        if (!file.seek_set(table.tableOffset + done) ||
            file.readAll(block.data(), block.size()) != block.size()) {
            return false;
        }
        for (size_t i = 0; i < block.size(); i += sizeof(Entry)) {
            visit(MP4::loadBigEndian<Entry>(&block[i]));
        }
    }
    return table.entryCount <= room;
}

} // namespace

std::string typeOf(const MP4::BOX& box) {
    std::string text;
    for (const wchar_t character : box.type()) {
        const auto byte = static_cast<unsigned char>(character); // of ISO 8859-1
        if (byte >= 0x80) {
            text += static_cast<char>(0xC0 | byte >> 6);
        }
        text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
    }
    return text;
}

std::string identityText(const MP4::Usertype& identity) {
    std::string text;
    for (size_t i = 0; i < identity.size(); ++i) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", identity[i]);
        text += i == 4 || i == 6 || i == 8 || i == 10 ? "-" : "";
        text += digits.data();
    }
    return text;
}

Boxes childrenOf(const MP4::BOX& box) {
    const auto* const nested = MP4::as<MP4::NestedBox>(box);
    return nested != nullptr ? Boxes(nested->children) : Boxes();
}

Json fieldsOf(const MP4::BOX& box) {
    Json fields = Json::object();
    if (typeid(box) != typeid(MP4::BOX)) { // the most boxes, and it has none
        for (const Fields& put : fieldTable()) {
            put(box, fields);
        }
    }
    return fields;
}

std::string textOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<const MP4::TRAK*> tracksOf(const MP4::Container& container) {
    std::vector<const MP4::TRAK*> tracks;
    const auto add = [&tracks](MP4::BOX& box) {
        tracks.push_back(static_cast<const MP4::TRAK*>(&box));
        return true;
    };
    if (container.moov != nullptr) { // the movie box that counts
        container.moov->find("trak", add);
    }
    container.find("uuid.ZATR", add);
    return tracks;
}

bool eachChunk(Brisa::FileIO& file, const MP4::STCO& table, const std::function<void(uint64_t)>& visit) {
    return MP4::as<MP4::CO64>(table) != nullptr ? eachEntry<uint64_t>(file, table, visit)
                                                : eachEntry<uint32_t>(file, table, visit);
}

const MP4::STCO* chunkTableOf(const MP4::TRAK& track) {
    const MP4::BOX* const narrow = track.first("mdia.minf.stbl.stco");
    return MP4::as<MP4::STCO>(narrow != nullptr ? narrow : track.first("mdia.minf.stbl.co64"));
}

bool writeBoxes(Boxes boxes, const TreeForm& form, const Sink& sink) {
    const size_t longestRun = boxes.empty() ? 1 : (boxes.size() - 1) / form.most + 1;
    bool written = sink("[");
    for (size_t from = 0; written && from < boxes.size();) {
        size_t count = 1;
        while (count < longestRun && from + count < boxes.size() && !form.alone(*boxes[from]) &&
               !form.alone(*boxes[from + count])) {
            ++count;
        }
        written = sink((from == 0 ? "\n" : ",\n") + beginning(form.members(boxes.subspan(from, count))));
        const Boxes inside = childrenOf(*boxes[from]);
        if (written && count == 1 && !inside.empty()) {
            written = sink(std::string(",\"") + form.childrenKey + "\":") && writeBoxes(inside, form, sink);
        }
        written = written && sink("}");
        from += count;
    }
    return written && sink("]");
}

bool writeTree(const MP4::Container& container, const Sink& sink) {
    const TreeForm form{
        .members =
            [](Boxes run) {
                const MP4::BOX& box = *run.front();
                Json members{{"type", typeOf(box)}, {"offset", box.offset}, {"size", box.boxSize}};
                Json fields = fieldsOf(box);
                if (!fields.empty()) {
                    members["fields"] = std::move(fields);
                }
                return members;
            },
        .childrenKey = "children",
        .alone = [](const MP4::BOX&) { return true; },
    };
    const Json file{{"file", Brisa::wchar::toBytes(container.path)},
                    {"size", container.root->boxSize},
                    {"whole", !container.incomplete()}};
    return sink(beginning(file) + ",\"children\":") && writeBoxes(container.root->children, form, sink) &&
           sink("}\n");
}

} // namespace edit
