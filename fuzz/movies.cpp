// SPDX-License-Identifier: MIT
// Movies made from choices: boxes in any order, media data in all sorts of places, each sample with a number
// of its own. Whatever the edits, every number is still where it is pointed to, or the file is as it was.

#include <map>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz.h"
#include "support/Bytes.h"

namespace {

using namespace test;
using MP4::Container;

const MP4::Usertype& spatialSound = MP4::SpatialData::_UUID;
const Bytes
    record("\x01\x4D\x40\x1F\xFF\xE1\0\x09\x67\x4D\0\x1E\xEC\xA0\xA0\xFC\x80\x01\0\x04\x68\xEF\x3C\x80", 24);

/// What is at the places that a file points to, by the kind of table that does. Reads on its own, and only
/// what Movie makes.
class References {
public:
    explicit References(const Bytes& file_) : file(file_) { walk(0, file.size()); }

    /// Whether the other file points to the same, but for what an edit may take out with the user data.
    [[nodiscard]] bool in(const References& other) const {
        return std::all_of(found.begin(), found.end(), [&](const auto& kind) {
            const auto there = other.found.find(kind.first);
            return there == other.found.end() ? (kind.first == "ZDT9" || kind.first == "udta")
                                              : there->second == kind.second;
        });
    }

private:
    [[nodiscard]] uint64_t number(size_t at, size_t width) const {
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i) {
            value = value << 8 | static_cast<uint8_t>(file.at(at + i));
        }
        return value;
    }

    void walk(size_t from, size_t to) {
        while (to - from >= 8) {
            const Bytes type = file.substr(from + 4, 4);
            const uint64_t stated = number(from, 4);
            const size_t header = stated == 1 ? 16 : 8;
            const size_t size = stated == 1 ? number(from + 8, 8) : stated == 0 ? to - from : stated;
            if (size < header || size > to - from) {
                return;
            }
            look(type, from + header, from + size);
            from += size;
        }
    }

    void look(const Bytes& type, size_t body, size_t end) {
        if (type == "moov" && !found[type].empty()) {
            return; // the first one counts
        }
        for (const char* plain : {"moov", "trak", "mdia", "minf", "dinf", "stbl", "udta", "ZATR"}) {
            if (type == plain) {
                if (type == "trak" || type == "ZATR") {
                    track = type;
                    external = false;
                }
                found[type].emplace_back(); // none may get lost
                walk(body, end);
            }
        }
        if (type == "meta" ||
            (type == "uuid" && Bytes(spatialSound.begin(), spatialSound.end()) == file.substr(body, 16))) {
            walk(body + (type == "meta" ? 4 : 16), end);
        } else if (type == "dref") {
            external = file.at(body + 19) == 0;
        } else if (type == "stco" || type == "co64") {
            const size_t width = type == "stco" ? 4 : 8;
            for (uint64_t i = 0; i < number(body + 4, 4); ++i) {
                const uint64_t offset = number(body + 8 + width * i, width);
                // A table may have become the wider one.
                found["chunk of a " + track].push_back(external ? std::to_string(offset) : at(offset));
            }
        } else if (type == "saio" || type == "iloc") {
            found[type].push_back(at(number(body + (type == "saio" ? 8 : 14), 4)));
        } else if (type == "ZDT9" && at(number(body, 8)).substr(4) == "ZADT") {
            found[type].emplace_back(); // one that points to nothing may do so
        }
    }

    [[nodiscard]] Bytes at(uint64_t offset) const {
        return offset < file.size() ? file.substr(offset, 8) : "nothing";
    }

    const Bytes& file;
    Bytes track;           ///< the kind of the track that is being read
    bool external = false; ///< whether its samples are in another file
    std::map<Bytes, std::vector<Bytes>> found;
};

/// A file made from choices.
class Movie {
public:
    explicit Movie(FuzzedDataProvider& choose_) : choose(choose_) {
        for (size_t i = choose.ConsumeIntegralInRange<size_t>(1, 4); i > 0; --i) {
            homes.push_back(
                {choose.PickValueInArray({"mdat", "mdat", "large", "free", "skip", "uuid", "idat", "zeros"}),
                 "", 0});
        }
        for (uint32_t i = choose.ConsumeIntegralInRange<uint32_t>(1, 3); i > 0; --i) {
            addTrack(i);
        }
        userData = pick({"", box("udta"),
                         box("udta", {box("name", {zeros(choose.ConsumeIntegralInRange<size_t>(0, 40))})}),
                         box("udta", {box("loci", {zeros(20)})}),
                         box("udta", {box("ZDT9", {zeros(16)}), zeros(4)})});
        padding = pick({"", "", zeros(4), zeros(8), zeros(20)});
        sound = choose.ConsumeIntegralInRange(0, 3) == 0;
    }

    [[nodiscard]] Bytes make() {
        const size_t place = choose.ConsumeIntegralInRange<size_t>(0, homes.size());
        const Bytes first = pick({box("ftyp", {"isom", zeros(4)}), "", box("free", {box("moov")})});
        Bytes file;
        for (int round = 0; round < 2; ++round) { // the first tells where everything lies
            file = first;
            for (size_t i = 0; i <= homes.size(); ++i) {
                if (i == place) {
                    lastBox = file.size();
                    file += movieBox();
                }
                if (i < homes.size()) {
                    place_(file, homes[i], i >= place);
                }
            }
            if (sound) {
                addSound(file);
            }
        }
        if (choose.ConsumeIntegralInRange(0, 3) == 0 && file.compare(lastBox, 4, u32(1)) != 0) {
            file.replace(lastBox, 4, zeros(4)); // open to the end of the file
        }
        return file;
    }

private:
    struct Home {
        Bytes kind;
        Bytes media;
        uint64_t offset; ///< of the media data
    };
    struct Chunk {
        size_t home;
        uint64_t offset; ///< in its home
    };
    struct Track {
        std::vector<Chunk> chunks;
        bool wide, external, aside, table, item;
        Bytes padding;
    };

    Bytes pick(const std::vector<Bytes>& values) {
        return values[choose.ConsumeIntegralInRange<size_t>(0, values.size() - 1)];
    }

    void addTrack(uint32_t id) {
        Track track{{},
                    choose.ConsumeBool(),
                    rarely(),
                    rarely(),
                    !rarely(),
                    rarely(),
                    pick({"", "", zeros(4), zeros(12)})};
        for (uint32_t i = choose.ConsumeIntegralInRange<uint32_t>(0, 5); i > 0; --i) {
            Home& home =
                homes[track.chunks
                          .emplace_back(Chunk{choose.ConsumeIntegralInRange<size_t>(0, homes.size() - 1), 0})
                          .home];
            home.media += zeros(choose.ConsumeIntegralInRange<size_t>(0, 9));
            track.chunks.back().offset = home.media.size();
            home.media += u32(id << 16 | i) + "data";
        }
        tracks.push_back(track);
    }
    bool rarely() { return choose.ConsumeIntegralInRange(0, 7) == 0; }

    void place_(Bytes& file, Home& home, bool behindMovie) {
        if (home.kind == "zeros" && behindMovie) {
            file += zeros(64);
        }
        lastBox = file.size();
        const Bytes type = home.kind.size() == 4 ? home.kind : "mdat";
        const Bytes identity = type == "uuid" ? Bytes(16, 'u') : "";
        const Bytes whole =
            home.kind == "large" ? largeBox(type, {home.media}) : box(type, {identity, home.media});
        file += whole;
        home.offset = file.size() - home.media.size();
    }

    void addSound(Bytes& file) {
        lastBox = file.size();
        const Bytes data = box("ZADT", {"numbered", "sound   "});
        const Bytes table = co64({lastBox + 32, lastBox + 40});
        file +=
            uuidBox(spatialSound, {data, box("ZATR", {box("mdia", {box("minf", {box("stbl", {table})})})})});
        const size_t pointer = userData.find("ZDT9");
        if (pointer != Bytes::npos) {
            userData.replace(pointer + 4, 16, u64(lastBox + 24) + u64(data.size()));
        }
    }

    [[nodiscard]] Bytes movieBox() const {
        Bytes content = fullBox("mvhd", 0, {zeros(96)});
        for (const Track& track : tracks) {
            content += trackBox(track);
        }
        return box("moov", {content, userData, padding});
    }

    [[nodiscard]] Bytes trackBox(const Track& track) const {
        Bytes offsets;
        uint64_t last = 0;
        for (const Chunk& chunk : track.chunks) {
            last = homes[chunk.home].offset + chunk.offset;
            offsets += track.wide ? u64(last) : u32(static_cast<uint32_t>(last));
        }
        const auto count = static_cast<uint32_t>(track.chunks.size());
        const Bytes entry = box("avc1", {zeros(78), box("avcC", {record})});
        const Bytes place = u32(static_cast<uint32_t>(last));
        const Bytes table =
            box("stbl",
                {fullBox("stsd", 0, {u32(1), entry}), fullBox("stsc", 0, {u32(1), u32(1), u32(1), u32(1)}),
                 fullBox("stsz", 0, {u32(8), u32(count)}),
                 track.table ? fullBox(track.wide ? "co64" : "stco", 0, {u32(count), offsets}) : "",
                 track.aside && count > 0 ? fullBox("saio", 0, {u32(1), place}) : ""});
        const Bytes data = fullBox("dref", 0, {u32(1), box("url ", {u32(track.external ? 0 : 1)})});
        const Bytes item =
            fullBox("iloc", 0, {Bytes("\x44\0", 2), u16(1), u16(1), u16(0), u16(1), place, u32(8)});
        return box("trak", {tkhd(640),
                            box("mdia", {fullBox("mdhd", 0, {zeros(20)}),
                                         fullBox("hdlr", 0, {zeros(4), "vide", zeros(13)}),
                                         box("minf", {box("dinf", {data}), table})}),
                            track.item && count > 0 ? fullBox("meta", 0, {item}) : "", track.padding});
    }

    FuzzedDataProvider& choose;
    std::vector<Home> homes;
    std::vector<Track> tracks;
    Bytes userData;
    Bytes padding;
    bool sound;
    size_t lastBox = 0;
};

/// Any stretch will do: the position of an `mvhd` as a `meta` box is none of the judge's business.
bool addMeta(Container& container) {
    bool done = false;
    Brisa::FileIO::open(container.path, [&](Brisa::FileIO& source) {
        done =
            container.appendGpsMeta(source, container.moov == nullptr ? 0 : container.moov->offset + 8, 108);
    });
    return done;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    silenceConsole();
    FuzzedDataProvider choose(data, size);
    Bytes before = Movie(choose).make();
    write(before);
    Container container;
    require(container.attach(widePath()));
    container.newMovieBox = choose.ConsumeBool();
    container.keepUserData = choose.ConsumeBool();
    for (int edits = choose.ConsumeIntegralInRange(1, 4); edits > 0; --edits) {
        const int choice = choose.ConsumeIntegralInRange(0, 10);
        const bool done = choice < 10 ? edit(choice, container) : addMeta(container);
        const Bytes after = content();
        require(done ? References(before).in(References(after)) : after == before);
        before = after;
    }
    return 0;
}
