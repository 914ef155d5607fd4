// Where a recording was made.

#include <algorithm>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Input.h"

namespace edit {

void locationArguments(CLI::App& app, Options& options) {
    app.add_option("POSITION", options.value, "35.6895,139.6917[,ALTITUDE] or ISO 6709, +35.6895+139.6917/")
        ->required();
    app.add_option("--spherical", options.spherical, "file with spherical-video XML to be put in as well");
    CLI::Option* const xmp =
        app.add_flag("--xmp", options.xmp, "append an XMP packet with the position as well");
    app.add_option("--compass", options.compass, "the packet tells this direction, in degrees")->needs(xmp);
    app.add_option("--tool", options.tool, "and this creator tool")->needs(xmp);
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

} // namespace

Work location(const Options& options) {
    demandPlainName(options.tool);
    const GPSInfo position = positionOf(options.value, options.compass);
    std::string xml;
    if (!options.spherical.empty()) {
        xml = contentOf(options.spherical);
        demandXml(xml, options.spherical);
    }
    const std::string packet = options.xmp ? position.to_XMP_string(options.tool.c_str(), false, "") : "";
    return [position, xml, packet](Session& session) {
        MP4::Container& container = session.container;
        const bool done = (xml.empty() ? container.appendLocations(position)
                                       : container.appendLocationAndSphericalVideoXML(position, xml)) &&
                          (packet.empty() || container.appendXMP(packet));
        return done ? session.done("location " + position.rxyz)
                    : session.failed("the location could not be set");
    };
}

Work removeBadLocation(const Options&) {
    return [](Session& session) {
        const auto sizeOf = [&session] {
            const MP4::BOX* const loci = session.container.root->first("moov.udta.loci");
            return loci != nullptr ? loci->boxSize : 0;
        };
        const uint64_t before = sizeOf();
        if (!session.container.removeBadLOCI()) {
            return session.failed("the malformed location could not be taken out");
        }
        return sizeOf() == before ? session.nothingToDo("no malformed location is there")
                                  : session.done("the malformed location is taken out");
    };
}

void sourceArgument(CLI::App& app, Options& options) {
    app.add_option("SOURCE", options.input, "the recording that it is taken from")->required();
}

Work gpsMeta(const Options& options) {
    return [source = options.input](Session& session) {
        MP4::Container& container = session.container;
        if (container.root->first("moov.meta") != nullptr) {
            return session.nothingToDo("moov has a meta box");
        }
        return withBoxOf(source, "moov.meta",
                         [&](Brisa::FileIO& file, const MP4::BOX& meta) {
                             return container.appendGpsMeta(file, meta.offset, meta.boxSize);
                         })
                   ? session.done("meta box of " + source + " put in")
                   : session.failed("the meta box could not be put in");
    };
}

} // namespace edit
