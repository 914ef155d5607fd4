// SPDX-License-Identifier: MIT
#include "MP4Box_avcc.h"

#include <deque>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "H264Nal.h"
#include "H264Syntax.h"
#include "MP4Box_fields.h"

namespace {

struct ParameterSet {
    uint16_t length = 0;
    ByteArray nalUnit;
    bool escaped = true; ///< whether it has emulation prevention
};

/// Each parse() adds a set at the end, each to_s() writes the first and removes it.
class ParameterSetVector : public H264::GolombStreamEntity {
public:
    std::deque<ParameterSet> sets;

    void clear() override { sets.clear(); }
    void parse(GolombBitStream& stream) override {
        ParameterSet set;
        set.length = stream.read16n();
        stream.read_bytes(set.length, set.nalUnit);
        sets.push_back(std::move(set));
    }
    void to_s(GolombBitStream& stream) override {
        stream.write16n(sets.at(0).length);
        stream.write_bytes(sets.at(0).nalUnit);
        sets.pop_front();
    }
};

/// 5.3.3.1 AVCDecoderConfigurationRecord
class AVCC : public H264::GolombStreamEntity {
public:
    ParameterSetVector sequenceParameterSets;

    void clear() override {
        sequenceParameterSets.clear();
        pictureParameterSets.clear();
        trailingBytes.clear();
    }
    void parse(GolombBitStream& stream) override {
        clear();
        process_stream(stream, false);
        stream.read_bytes(stream.bitsLeft() / 8, trailingBytes);
    }
    void to_s(GolombBitStream& stream) override {
        reserved6.value = 0x3F;
        reserved3.value = 0x07;
        process_stream(stream, true);
        stream.write_bytes(trailingBytes);
    }

    /// Parses the first sequence parameter set.
    void sps_parse(H264::SPS& sps) {
        if (sequenceParameterSets.sets.empty()) {
            throw "no sps";
        }
        ParameterSet& set = sequenceParameterSets.sets.front();
        set.escaped = H264::isEscaped(set.nalUnit);
        GolombBitStream stream;
        stream.attach(set.escaped ? H264::unescaped(set.nalUnit) : set.nalUnit);
        sps.parse(stream);
    }
    /// Puts `sps` in the place of the first sequence parameter set, escaped if that one was. One that was
    /// not stays so, unless it would be taken for escaped now, and something else read from it.
    void sps_replace(H264::SPS& sps) {
        ParameterSet& set = sequenceParameterSets.sets.at(0);
        GolombBitStream stream;
        sps.to_s(stream);
        ByteArray nalUnit;
        stream.bytes(nalUnit);
        const bool misread = H264::isEscaped(nalUnit) && H264::unescaped(nalUnit).size() != nalUnit.size();
        if (set.escaped || misread) {
            nalUnit = H264::escaped(nalUnit);
        }
        if (nalUnit.size() > UINT16_MAX) {
            throw "too long sps";
        }
        set.length = static_cast<uint16_t>(nalUnit.size());
        set.nalUnit = std::move(nalUnit);
    }

private:
    void process_stream(GolombBitStream& stream, bool writing) {
        const H264::Walk walk{stream, writing};
        walk(configurationVersion);
        walk(AVCProfileIndication);
        walk(profile_compatibility);
        walk(AVCLevelIndication);
        walk(reserved6);
        walk(lengthSizeMinusOne);
        walk(reserved3);
        walk(numOfSequenceParameterSets);
        for (uint32_t i = 0; i < numOfSequenceParameterSets.value; ++i) {
            walk(sequenceParameterSets);
        }
        walk(numOfPictureParameterSets);
        for (uint32_t i = 0; i < numOfPictureParameterSets.value; ++i) {
            walk(pictureParameterSets);
        }
    }

    H264::BitData<8> configurationVersion;
    H264::BitData<8> AVCProfileIndication;
    H264::BitData<8> profile_compatibility;
    H264::BitData<8> AVCLevelIndication;
    H264::BitData<6> reserved6;
    H264::BitData<2> lengthSizeMinusOne;
    H264::BitData<3> reserved3;
    H264::BitData<5> numOfSequenceParameterSets;
    H264::BitData<8> numOfPictureParameterSets;
    ParameterSetVector pictureParameterSets;
    ByteArray trailingBytes;
};

/// Runs a step of the work on a record; a text that it throws is printed with `failure`.
template <class Step>
bool succeeds(const wchar_t* failure, Step step) {
    try {
        step();
        return true;
    } catch (const char* text) {
        Brisa::Console::out(failure, Brisa::wchar::mbs2wcs(text).c_str());
        return false;
    }
}

constexpr const wchar_t* recordFailure = L"avcc.parse() failed: %ls\n";
constexpr const wchar_t* setFailure = L"avcc.sps_parse() failed: %ls\n";

bool prepare(const ByteArray& payload, AVCC& record, H264::SPS& sps) {
    return succeeds(recordFailure,
                    [&] {
                        GolombBitStream stream;
                        stream.attach(payload);
                        record.parse(stream);
                    }) &&
           succeeds(setFailure, [&] { record.sps_parse(sps); });
}

} // namespace

namespace MP4 {

void AVCC::parseBox(BinFile& file, uint64_t limit) {
    enter(file, limit);
    file.limit = end(); // the record is read whole, even where the parse ends within it
    readContents(file, boxSize > headerSize() ? boxSize - headerSize() : 0, payload);
}

void AVCC::dump() const {
    BOX::dump();
    ::AVCC record;
    H264::SPS sps;
    prepare(payload, record, sps);
}

bool AVCC::get_profile_idc_and_constrained_set1_flag(unsigned char& profile, bool& constrainedSet1,
                                                     bool& fullRange) const {
    ::AVCC record;
    H264::SPS sps;
    if (!prepare(payload, record, sps)) {
        return false;
    }
    profile = static_cast<unsigned char>(sps.profile_idc.value);
    constrainedSet1 = sps.constraint_set1_flag.value == 1;
    fullRange = sps.isFullRange();
    return true;
}

bool AVCC::assign_fullRange_and_constrained_set1_flag(ByteArray& body, bool fullRange, bool& wasFullRange,
                                                      bool& wasConstrainedSet1) const {
    constexpr uint32_t unspecifiedFormat = 5;
    body.clear();
    ::AVCC record;
    H264::SPS sps;
    if (!prepare(payload, record, sps)) {
        return false;
    }
    const bool hadFullRange = sps.isFullRange();
    const bool hadConstrainedSet1 = sps.constraint_set1_flag.value == 1;

    sps.vui_parameters_present_flag.value = 1;
    sps.vui.video_signal_type_present_flag.value = 1;
    if (sps.vui.video_format.value == 0) {
        sps.vui.video_format.value = unspecifiedFormat;
    }
    sps.vui.video_full_range_flag.value = fullRange ? 1 : 0;
    sps.constraint_set1_flag.value = 1;

    if (!succeeds(setFailure, [&] { record.sps_replace(sps); })) {
        return false;
    }
    GolombBitStream stream;
    record.to_s(stream);
    stream.bytes(body);
    wasFullRange = hadFullRange;
    wasConstrainedSet1 = hadConstrainedSet1;
    return true;
}

} // namespace MP4
