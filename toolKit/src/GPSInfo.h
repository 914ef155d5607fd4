// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// A geographic position, and the text forms in which recordings carry it.
///
/// A new record has no position: all four numbers invalid and 0, `rxyz` empty. All texts are written
/// and read with a full stop as the decimal separator, whatever the locale.
class GPSInfo {
public:
    /// An optional number.
    struct BaseX {
        bool valid = false;
        double value = 0;

        /// Degrees and minutes of the absolute value, as EXIF has them: 35.6895 gives 35,41.370000.
        [[nodiscard]] std::string toAbsBase60() const;
        /// Signed 16.16 fixed point, rounded half away from zero, as the bits of a 32-bit number. A
        /// value outside the range (-32768 to 32768) is clamped to it; one that is no number gives 0.
        [[nodiscard]] uint32_t toUINT32Fixnum() const;
    };

    BaseX latitude;   ///< degrees, north positive
    BaseX longitude;  ///< degrees, east positive
    BaseX altitude;   ///< metres
    BaseX compass;    ///< direction of the image, degrees
    std::string rxyz; ///< the text last given to attachRXYZ()

    /// Reads an ISO 6709 text in degrees: latitude, longitude and, unless '/' follows, an altitude that
    /// ends with '/' or "CRSWGS_84/". A coordinate that does not read is invalid and 0. An altitude that
    /// is missing or does not end so is invalid; its value is what it was before a '/', else what was read.
    void attachRXYZ(const char* text);
    void attachCompass(double degrees);
    /// Takes the first exif:GPSImgDirection element of an XMP packet, a fraction; without one that
    /// reads, and has a positive denominator, the direction is invalid.
    void attachCompass(const std::string& xmp);

    /// Latitude and longitude as an ISO 6709 text, +35.6895+139.6917/, or nothing unless both are
    /// valid. The widths are minimum widths, so a coordinate below ten degrees has fewer digits than
    /// the standard wants: other readers take it, attachRXYZ() does not.
    [[nodiscard]] std::string to_CXYZ_string() const;
    /// The EXIF elements of an XMP packet, for what is valid.
    [[nodiscard]] std::string to_XMP_part() const;
    /// A whole XMP packet. Each piece of it is cut at 511 bytes; only a long text of the caller's makes
    /// one that long.
    [[nodiscard]] std::string to_XMP_string(const char* creatorTool, bool reEncoded,
                                            const std::string& stabilization) const;
};

/// Reads one coordinate at the cursor: a sign, two or three digits, and a fraction if there is one. Moves
/// the cursor to the first character behind it. Other forms (minutes, seconds) are invalid.
GPSInfo::BaseX from_iso6709(const char*& cursor);
