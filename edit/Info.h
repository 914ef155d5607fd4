// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MP4Container.h"

namespace edit {

/// What a person wants to know of a recording. Sizes and offsets are in bytes.
struct Facts {
    struct Track {
        uint32_t number = 0; ///< its ID in the file
        std::string kind =
            "unknown";     ///< "video", "sound", "text", "metadata", "time code", or its handler type
        std::string codec; ///< type of the first sample entry: avc1, mp4a, ...
        std::optional<double> seconds; ///< none when the media header does not tell
        uint32_t samples = 0;
        uint32_t chunks = 0;
        uint16_t width = 0; ///< pixels, of video
        uint16_t height = 0;
        uint32_t channels = 0;           ///< of sound
        double sampleRate = 0;           ///< hertz
        std::optional<bool> fullRange;   ///< of H.264 whose parameter set is understood
        std::optional<unsigned> profile; ///< its profile_idc
    };
    struct Position {
        double latitude = 0; ///< degrees
        double longitude = 0;
        std::optional<double> altitude; ///< metres
    };
    struct Sound {
        std::optional<double> seconds; ///< none when the track tells no time scale or no constant sample size
        uint32_t channels = 0;         ///< 0 when the track does not tell
        uint64_t bytes = 0;
    };
    struct Payload {
        std::string kind;    ///< "map", "walk", "around", "xmp", "axis", "spherical"
        uint64_t offset = 0; ///< of its box
        uint64_t bytes = 0;  ///< without the header
    };
    enum class Movie { none, first, behind };

    std::string file;
    uint64_t length = 0;
    bool whole = false;              ///< whether all boxes could be read
    std::vector<std::string> brands; ///< the major brand, then the compatible ones; none without `ftyp`
    std::optional<double> seconds;   ///< as the movie header tells it, if it does
    std::optional<int64_t> created;  ///< seconds since 1970; none when the field is 0
    Movie movie = Movie::none;       ///< where the (first) `moov` lies: ahead of all media or not
    uint64_t movieOffset = 0;
    uint64_t movieSize = 0;
    uint64_t fragments = 0;     ///< `moof` boxes
    std::vector<Track> tracks;  ///< the first thousand: more than any recording has
    uint64_t furtherTracks = 0; ///< how many there are behind those
    std::optional<Position> location;
    std::optional<Sound> spatialSound;
    std::vector<Payload> payloads;
    uint64_t leftover = 0; ///< bytes of `free` boxes that earlier edits left, see leftoversIn()

    [[nodiscard]] const Payload* payload(const std::string& kind) const;
};

/// Reads them from an attached container's file. The contents of boxes need not be in the tree
/// (Container::keepContents): the few that matter are read one by one.
Facts factsOf(const MP4::Container& container);

/// Some ten lines for a person.
std::string textOf(const Facts& facts);
/// One JSON object on one line. What the file does not have is null (or an empty array, or 0), so that every
/// key is always there.
std::string jsonOf(const Facts& facts);

} // namespace edit
