// SPDX-License-Identifier: MIT
// The position record, and the edits that add location, spherical-video, XMP and axis metadata.

#include <clocale>
#include <cmath>
#include <limits>

#include "GPSInfo.h"
#include "support/Edit.h"

using namespace test;
using MP4::Container;

namespace {

GPSInfo at(const char* text) {
    GPSInfo position;
    position.attachRXYZ(text);
    return position;
}

} // namespace

TEST(GPSInfo, ReadsIso6709InDegrees) {
    struct Case {
        const char* text;
        double latitude; ///< NaN: invalid
        double longitude;
        double altitude;
    };
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    const Case cases[] = {
        {"+35.6895+139.6917/", 35.6895, 139.6917, none},
        {"-33.8688+151.2093/", -33.8688, 151.2093, none},
        {"+35.6895+139.6917+12.5/", 35.6895, 139.6917, 12.5},
        {"+35.6895+139.6917-3.456CRSWGS_84/", 35.6895, 139.6917, -3.456},
        {"+35.6895+139.6917+12.5X/", 35.6895, 139.6917, none},
        {"+35+139+12.5CRSWGS_84/x", 35, 139, none},
        {"+35.-139/", 35, -139, none},
        {"+3541.37+13941.5/", none, none, none}, // degrees and minutes
        {"+5.5+139.6917/", none, 139.6917, none},
        {"*35.5+139.6917/", none, 139.6917, none},
        {"+35.6895", 35.6895, none, none},
        {"+", none, none, none},
        {"", none, none, none},
        {"+99999999999999999999999999999999999999999999", none, none, none},
    };
    for (const auto& [text, latitude, longitude, altitude] : cases) {
        const GPSInfo position = at(text);
        for (const auto& [read, expected] :
             {std::pair{position.latitude, latitude}, {position.longitude, longitude}, {position.altitude, altitude}}) {
            EXPECT_EQ(read.valid, !std::isnan(expected)) << text;
            EXPECT_NEAR(read.valid ? read.value : 0, std::isnan(expected) ? 0 : expected, 1e-6) << text;
        }
        EXPECT_EQ(position.rxyz, text);
    }
}

TEST(GPSInfo, WritesTextsToTheLastCharacterInAnyLocale) {
    std::setlocale(LC_ALL, "de_DE.UTF-8"); // where there is none, the test shows no less than in any other
    GPSInfo position = at("-33.8688+151.2093-3.456/");
    EXPECT_EQ(position.to_CXYZ_string(), "-33.8688+151.2093/");
    position.attachCompass(359.96);
    const std::string elements = "      <exif:GPSLatitude>33,52.128001S</exif:GPSLatitude>\n"
                                 "      <exif:GPSLongitude>151,12.558000E</exif:GPSLongitude>\n"
                                 "      <exif:GPSAltitude>345/100</exif:GPSAltitude>\n"
                                 "      <exif:GPSAltitudeRef>1</exif:GPSAltitudeRef>\n"
                                 "      <exif:GPSImgDirection>3600/10</exif:GPSImgDirection>\n"
                                 "      <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>\n";
    EXPECT_EQ(position.to_XMP_part(), elements);
    EXPECT_EQ(position.to_XMP_string("tool", true, "on"),
              "<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
              "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
              "  <rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
              "    <rdf:Description rdf:about='' xmlns:exif='http://ns.adobe.com/exif/1.0/'>\n"
              "      <x:CreatorTool>tool</x:CreatorTool>\n" +
                  elements +
                  "    </rdf:Description>\n  </rdf:RDF>\n  <VideoReEncorded>true</VideoReEncorded>\n"
                  "  <VideoStabilization>on</VideoStabilization>\n</x:xmpmeta>\n<?xpacket end='w'?>\n");
    EXPECT_EQ(GPSInfo().to_XMP_part() + GPSInfo().to_CXYZ_string(), "");
    EXPECT_THAT(at("+35.6895").to_XMP_part(), testing::HasSubstr("<exif:GPSLongitude>0,0.000000E")) << "the latitude alone counts";
    const std::string cut = GPSInfo().to_XMP_string("", false, std::string(600, 's'));
    EXPECT_EQ(cut.find("</x:xmpmeta>") - cut.find("  <VideoStabilization>"), 511U);
    EXPECT_EQ(at("+05.5+005.5/").to_CXYZ_string(), "+5.5000+05.5000/");
    position.attachRXYZ("+12.5-1");
    position.latitude.value = 1e300;
    EXPECT_EQ(position.latitude.valid, true);
    EXPECT_EQ(position.to_CXYZ_string(), "");
    std::setlocale(LC_ALL, "C");
}

TEST(GPSInfo, TakesTheCompassFromAPacket) {
    for (const auto& [fraction, expected] : {std::pair{"905/10", 90.5}, {"905/0", -1.0}, {"x/10", -1.0}}) {
        GPSInfo position;
        position.attachCompass(1);
        position.attachCompass(std::string("..<exif:GPSImgDirection>") + fraction + "</exif:GPSImgDirection>");
        EXPECT_EQ(position.compass.valid, expected > 0) << fraction;
        EXPECT_EQ(position.compass.valid ? position.compass.value : -1, expected);
    }
}

// ---- Edits -----------------------------------------------------------------------------------------

namespace {

const GPSInfo tokyo = at("+35.5000+139.0000-0.5/");
const Bytes given = box("@xyz", {"+35.5000+139.0000-0.5/"});
const Bytes location = fullBox("loci", 0, {zeros(4), u32(0x008B0000), u32(0x00238000), u32(0xFFFF8000), zeros(4)});
const Bytes locationText = box("\xA9xyz", {u16(18), u16(0x15C7), "+35.5000+139.0000/"});
const Bytes locations = cat({given, location, locationText});
const auto all = static_cast<uint32_t>(locations.size());
const Bytes media = box("mdat", {"samples"});

Bytes spherical(const Bytes& xml) {
    return uuidBox(MP4::SphericalXML::_UUID, {xml});
}

/// A movie whose video track has one chunk and ends with `inTrack`.
Bytes movie(uint32_t chunk, Parts inTrack, Parts behind) {
    return box("moov", {box("mvhd"), track({stco({chunk})}, 640, inTrack), cat(behind)});
}

Bytes ahead(uint32_t chunk, Parts inTrack, Parts rest) {
    return movie(chunk, inTrack, rest) + media;
}
Bytes behind(uint32_t chunk, Parts inTrack, Parts rest) {
    return media + movie(chunk, inTrack, rest);
}
Bytes udta(Parts boxes) {
    return box("udta", boxes);
}

/// The last byte of a file with media data behind its movie, too.
const auto lastByte =
    static_cast<uint32_t>(behind(8, {}, {track({stco({0})}), udta({}), box("free", {zeros(19000)})}).size() + media.size() - 1);
const Bytes xml = spherical("<xml/>");
const Bytes other = uuidBox(MP4::XMP::_UUID);

const auto addLocations = edit(&Container::appendLocations, tokyo);
const auto addSpherical = edit(&Container::appendSphericalVideoXML, "<xml/>");
const auto addPacket = edit(&Container::appendXMP, "<xmp/>");
const auto addBoth = edit(&Container::appendLocationAndSphericalVideoXML, tokyo, "<xml/>");
const auto addTheFirst = edit(&Container::appendLocationAndSphericalVideoXML, tokyo, "");
const auto addHalfAPosition = edit(&Container::appendLocationAndSphericalVideoXML, at("+35.6895"), "");
const auto addNeither = edit(&Container::appendLocationAndSphericalVideoXML, GPSInfo(), "");
const auto removeBad = edit(&Container::removeBadLOCI);

bool addPacketAndAxis(Container& container) {
    return container.appendXMP("") && container.appendAxis("axis") && container.appendAxis("axis");
}

bool addMeta(Container& container) {
    const Scratch scratch;
    bool added = false;
    Brisa::FileIO::open(scratch.file("xyz" + box("meta", {"gps"}) + "xyz"),
                        [&](Brisa::FileIO& file) { added = container.appendGpsMeta(file, 3, 11); });
    return added;
}

/// Whether each edit is refused without a word.
bool none(Container& container) {
    return !addLocations(container) && !addSpherical(container) && !addBoth(container) && !addMeta(container);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Location, Edit,
    testing::Values(
        EditCase{"MediaBehind", addLocations, ahead(100, {}, {udta({box("name")})}),
                 ahead(100 + all, {}, {udta({box("name"), locations})})},
        EditCase{"MediaOnBothSides", addLocations,
                 behind(8, {}, {track({stco({lastByte})}), udta({}), box("free", {zeros(19000)})}) + media,
                 behind(8, {}, {track({stco({lastByte + all})}), udta({locations}), box("free", {zeros(19000)})}) + media},
        EditCase{"NoUserData", addLocations, ahead(100, {}, {}), ahead(100 + 8 + all, {}, {udta({locations})})},
        EditCase{"UserDataClosedByZeros", addLocations, behind(8, {}, {udta({box("name"), zeros(4)})}),
                 behind(8, {}, {udta({box("name"), locations, zeros(4)})})},
        EditCase{"AllAreThere", addLocations, behind(8, {}, {udta({locations})}), "", "MP4: No location-boxes were appended.\n"},
        EditCase{"OpenEndedMovie", addLocations, media + withSize(movie(8, {}, {udta({})}), 0), behind(8, {}, {udta({locations})})},
        EditCase{"DamagedUserData", addLocations, behind(8, {}, {withSize(udta({}), 9)}), "", failed, "do not lie within one another"},
        EditCase{"BadLocation", removeBad, ahead(100, {}, {udta({box("loci", {zeros(20)}), box("name")})}),
                 ahead(72, {}, {udta({box("name")})})},
        EditCase{"GoodLocation", removeBad, ahead(100, {}, {udta({location})})},
        EditCase{"Meta", addMeta, ahead(100, {}, {box("free")}), ahead(111, {}, {box("free"), box("meta", {"gps"})})},
        EditCase{"MetaIsThere", addMeta, ahead(100, {}, {box("meta")}), "", "MP4: moov.meta(GPS) is existed.\n"}),
    nameOf<EditCase>);

INSTANTIATE_TEST_SUITE_P(
    Text, Edit,
    testing::Values(EditCase{"Spherical", addSpherical, ahead(100, {}, {}), ahead(130, {xml}, {})},
                    EditCase{"SphericalAgain", addSpherical, ahead(100, {other, spherical("<a longer xml/>"), other}, {}),
                             ahead(91, {other, xml, other}, {})},
                    EditCase{"SphericalInAnotherTrack", addSpherical, ahead(100, {spherical("<old/>")}, {track({stco({100})})}),
                             ahead(100, {xml}, {track({stco({100})})})},
                    EditCase{"Both", addBoth, ahead(100, {}, {}), ahead(100 + 30 + 8 + all, {xml}, {udta({locations})})},
                    EditCase{"BothWithUserDataInFront", addBoth, box("moov", {udta({}), track({stco({100})})}) + media,
                             box("moov", {udta({locations}), track({stco({100 + 30 + all})}, 640, {xml})}) + media},
                    EditCase{"NeitherOfBoth", addNeither, ahead(100, {}, {})},
                    EditCase{"LatitudeAlone", addHalfAPosition, ahead(100, {}, {})},
                    EditCase{"LocationOfBoth", addTheFirst, behind(8, {}, {udta({})}), behind(8, {}, {udta({locations})})},
                    EditCase{"Packet", addPacket, media, media + uuidBox(MP4::XMP::_UUID, {"<xmp/>"})},
                    EditCase{"PacketAndAxis", addPacketAndAxis, media,
                             media + uuidBox(MP4::XMP::_UUID) + uuidBox(MP4::AXIS::_UUID, {"axis"}), "MP4: AXIS is existed.\n"},
                    EditCase{"WithoutMovie", none, media}, EditCase{"WithoutMedia", none, movie(8, {}, {})},
                    EditCase{
                        "SoundAlone",
                        [](Container& container) { return !addSpherical(container) && !addBoth(container) && addLocations(container); },
                        media + box("moov", {track({stco({8})}, 0)}), media + box("moov", {track({stco({8})}, 0), udta({locations})})}),
    nameOf<EditCase>);
