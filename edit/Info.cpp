// SPDX-License-Identifier: MIT
#include "Info.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <utility>

#include "ByteOrder.h"
#include "GPSInfo.h"
#include "Kind.h"
#include "Leftovers.h"
#include "MP4Box_avcc.h"
#include "Tree.h"

namespace edit {

namespace {

using Brisa::FileIO;
using MP4::BOX;
using MP4::fourcc;

constexpr size_t mostTracks = 1000;

/// The first bytes of a box's body. What the box or the file does not hold reads as 0, as it does for a
/// parser.
class Body {
public:
    Body(FileIO& file, const BOX& box, size_t wanted = 64) : bytes(wanted) {
        const uint64_t from = box.offset + box.headerSize();
        const uint64_t end = box.endWithin(~uint64_t{0});
        if (from < end && file.seek_set(from)) {
            there = file.readAll(bytes.data(), std::min<uint64_t>(wanted, end - from));
        }
    }
    template <class Integer>
    [[nodiscard]] Integer number(size_t at) const {
        return MP4::loadBigEndian<Integer>(&bytes[at]);
    }
    [[nodiscard]] uint32_t tag(size_t at) const {
        uint32_t type;
        std::memcpy(&type, &bytes[at], sizeof type);
        return type;
    }
    /// What is there, without the first bytes of it.
    [[nodiscard]] std::string behind(size_t front) const {
        return {bytes.data() + std::min(front, there), bytes.data() + there};
    }
    [[nodiscard]] size_t size() const { return there; }

private:
    std::vector<char> bytes;
    size_t there = 0;
};

std::string fourLetters(uint32_t tag) {
    return typeOf(BOX(0, 0, tag, nullptr));
}

std::string kindOfHandler(uint32_t handler) {
    switch (handler) {
    case 0:
        return "unknown";
    case fourcc("vide"):
        return "video";
    case fourcc("soun"):
        return "sound";
    case fourcc("text"):
    case fourcc("sbtl"):
    case fourcc("subt"):
        return "text";
    case fourcc("meta"):
        return "metadata";
    case fourcc("tmcd"):
        return "time code";
    default:
        return fourLetters(handler);
    }
}

/// A sample entry of video (ISO/IEC 14496-12 12.1.3).
void readPicture(FileIO& file, const BOX& entry, Facts::Track& track) {
    const Body body(file, entry);
    track.width = body.number<uint16_t>(24);
    track.height = body.number<uint16_t>(26);
}

/// Channels of AAC as its configuration tells them (ISO/IEC 14496-1 7.2.6.5, 14496-3 1.6.2.1): the sample
/// entry around it says 2 for any number. 0 if it does not tell.
uint32_t aacChannels(const std::string& entry) {
    struct Descriptor {
        char tag;
        size_t fields; ///< bytes in front of the descriptor inside
    };
    size_t at = entry.find("esds");
    at = at == std::string::npos ? entry.size() : at + 8; // type, version and flags
    for (const auto& [tag, fields] : {Descriptor{3, 3}, Descriptor{4, 13}, Descriptor{5, 0}}) {
        if (at >= entry.size() || entry[at] != tag) {
            return 0;
        }
        do { // a length, whose bytes but the last have the high bit
            ++at;
        } while (at < entry.size() && (static_cast<unsigned char>(entry[at]) & 0x80) != 0);
        at += 1 + fields;
    }
    if (at + sizeof(uint16_t) > entry.size()) {
        return 0;
    }
    const unsigned config = MP4::loadBigEndian<uint16_t>(&entry[at]);
    const unsigned objectType = config >> 11;
    const unsigned frequency = config >> 7 & 15;
    const unsigned channels = config >> 3 & 15;
    const bool extended = objectType == 31 || frequency == 15;
    return extended || channels > 7 ? 0 : channels == 7 ? 8 : channels;
}

/// A sample entry of sound (ISO/IEC 14496-12 12.2.3), or QuickTime's second version of it.
void readSound(FileIO& file, const BOX& entry, Facts::Track& track) {
    const Body body(file, entry, 256);
    if (body.number<uint16_t>(8) == 2) {
        track.sampleRate = std::bit_cast<double>(body.number<uint64_t>(32));
        track.channels = body.number<uint32_t>(40);
    } else {
        track.channels = body.number<uint16_t>(16);
        track.sampleRate = body.number<uint32_t>(24) / 65536.0;
    }
    if (const uint32_t told = aacChannels(body.behind(0))) {
        track.channels = told;
    }
}

void readParameterSet(FileIO& file, const BOX& found, Facts::Track& track) {
    constexpr uint64_t longest = 65536; // enough for the first set; real records have some 50 bytes
    const std::string record = Body(file, found, std::min(found.boxSize, longest)).behind(0);
    MP4::AVCC box(found, nullptr);
    box.payload.assign(record.data(), record.size());
    unsigned char profile = 0;
    bool constrained = false;
    bool fullRange = false;
    if (box.get_profile_idc_and_constrained_set1_flag(profile, constrained, fullRange)) {
        track.profile = profile;
        track.fullRange = fullRange;
    }
}

Facts::Track trackFrom(FileIO& file, const MP4::TRAK& trak) {
    Facts::Track track;
    if (const BOX* const header = trak.first("tkhd")) {
        const Body body(file, *header);
        track.number = body.number<uint32_t>(body.number<uint8_t>(0) == 1 ? 20 : 12);
    }
    if (const auto* const media = MP4::as<MP4::MDIA>(trak.first("mdia"))) {
        track.kind = kindOfHandler(media->handler);
    }
    const auto* const header = MP4::as<MP4::MDHD>(trak.first("mdia.mdhd"));
    if (header != nullptr && header->time_scale != 0 && header->duration != 0) {
        track.seconds = static_cast<double>(header->duration) / header->time_scale;
    }
    if (const auto* const sizes = MP4::as<MP4::STSZ>(trak.first("mdia.minf.stbl.stsz"))) {
        track.samples = sizes->sample_count;
    }
    if (const MP4::STCO* const table = chunkTableOf(trak)) {
        track.chunks = table->entryCount;
    }
    const BOX* const entries = trak.first("mdia.minf.stbl.stsd");
    if (entries == nullptr || childrenOf(*entries).empty()) {
        return track;
    }
    const BOX& entry = *childrenOf(*entries).front();
    track.codec = typeOf(entry);
    if (track.kind == "video") {
        readPicture(file, entry, track);
    } else if (track.kind == "sound") {
        readSound(file, entry, track);
    }
    if (const BOX* const record = trak.first("mdia.minf.stbl.stsd.avc1.avcC")) {
        readParameterSet(file, *record, track);
    }
    return track;
}

/// To a centimetre, which takes away what the binary forms of a decimal number add to it.
double rounded(double degrees) {
    return std::round(degrees * 1e7) / 1e7;
}

/// The location text has the most digits. The box of fixed-point numbers often is the only one with an
/// altitude, but has no word for an unknown one other than 0.
std::optional<Facts::Position> locationIn(FileIO& file, const MP4::MOOV& moov) {
    GPSInfo position;
    if (const BOX* const given = moov.first("udta.@xyz")) {
        const Body body(file, *given, 256);
        position.attachRXYZ(body.behind(0).c_str());
    }
    if (const auto* const text = MP4::as<MP4::XYZ>(moov.first("udta.\xA9xyz"));
        text != nullptr && !(position.latitude.valid && position.longitude.valid)) {
        const Body body(file, *text, 256);
        position.attachRXYZ(body.behind(4).c_str());
    }
    const auto* const numbers = MP4::as<MP4::LOCI>(moov.first("udta.loci"));
    const bool told = position.latitude.valid && position.longitude.valid;
    if (!told && (numbers == nullptr || !numbers->hasPosition)) {
        return {};
    }
    Facts::Position found;
    found.latitude = rounded(told ? position.latitude.value : numbers->latitude);
    found.longitude = rounded(told ? position.longitude.value : numbers->longitude);
    if (told && position.altitude.valid) {
        found.altitude = position.altitude.value;
    } else if (numbers != nullptr && numbers->hasAltitude && !(told && numbers->altitude == 0)) {
        found.altitude = numbers->altitude;
    }
    return found;
}

Facts::Sound soundFrom(const MP4::UUID& block) {
    Facts::Sound sound;
    const BOX* const data = block.first("ZADT");
    const auto* const trak = MP4::as<MP4::TRAK>(block.first("ZATR"));
    if (data == nullptr || trak == nullptr) {
        return sound;
    }
    sound.bytes = data->boxSize - std::min(data->boxSize, data->headerSize());
    if (const auto* const entry = MP4::as<MP4::SOWT>(trak->first("mdia.minf.stbl.stsd.sowt"))) {
        sound.channels = entry->channel_count;
    }
    const auto* const header = MP4::as<MP4::MDHD>(trak->first("mdia.mdhd"));
    const auto* const sizes = MP4::as<MP4::STSZ>(trak->first("mdia.minf.stbl.stsz"));
    if (header != nullptr && sizes != nullptr && header->time_scale != 0 && sizes->sampleSize != 0) {
        sound.seconds = static_cast<double>(sound.bytes / sizes->sampleSize) / header->time_scale;
    }
    return sound;
}

void readBrands(FileIO& file, const BOX& box, Facts& facts) {
    constexpr size_t most = 256; // 62 compatible brands
    const Body body(file, box, most);
    for (size_t at = 0; at + 4 <= body.size(); at += at == 0 ? 8 : 4) { // a version behind the major brand
        const std::string brand = fourLetters(body.tag(at));
        if (at == 0 || brand != facts.brands.front()) {
            facts.brands.push_back(brand);
        }
    }
}

void readMovie(FileIO& file, const MP4::Container& container, Facts& facts) {
    const MP4::MOOV& moov = *container.moov;
    facts.movie = container.isMdatFirst() ? Facts::Movie::behind : Facts::Movie::first;
    facts.movieOffset = moov.offset;
    facts.movieSize = moov.boxSize;
    if (const auto* const header = MP4::as<MP4::MVHD>(moov.first("mvhd"))) {
        const Body body(file, *header); // the class keeps the duration in single precision
        const bool wide = header->version == 1;
        const auto scale = body.number<uint32_t>(wide ? 20 : 12);
        const uint64_t duration = wide ? body.number<uint64_t>(24) : body.number<uint32_t>(16);
        if (scale != 0 && duration != 0) { // 0 where only the fragments know
            facts.seconds = static_cast<double>(duration) / scale;
        }
        constexpr uint64_t latest = uint64_t{1} << 40; // further than any date can be printed
        if (header->timeStamp != 0 && header->timeStamp < latest) {
            facts.created = static_cast<int64_t>(header->timeStamp) - secondsFrom1904To1970;
        }
    }
    moov.find("trak", [&](BOX& box) {
        facts.tracks.size() < mostTracks
            ? facts.tracks.push_back(trackFrom(file, static_cast<MP4::TRAK&>(box)))
            : void(++facts.furtherTracks);
        return true;
    });
    facts.location = locationIn(file, moov);
}

void readPayloads(const MP4::Container& container, Facts& facts) {
    const auto add = [&](BOX& box) {
        const auto* const payload = MP4::as<MP4::UUID>(box);
        const char* const kind =
            payload == nullptr || box.boxSize < MP4::UUID::prefixSize ? nullptr : kindOf(payload->usertype);
        if (kind == nullptr) {
            return true;
        }
        if (payload->is(MP4::SpatialData::_UUID)) {
            facts.spatialSound = facts.spatialSound ? facts.spatialSound : soundFrom(*payload);
        } else if (facts.payload(kind) == nullptr) { // the first one counts
            const uint64_t front = box.headerSize() + payload->usertype.size();
            facts.payloads.push_back({kind, box.offset, box.boxSize - std::min(box.boxSize, front)});
        }
        return true;
    };
    container.find("uuid", add);
    if (container.moov != nullptr) {
        container.moov->find("trak.uuid", add);
    }
}

/// 1:02:03.500
std::string clockOf(double seconds) {
    const auto whole = static_cast<uint64_t>(std::clamp(seconds, 0.0, 1e15));
    const double rest = std::clamp(seconds, 0.0, 1e15) - static_cast<double>(whole / 60 * 60);
    return whole < 3600 ? formatted("%u:%06.3f", static_cast<unsigned>(whole / 60), rest)
                        : formatted("%lu:%02u:%06.3f", static_cast<unsigned long>(whole / 3600),
                                    static_cast<unsigned>(whole / 60 % 60), rest);
}

std::string describe(const Facts::Track& track) {
    std::string text = track.kind + ", " + (track.codec.empty() ? "no samples described" : track.codec);
    if (track.width != 0) {
        text += formatted(", %u x %u", unsigned{track.width}, unsigned{track.height});
    }
    if (track.channels != 0) {
        text += formatted(", %u channel%s, %.0f Hz", track.channels, track.channels == 1 ? "" : "s",
                          track.sampleRate);
    }
    if (track.fullRange) {
        text += *track.fullRange ? ", full range" : ", limited range";
    }
    if (track.seconds) {
        text += ", " + clockOf(*track.seconds);
    }
    return text;
}

std::string describe(const Facts::Position& position) {
    return formatted("%.6g, %.7g", position.latitude, position.longitude) +
           (position.altitude ? formatted(", %.6g m", *position.altitude) : "");
}

std::string describe(const Facts::Sound& sound) {
    return (sound.seconds ? clockOf(*sound.seconds) : "of unknown length") +
           (sound.channels != 0 ? formatted(", %u channels", sound.channels) : "") + ", " +
           grouped(sound.bytes) + " bytes";
}

std::string describeMovie(const Facts& facts) {
    const std::string place = grouped(facts.movieSize) + " bytes at " + grouped(facts.movieOffset);
    switch (facts.movie) {
    case Facts::Movie::first:
        return "first, " + place;
    case Facts::Movie::behind:
        return "behind the media, " + place;
    default:
        return "none";
    }
}

template <class Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json jsonOf(const Facts::Track& track) {
    return {{"id", track.number},
            {"kind", track.kind},
            {"codec", track.codec},
            {"seconds", orNull(track.seconds)},
            {"samples", track.samples},
            {"chunks", track.chunks},
            {"width", track.width},
            {"height", track.height},
            {"channels", track.channels},
            {"sample_rate", track.sampleRate},
            {"full_range", orNull(track.fullRange)},
            {"profile", orNull(track.profile)}};
}

} // namespace

const Facts::Payload* Facts::payload(const std::string& kind) const {
    const auto found = std::find_if(payloads.begin(), payloads.end(),
                                    [&](const Payload& payload) { return payload.kind == kind; });
    return found == payloads.end() ? nullptr : &*found;
}

Facts factsOf(const MP4::Container& container) {
    Facts facts;
    facts.file = Brisa::wchar::toBytes(container.path);
    facts.length = container.root->boxSize;
    bool read = false;
    container.open([&](FileIO& file) {
        if (const BOX* const brands = container.root->first("ftyp")) {
            readBrands(file, *brands, facts);
        }
        if (container.moov != nullptr) {
            readMovie(file, container, facts);
        }
        for (const Leftover& left : leftoversIn(container, file)) {
            facts.leftover += left.box->endWithin(facts.length) - left.box->offset;
        }
        read = !file.failed();
    });
    container.find("moof", [&](BOX&) {
        ++facts.fragments;
        return true;
    });
    readPayloads(container, facts);
    facts.whole = read && !container.incomplete();
    return facts;
}

std::string textOf(const Facts& facts) {
    std::string text = facts.file + "\n";
    const auto line = [&](const std::string& name, const std::string& value) {
        text += "  " + name + std::string(name.size() < 12 ? 12 - name.size() : 1, ' ') + value + "\n";
    };
    line("length", grouped(facts.length) + " bytes");
    if (!facts.brands.empty()) {
        std::string brands;
        for (const std::string& brand : facts.brands) {
            brands += (brands.empty() ? "" : ", ") + brand;
        }
        line("brands", brands);
    }
    if (facts.seconds) {
        line("duration", clockOf(*facts.seconds));
    }
    line("created", facts.created ? dateText(*facts.created) : "not told");
    line("moov", describeMovie(facts));
    if (facts.fragments != 0) {
        line("fragments", grouped(facts.fragments));
    }
    for (const Facts::Track& track : facts.tracks) {
        line("track " + std::to_string(track.number), describe(track));
    }
    if (facts.furtherTracks != 0) {
        line("and", grouped(facts.furtherTracks) + " tracks more");
    }
    if (facts.location) {
        line("location", describe(*facts.location));
    }
    if (facts.spatialSound) {
        line("spatial sound", describe(*facts.spatialSound));
    }
    for (const Facts::Payload& payload : facts.payloads) {
        line(payload.kind, grouped(payload.bytes) + " bytes");
    }
    if (facts.leftover != 0) {
        line("left over", grouped(facts.leftover) + " bytes of earlier edits");
    }
    if (!facts.whole) {
        line("incomplete", "not all of the file could be read");
    }
    return text;
}

std::string jsonOf(const Facts& facts) {
    Json tracks = Json::array();
    for (const Facts::Track& track : facts.tracks) {
        tracks.push_back(jsonOf(track));
    }
    Json json{{"file", facts.file},
              {"length", facts.length},
              {"whole", facts.whole},
              {"brands", facts.brands},
              {"seconds", orNull(facts.seconds)},
              {"created", facts.created ? Json(dateText(*facts.created)) : Json()},
              {"moov", facts.movie == Facts::Movie::none    ? Json()
                       : facts.movie == Facts::Movie::first ? Json("first")
                                                            : Json("behind")},
              {"moov_offset", facts.movieOffset},
              {"moov_size", facts.movieSize},
              {"fragments", facts.fragments},
              {"tracks", std::move(tracks)},
              {"further_tracks", facts.furtherTracks},
              {"location", nullptr},
              {"spatial_sound", nullptr}};
    if (facts.location) {
        json["location"] = {{"latitude", facts.location->latitude},
                            {"longitude", facts.location->longitude},
                            {"altitude", orNull(facts.location->altitude)}};
    }
    if (facts.spatialSound) {
        json["spatial_sound"] = {{"seconds", orNull(facts.spatialSound->seconds)},
                                 {"channels", facts.spatialSound->channels},
                                 {"bytes", facts.spatialSound->bytes}};
    }
    for (const Kind& kind : kinds()) {
        if (!kind.isWholeBox() && kind.identity != MP4::SpatialData::_UUID) {
            const Facts::Payload* const payload = facts.payload(kind.name);
            json[kind.name] = payload != nullptr ? Json(payload->bytes) : Json();
        }
    }
    json["leftover"] = facts.leftover;
    return textOf(json) + "\n";
}

} // namespace edit
