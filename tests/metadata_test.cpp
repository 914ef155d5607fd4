// The position record, and the edits that add location, spherical-video, XMP and axis metadata.

#include <clocale>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "GPSInfo.h"
#include "MP4Container.h"
#include "support/Cases.h"
#include "support/Faults.h"

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
        for (const auto& [read, expected] : {std::pair{position.latitude, latitude},
                                             {position.longitude, longitude},
                                             {position.altitude, altitude}}) {
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
        position.attachCompass(std::string("..<exif:GPSImgDirection>") + fraction +
                               "</exif:GPSImgDirection>");
        EXPECT_EQ(position.compass.valid, expected > 0) << fraction;
        EXPECT_EQ(position.compass.valid ? position.compass.value : -1, expected);
    }
}

TEST(GPSInfo, ClampsWhatFixedPointCannotHold) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const auto& [value, bits] : {std::pair{35.5, 0x00238000U},
                                      {-35.5, 0xFFDC8000U},
                                      {1.0 / 131072, 1U},
                                      {-1.0 / 131072, ~0U},
                                      {1e9, 0x7FFFFFFFU},
                                      {-infinity, 0x80000000U},
                                      {std::nan(""), 0U}}) {
        EXPECT_EQ((GPSInfo::BaseX{true, value}.toUINT32Fixnum()), bits) << value;
        (void)GPSInfo::BaseX{true, value}.toAbsBase60();
    }
}

// ---- Edits -----------------------------------------------------------------------------------------

namespace {

const GPSInfo tokyo = at("+35.5000+139.0000-0.5/");
const Bytes given = box("@xyz", {text("+35.5000+139.0000-0.5/")});
const Bytes location =
    fullBox("loci", 0, {zeros(4), u32(0x008B0000), u32(0x00238000), u32(0xFFFF8000), zeros(4)});
const Bytes locationText = box("\xA9xyz", {u16(18), u16(0x15C7), text("+35.5000+139.0000/")});
const Bytes locations = cat({given, location, locationText});
const auto all = static_cast<uint32_t>(locations.size());

const Bytes media = box("mdat", {text("samples")});

Bytes spherical(const Bytes& xml) {
    return uuidBox(MP4::SphericalXML::_UUID, {xml});
}

Bytes videoTrack(uint32_t chunk, Parts rest = {}) {
    return box("trak",
               {tkhd(640, 360), box("mdia", {box("minf", {box("stbl", {stco({chunk})})})}), cat(rest)});
}

/// A movie whose video track has one chunk and ends with `inTrack`.
Bytes movie(uint32_t chunk, Parts inTrack, Parts behind) {
    return box("moov", {box("mvhd"), videoTrack(chunk, inTrack), cat(behind)});
}

struct EditCase {
    std::string name;
    Bytes before;
    std::function<bool(Container&)> edit;
    Bytes after = ""; ///< empty: as before
    std::string out = "";
};

bool addLocations(Container& container) {
    return container.appendLocations(tokyo);
}
bool addSpherical(Container& container) {
    return container.appendSphericalVideoXML("<xml/>");
}
bool addBoth(Container& container) {
    return container.appendLocationAndSphericalVideoXML(tokyo, "<xml/>");
}
bool removeBad(Container& container) {
    return container.removeBadLOCI();
}
bool addPacket(Container& container) {
    return container.appendXMP("<xmp/>");
}

bool addMeta(Container& container) {
    const Scratch scratch;
    const auto source = scratch.file("meta", cat({text("xyz"), box("meta", {text("gps")}), text("xyz")}));
    bool added = false;
    Brisa::FileIO::open(source, [&](Brisa::FileIO& file) { added = container.appendGpsMeta(file, 3, 11); });
    return added;
}

class Edit : public testing::TestWithParam<EditCase> {};

} // namespace

TEST_P(Edit, ChangesWhatItSaysAndNothingElse) {
    const auto& [name, before, edit, after, text] = GetParam();
    const Scratch scratch;
    const auto path = scratch.file("f.mp4", before);
    Container container;
    ASSERT_TRUE(container.attach(path));
    bool done = false;
    const auto [out, err] = printed([&, &change = edit] { done = change(container); });
    EXPECT_TRUE(done);
    EXPECT_EQ(out, text);
    EXPECT_EQ(err, "");
    EXPECT_EQ(contentOf(path), after.empty() ? before : after);
    EXPECT_EQ(scratch.count(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Location, Edit,
    testing::Values(
        EditCase{"MediaBehind", cat({movie(100, {}, {box("udta", {box("name")})}), media}), addLocations,
                 cat({movie(100 + all, {}, {box("udta", {box("name"), locations})}), media})},
        EditCase{"MediaInFront", cat({media, movie(8, {}, {box("udta")})}), addLocations,
                 cat({media, movie(8, {}, {box("udta", {locations})})})},
        EditCase{
            "MediaOnBothSides",
            cat({media, movie(8, {}, {videoTrack(20000), box("udta"), box("free", {zeros(19000)})}), media}),
            addLocations,
            cat({media,
                 movie(8, {},
                       {videoTrack(20000 + all), box("udta", {locations}), box("free", {zeros(19000)})}),
                 media})},
        EditCase{"NoUserData", cat({movie(100, {}, {}), media}), addLocations,
                 cat({movie(100 + 8 + all, {}, {box("udta", {locations})}), media})},
        EditCase{"UserDataClosedByZeros", cat({media, movie(8, {}, {box("udta", {box("name"), zeros(4)})})}),
                 addLocations, cat({media, movie(8, {}, {box("udta", {box("name"), locations, zeros(4)})})})},
        EditCase{"OneIsThere", cat({media, movie(8, {}, {box("udta", {location})})}), addLocations,
                 cat({media, movie(8, {}, {box("udta", {location, given, locationText})})})},
        EditCase{"AllAreThere", cat({media, movie(8, {}, {box("udta", {locations})})}), addLocations, "",
                 "MP4: No location-boxes were appended.\n"},
        EditCase{"OpenEndedMovie", cat({media, withSize(movie(8, {}, {box("udta")}), 0)}), addLocations,
                 cat({media, movie(8, {}, {box("udta", {locations})})})},
        EditCase{"BadLocation",
                 cat({movie(100, {}, {box("udta", {box("loci", {zeros(20)}), box("name")})}), media}),
                 removeBad, cat({movie(72, {}, {box("udta", {box("name")})}), media})},
        EditCase{"GoodLocation", cat({movie(100, {}, {box("udta", {location})}), media}), removeBad, ""},
        EditCase{"Meta", cat({movie(100, {}, {box("free")}), media}), addMeta,
                 cat({movie(111, {}, {box("free"), box("meta", {text("gps")})}), media})},
        EditCase{"MetaIsThere", cat({movie(100, {}, {box("meta")}), media}), addMeta, "",
                 "MP4: moov.meta(GPS) is existed.\n"}),
    nameOf<EditCase>);

INSTANTIATE_TEST_SUITE_P(
    Text, Edit,
    testing::Values(
        EditCase{"Spherical", cat({movie(100, {}, {}), media}), addSpherical,
                 cat({movie(130, {spherical("<xml/>")}, {}), media})},
        EditCase{"SphericalAgain", cat({movie(100, {spherical("<a longer xml/>")}, {}), media}), addSpherical,
                 cat({movie(91, {spherical("<xml/>")}, {}), media})},
        EditCase{"SphericalInAnotherTrack",
                 cat({movie(100, {spherical("<old/>")}, {videoTrack(100)}), media}), addSpherical,
                 cat({movie(100, {spherical("<xml/>")}, {videoTrack(100)}), media})},
        EditCase{"Both", cat({movie(100, {}, {}), media}), addBoth,
                 cat({movie(100 + 30 + 8 + all, {spherical("<xml/>")}, {box("udta", {locations})}), media})},
        EditCase{
            "BothWithUserDataBehind",
            cat({movie(100, {spherical("<old/>")}, {box("udta"), box("free")}), media}), addBoth,
            cat({movie(100 + all, {spherical("<xml/>")}, {box("udta", {locations}), box("free")}), media})},
        EditCase{
            "BothWithUserDataInFront", cat({box("moov", {box("udta"), videoTrack(100)}), media}), addBoth,
            cat({box("moov", {box("udta", {locations}), videoTrack(100 + 30 + all, {spherical("<xml/>")})}),
                 media})},
        EditCase{"NeitherOfBoth", cat({movie(100, {}, {}), media}),
                 [](Container& c) { return c.appendLocationAndSphericalVideoXML({}, ""); }, ""},
        EditCase{"LocationOfBoth", cat({media, movie(8, {}, {box("udta")})}),
                 [](Container& c) { return c.appendLocationAndSphericalVideoXML(tokyo, ""); },
                 cat({media, movie(8, {}, {box("udta", {locations})})})},
        EditCase{"Packet", media, addPacket, cat({media, uuidBox(MP4::XMP::_UUID, {text("<xmp/>")})})},
        EditCase{"PacketAgain", uuidBox(MP4::XMP::_UUID), addPacket, "", "MP4: XMP is existed.\n"},
        EditCase{"PacketAndAxis", media,
                 [](Container& c) { return c.appendXMP("") && c.appendAxis("axis") && c.appendAxis("axis"); },
                 cat({media, uuidBox(MP4::XMP::_UUID), uuidBox(MP4::AXIS::_UUID, {text("axis")})}),
                 "MP4: AXIS is existed.\n"}),
    nameOf<EditCase>);

TEST(Edit, NeedsTheBoxesItWorksOn) {
    const Scratch scratch;
    for (const Bytes& content : {Bytes(), media, cat({box("moov", {track({stco({8})}, 0)}), box("free")})}) {
        Container container;
        ASSERT_TRUE(container.attach(scratch.file("f.mp4", content)));
        for (const auto& edit : {addLocations, addSpherical, addBoth, addMeta}) {
            EXPECT_FALSE(edit(container));
        }
        EXPECT_EQ(contentOf(container.path), content);
    }
}

TEST(Edit, IsAllOrNothing) {
    const auto fresh = [](auto edit) {
        return [edit](const std::wstring& path) {
            Container container;
            return container.attach(path) && edit(container);
        };
    };
    expectAllOrNothing(
        Fault::error, cat({movie(100, {}, {}), media}),
        cat({movie(100 + 30 + 8 + all, {spherical("<xml/>")}, {box("udta", {locations})}), media}),
        fresh(addBoth));
    expectAllOrNothing(Fault::error, cat({movie(100, {}, {box("udta", {box("loci", {zeros(20)})})}), media}),
                       cat({movie(72, {}, {box("udta")}), media}), fresh(removeBad));
    expectAllOrNothing(Fault::error, withSize(media, 0),
                       cat({media, uuidBox(MP4::XMP::_UUID, {text("<xmp/>")})}), fresh(addPacket));
}
