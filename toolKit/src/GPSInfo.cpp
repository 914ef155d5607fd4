// SPDX-License-Identifier: MIT
#include "GPSInfo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Brisa/BrisaConsole.h"

namespace {

using Brisa::Console;

/// One piece of a text, cut where a buffer of `Size` bytes is full.
template <size_t Size, class... Arguments>
std::string piece(const char* format, Arguments... arguments) {
    const Console::LocaleC fullStop;
    std::array<char, Size> buffer;
    std::snprintf(buffer.data(), buffer.size(), format, arguments...);
    return buffer.data();
}

/// The integer part; the nearest number where it does not fit, and 0 for none.
template <class Integer>
Integer truncated(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    constexpr double lowest = std::numeric_limits<Integer>::min();
    constexpr double highest = std::numeric_limits<Integer>::max();
    return static_cast<Integer>(std::clamp(value, lowest, highest));
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

} // namespace

GPSInfo::BaseX from_iso6709(const char*& cursor) {
    constexpr double firstWeight = 0.1F;
    const char sign = *cursor;
    cursor += sign == '\0' ? 0 : 1;
    const char* const integer = cursor;
    double value = 0;
    for (; isDigit(*cursor); ++cursor) {
        value = 10 * value + (*cursor - '0');
    }
    const auto digits = cursor - integer;
    if (*cursor == '.') {
        ++cursor;
        for (double weight = firstWeight; isDigit(*cursor); ++cursor, weight /= 10) {
            value += weight * (*cursor - '0');
        }
    }
    if ((digits != 2 && digits != 3) || (sign != '+' && sign != '-')) {
        return {};
    }
    return {true, sign == '+' ? value : -value};
}

void GPSInfo::attachRXYZ(const char* text) {
    rxyz = text;
    const char* cursor = text;
    latitude = from_iso6709(cursor);
    longitude = from_iso6709(cursor);
    altitude.valid = false;
    if (*cursor == '/') {
        return;
    }
    const Console::LocaleC fullStop;
    char* end = nullptr;
    altitude.value = std::strtod(cursor, &end);
    altitude.valid = *end == '/' || std::strcmp(end, "CRSWGS_84/") == 0;
}

void GPSInfo::attachCompass(double degrees) {
    compass = {true, degrees};
}

void GPSInfo::attachCompass(const std::string& xmp) {
    compass.valid = false;
    const size_t element = xmp.find("<exif:GPSImgDirection>");
    if (element == std::string::npos) {
        return;
    }
    const Console::LocaleC fullStop;
    float numerator = 0;
    float denominator = 0;
    const int read = std::sscanf(&xmp[element], "<exif:GPSImgDirection>%f/%f</exif:GPSImgDirection>",
                                 &numerator, &denominator);
    if (read == 2 && denominator > 0) {
        compass = {true, numerator / denominator};
    }
}

std::string GPSInfo::BaseX::toAbsBase60() const {
    const double absolute = std::abs(value);
    const auto degrees = truncated<int>(absolute);
    return piece<80>("%d,%0.6f", degrees, (absolute - degrees) * 60);
}

uint32_t GPSInfo::BaseX::toUINT32Fixnum() const {
    const double fixed = value * 65536;
    return static_cast<uint32_t>(truncated<int32_t>(fixed < 0 ? fixed - 0.5 : fixed + 0.5));
}

std::string GPSInfo::to_CXYZ_string() const {
    if (!latitude.valid || !longitude.valid) {
        return {};
    }
    return piece<32>("%+07.4f%+08.4f", latitude.value, longitude.value) + "/";
}

std::string GPSInfo::to_XMP_part() const {
    std::string elements;
    if (latitude.valid) {
        elements += piece<512>("      <exif:GPSLatitude>%s%c</exif:GPSLatitude>\n"
                               "      <exif:GPSLongitude>%s%c</exif:GPSLongitude>\n",
                               latitude.toAbsBase60().c_str(), latitude.value < 0 ? 'S' : 'N',
                               longitude.toAbsBase60().c_str(), longitude.value < 0 ? 'W' : 'E');
    }
    if (altitude.valid) {
        elements +=
            piece<512>("      <exif:GPSAltitude>%u/100</exif:GPSAltitude>\n"
                       "      <exif:GPSAltitudeRef>%c</exif:GPSAltitudeRef>\n",
                       truncated<unsigned>(std::abs(altitude.value) * 100), altitude.value < 0 ? '1' : '0');
    }
    if (compass.valid) {
        elements += piece<512>("      <exif:GPSImgDirection>%d/10</exif:GPSImgDirection>\n"
                               "      <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>\n",
                               truncated<int>(compass.value * 10 + 0.5));
    }
    return elements;
}

std::string GPSInfo::to_XMP_string(const char* creatorTool, bool reEncoded,
                                   const std::string& stabilization) const {
    std::string packet =
        piece<512>("<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
                   "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
                   "  <rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
                   "    <rdf:Description rdf:about='' xmlns:exif='http://ns.adobe.com/exif/1.0/'>\n"
                   "      <x:CreatorTool>%s</x:CreatorTool>\n",
                   creatorTool);
    packet += to_XMP_part();
    packet += piece<512>("    </rdf:Description>\n"
                         "  </rdf:RDF>\n"
                         "  <VideoReEncorded>%s</VideoReEncorded>\n",
                         reEncoded ? "true" : "false");
    if (!stabilization.empty()) {
        packet += piece<512>("  <VideoStabilization>%s</VideoStabilization>\n", stabilization.c_str());
    }
    return packet + "</x:xmpmeta>\n<?xpacket end='w'?>\n";
}
