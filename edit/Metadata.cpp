// SPDX-License-Identifier: MIT
// Where a recording was made.

#include <algorithm>
#include <array>
#include <cmath>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Input.h"
#include "Kinds.h"

namespace edit {

void locationArguments(CLI::App& app, Options& options) {
    app.add_option("POSITION", options.value, "35.6895,139.6917[,ALTITUDE] or ISO 6709, +35.6895+139.6917/")
        ->required();
    app.add_option("--spherical", options.spherical, "file with spherical-video XML to be put in as well");
    app.add_flag("--xmp", options.xmp, "append an XMP packet with the position as well");
    app.add_option("--compass", options.compass, "the packet tells this direction, in degrees");
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

/// Whether the file has another content of that kind than the wanted one; then that is told.
bool isRefused(Job& job, const char* kindName, const std::string& wanted) {
    const Kind& kind = kindNamed(kindName);
    const MP4::BOX* const box = wanted.empty() ? nullptr : boxOf(job.container, kind);
    const bool other = box != nullptr && !holds(job.container, kind, *box, wanted);
    if (other && !job.options.replace) {
        job.refused(std::string("another ") + kindName + " is there; --replace puts this one in its place");
        return true;
    }
    return false;
}

bool has(const MP4::Container& container, const char* kindName, const std::string& wanted) {
    const Kind& kind = kindNamed(kindName);
    const MP4::BOX* const box = wanted.empty() ? nullptr : boxOf(container, kind);
    return wanted.empty() || (box != nullptr && holds(container, kind, *box, wanted));
}

/// One edit, whatever is missing or other than wanted.
bool setPlace(MP4::Container& container, const Place& place) {
    const bool packet = !has(container, "xmp", place.packet);
    const bool spherical = !has(container, "spherical", place.spherical);
    const Locations there(container, place.position);
    if (!there.complete() || (packet && spherical)) {
        return container.replaceLocations(place.position, spherical ? place.spherical : "",
                                          packet ? place.packet : "", there.other == 0);
    }
    return packet ? putInto(container, kindNamed("xmp"), place.packet)
                  : container.appendSphericalVideoXML(place.spherical);
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
    return [place](Job& job) {
        MP4::Container& container = job.container;
        if (container.moov == nullptr) {
            return job.failedFor("has no movie (moov) that could have a location");
        }
        if (const char* const reason =
                place.spherical.empty() ? nullptr : lacking(container, kindNamed("spherical"))) {
            return job.failedFor(reason);
        }
        if (isRefused(job, "xmp", place.packet) || isRefused(job, "spherical", place.spherical)) {
            return job.status();
        }
        const Locations there(container, place.position);
        if (there.other > 0 && !job.options.replace) {
            return job.refused("another location is there; --replace puts this one in its place");
        }
        if (there.complete() && has(container, "xmp", place.packet) &&
            has(container, "spherical", place.spherical)) {
            return job.nothingToDo("this location is there");
        }
        return setPlace(container, place) ? job.done([&] { return "location " + place.position.rxyz; })
                                          : job.failed("the location could not be set");
    };
}

Work removeLocation(const Options&) {
    return [](Job& job) {
        const MP4::Container& container = job.container;
        const bool there = std::any_of(locationPaths.begin(), locationPaths.end(),
                                       [&](const char* path) { return firstIn(container, path) != nullptr; });
        if (!there) {
            return job.notThere("has no location");
        }
        return job.container.removeLocations() ? job.done([] { return "location removed"; })
                                               : job.failed("the location could not be removed");
    };
}

Work removeBadLocation(const Options&) {
    return [](Job& job) {
        constexpr uint64_t malformed = 28;
        if (job.container.moov == nullptr) {
            return job.failedFor("has no movie (moov)");
        }
        const MP4::BOX* const loci = firstIn(job.container, "moov.udta.loci");
        const bool sound = loci == nullptr || loci->boxSize != malformed;
        if (!job.container.removeBadLOCI()) {
            return job.failed("the malformed location could not be taken out");
        }
        return sound ? job.nothingToDo("no malformed location is there")
                     : job.done([] { return "the malformed location is taken out"; });
    };
}

void sourceArgument(CLI::App& app, Options& options) {
    app.add_option("SOURCE", options.input, "the recording that it is taken from")->required();
}

Work gpsMeta(const Options& options) {
    return [source = options.input](Job& job) {
        MP4::Container& container = job.container;
        if (firstIn(container, "moov.meta") != nullptr) {
            return job.nothingToDo("moov has a meta box");
        }
        if (container.moov == nullptr || container.moov->children.size() < 3) {
            return job.failedFor("has no movie (moov), or one that is next to empty");
        }
        return withBoxOf(source, "moov.meta",
                         [&](Brisa::FileIO& file, const MP4::BOX& meta) {
                             return container.appendGpsMeta(file, meta.offset, meta.boxSize);
                         })
                   ? job.done([&] { return "meta box of " + source + " put in"; })
                   : job.failed("the meta box could not be put in");
    };
}

} // namespace edit
