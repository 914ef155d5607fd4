// SPDX-License-Identifier: MIT
// Where a recording was made.

#include <algorithm>
#include <array>
#include <cmath>

#include <CLI/CLI.hpp>

#include "Boxes.h"
#include "Commands.h"
#include "Content.h"
#include "SideFile.h"
#include "Values.h"

namespace edit {

void locationArguments(CLI::App& app, Options& options) {
    app.add_option("POSITION", options.value, "35.6895,139.6917[,ALTITUDE] or ISO 6709, +35.6895+139.6917/")
        ->required();
    app.add_option("--spherical", options.spherical, "file with spherical-video XML to be put in as well");
    app.add_flag("--xmp", options.xmp, "append an XMP packet with the position as well");
    numberOption(app, "--compass", "the packet tells this direction, in degrees",
                 [&options](double degrees) { options.compass = degrees; });
    app.add_option("--tool", options.tool, "and this creator tool");
    app.add_flag("--replace", options.replace, "replace another location, packet or XML that is there");
}

namespace {

/// Refuses what XML, or the packet's own limits, would make unreadable.
void demandPlainName(const std::string& tool) {
    constexpr size_t longest = 200;
    const bool plain = tool.size() <= longest && std::all_of(tool.begin(), tool.end(), [](char c) {
                           return c >= ' ' && c <= '~' && c != '&' && c != '<' && c != '>';
                       });
    if (!plain) {
        throw WrongArguments("tool '" + tool + "': not a plain name of up to 200 characters");
    }
}

constexpr std::array<const char*, 3> locationPaths{"moov.udta.@xyz", "moov.udta.loci", "moov.udta.\xA9xyz"};

bool isNear(const GPSInfo::BaseX& one, const GPSInfo::BaseX& other, double tolerance) {
    return one.valid == other.valid && std::abs(one.value - other.value) <= tolerance;
}

/// Whether a text tells the position: to the digits that it has, and at the same altitude if both have one.
bool tells(const std::string& text, const GPSInfo& wanted) {
    GPSInfo told;
    told.attachRXYZ(text.c_str());
    const size_t point = std::min(text.find('.'), text.size());
    const size_t end = std::min(text.find_first_not_of("0123456789", point + 1), text.size());
    const double lastDigit = std::pow(10.0, -static_cast<double>(end - std::min(point + 1, end)));
    const bool altitude =
        !told.altitude.valid || !wanted.altitude.valid || isNear(told.altitude, wanted.altitude, 0.5);
    return text == wanted.to_CXYZ_string() ||
           (altitude && isNear(told.latitude, wanted.latitude, lastDigit) &&
            isNear(told.longitude, wanted.longitude, lastDigit));
}

/// Whether a text that has room for all digits tells the position.
bool tellsAll(const std::string& text, const GPSInfo& wanted) {
    GPSInfo told;
    told.attachRXYZ(text.c_str());
    return isNear(told.latitude, wanted.latitude, 0) && isNear(told.longitude, wanted.longitude, 0) &&
           isNear(told.altitude, wanted.altitude, 0);
}

/// Whether the box tells the position, as closely as its form allows.
bool tells(const MP4::Container& container, const MP4::BOX& box, const GPSInfo& wanted) {
    if (const auto* const loci = MP4::as<MP4::LOCI>(box)) {
        const auto same = [](double told, const GPSInfo::BaseX& number) {
            return GPSInfo::BaseX{true, told}.toUINT32Fixnum() == number.toUINT32Fixnum();
        };
        return loci->hasPosition && same(loci->latitude, wanted.latitude) &&
               same(loci->longitude, wanted.longitude) && same(loci->altitude, wanted.altitude);
    }
    if (const auto* const text = MP4::as<MP4::XYZ>(box)) {
        return tells(text->text, wanted);
    }
    return tellsAll(bodyOf(container, box), wanted);
}

/// The location boxes of a movie, against a position.
struct Locations {
    unsigned same = 0;
    unsigned other = 0;

    Locations(const MP4::Container& container, const GPSInfo& wanted) {
        for (const char* path : locationPaths) {
            const MP4::BOX* const box = firstIn(container, path);
            same += box != nullptr && tells(container, *box, wanted) ? 1 : 0;
            other += box != nullptr && !tells(container, *box, wanted) ? 1 : 0;
        }
    }
    [[nodiscard]] bool complete() const { return same == locationPaths.size(); }
};

/// What `location` puts into a file.
struct Place {
    GPSInfo position;
    std::string spherical; ///< XML; empty: none
    std::string packet;    ///< the same
};

/// Whether the file has that content, as the one of its kind; if none is wanted, it has.
bool has(const MP4::Container& container, const char* kindName, const std::string& wanted) {
    const Kind& kind = kindNamed(kindName);
    const MP4::BOX* const box = wanted.empty() ? nullptr : boxOf(container, kind);
    return wanted.empty() || (box != nullptr && holds(container, kind, *box, wanted));
}

/// Throws Failure where a content of that kind is that is not the wanted one.
void demandNoOther(const MP4::Container& container, const char* kindName, const std::string& wanted) {
    if (boxOf(container, kindNamed(kindName)) != nullptr && !has(container, kindName, wanted)) {
        throw anotherIsThere(kindName);
    }
}

/// One edit, whatever is missing or other than wanted.
bool setPlace(MP4::Container& container, const Place& place) {
    const bool packet = !has(container, "xmp", place.packet);
    const bool spherical = !has(container, "spherical", place.spherical);
    const Locations there(container, place.position);
    const bool onlyPacket = packet && !spherical && there.complete();
    if (onlyPacket && container.outputPath == nullptr) { // into the file as it stands
        return putInto(container, kindNamed("xmp"), place.packet);
    }
    return container.replaceLocations(place.position, spherical ? place.spherical : "",
                                      packet ? place.packet : "", there.other == 0);
}

} // namespace

Work location(const Options& options) {
    demandPlainName(options.tool);
    if ((options.compass || options.tool != Options().tool) && !options.xmp) {
        throw WrongArguments("--compass and --tool belong to the packet of --xmp");
    }
    Place place{positionOf(options.value, options.compass), "", ""};
    if (!options.spherical.empty()) {
        place.spherical = contentOf(options.spherical);
        demandXml(place.spherical, options.spherical);
    }
    if (options.xmp) {
        place.packet = place.position.to_XMP_string(options.tool.c_str(), false, "");
    }
    return {[place](Job& job) {
                MP4::Container& container = job.container;
                if (container.moov == nullptr) {
                    throw Failure("has no movie (moov) that could have a location");
                }
                if (!place.spherical.empty()) {
                    demandRoom(container, kindNamed("spherical"));
                }
                const Locations there(container, place.position);
                if (!job.options.replace) {
                    demandNoOther(container, "xmp", place.packet);
                    demandNoOther(container, "spherical", place.spherical);
                    if (there.other > 0) {
                        throw anotherIsThere("location");
                    }
                }
                if (there.complete() && has(container, "xmp", place.packet) &&
                    has(container, "spherical", place.spherical)) {
                    return job.nothingToDo("this location is there");
                }
                demand(setPlace(container, place), "the location could not be set");
                job.done([&] { return "location " + place.position.rxyz; });
            },
            Result::newFile};
}

Work removeLocation(const Options&) {
    return {[](Job& job) {
                const bool there =
                    std::any_of(locationPaths.begin(), locationPaths.end(),
                                [&](const char* path) { return firstIn(job.container, path) != nullptr; });
                if (!there) {
                    throw Failure("has no location", Status::notThere);
                }
                demand(job.container.removeLocations(), "the location could not be removed");
                job.done([] { return "location removed"; });
            },
            Result::newFile};
}

Work removeBadLocation(const Options&) {
    return {[](Job& job) {
                constexpr uint64_t malformed = 28;
                if (job.container.moov == nullptr) {
                    throw Failure("has no movie (moov)");
                }
                const MP4::BOX* const loci = firstIn(job.container, "moov.udta.loci");
                if (loci == nullptr || loci->boxSize != malformed) {
                    return job.nothingToDo("no malformed location is there");
                }
                demand(job.container.removeBadLOCI(), "the malformed location could not be taken out");
                job.done([] { return "the malformed location is taken out"; });
            },
            Result::newFile};
}

void sourceArgument(CLI::App& app, Options& options) {
    app.add_option("SOURCE", options.input, "the recording that it is taken from")->required();
}

Work gpsMeta(const Options& options) {
    return {[name = options.input](Job& job) {
                MP4::Container& container = job.container;
                if (firstIn(container, "moov.meta") != nullptr) {
                    return job.nothingToDo("moov has a meta box");
                }
                if (container.moov == nullptr || container.moov->children.size() < 3) {
                    throw Failure("has no movie (moov), or one that is next to empty");
                }
                MP4::Container source;
                attach(source, name);
                const MP4::BOX* const meta = firstIn(source, "moov.meta");
                if (meta == nullptr || meta->endWithin(source.root->boxSize) != meta->end()) {
                    throw Failure(name + ": has no whole moov.meta that could be taken");
                }
                bool done = false;
                source.open([&](Brisa::FileIO& file) {
                    done = container.appendGpsMeta(file, meta->offset, meta->boxSize);
                });
                demand(done, "the meta box could not be put in");
                job.done([&] { return "meta box of " + name + " put in"; });
            },
            Result::newFile};
}

} // namespace edit
