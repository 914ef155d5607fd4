#include "MP4Box_avcc.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "Brisa/BrisaConsole.h"
#include "GolombBitStream.h"
#include "MP4Box_fields.h"

namespace {

// ---- Fields ----------------------------------------------------------------------------------------

/// A field or a structure of the syntax: read from a stream, or written to one.
class GolombStreamEntity {
public:
    GolombStreamEntity() = default;
    GolombStreamEntity(const GolombStreamEntity&) = delete;
    GolombStreamEntity& operator=(const GolombStreamEntity&) = delete;
    virtual void clear() = 0;
    virtual void parse(GolombBitStream& stream) = 0;
    virtual void to_s(GolombBitStream& stream) = 0;
    virtual ~GolombStreamEntity() = default;
};

/// One step of a walk over the fields of a structure, in either direction.
struct Walk {
    GolombBitStream& stream;
    bool writing;

    void operator()(GolombStreamEntity& field) const {
        if (writing) {
            field.to_s(stream);
        } else {
            field.parse(stream);
        }
    }
};

/// A structure: one walk over its fields, in the order of its syntax table, serves both directions.
class Structure : public GolombStreamEntity {
public:
    virtual void process_stream(GolombBitStream& stream, bool writing) = 0;

    void parse(GolombBitStream& stream) override {
        clear();
        process_stream(stream, false);
    }
    void to_s(GolombBitStream& stream) override { process_stream(stream, true); }
};

/// u(N)
template <int N>
class BitData : public GolombStreamEntity {
public:
    uint32_t value = 0;

    void clear() override { value = 0; }
    void parse(GolombBitStream& stream) override { value = stream.read_bits(N).value; }
    void to_s(GolombBitStream& stream) override { stream.write_bits(value, N); }
};

/// ue(v), and se(v) where the code number will do
class GolombData : public GolombStreamEntity {
public:
    uint32_t value = 0;

    void clear() override { value = 0; }
    void parse(GolombBitStream& stream) override { value = stream.read_golomb(); }
    void to_s(GolombBitStream& stream) override { stream.write_golomb(value); }
};

/// Fields of one kind: each parse() adds one at the end, each to_s() writes the first and removes it.
template <class Field>
class Queue : public GolombStreamEntity {
public:
    std::deque<uint32_t> values;

    void clear() override { values.clear(); }
    void parse(GolombBitStream& stream) override {
        Field field;
        field.parse(stream);
        values.push_back(field.value);
    }
    void to_s(GolombBitStream& stream) override {
        Field field;
        field.value = values.at(0);
        field.to_s(stream);
        values.pop_front();
    }
};

template <int N>
using BitDataVector = Queue<BitData<N>>;
using GolombDataVector = Queue<GolombData>;

// ---- Structures of ITU-T H.264 ---------------------------------------------------------------------

/// 7.3.2.1.1.1 scaling_list
class ScalingList {
public:
    void process_stream(GolombBitStream& stream, bool writing, int size) {
        int32_t lastScale = 8;
        int32_t nextScale = 8;
        for (int j = 0; j < size && nextScale != 0; ++j) {
            if (!writing) {
                deltaScales.push_back(stream.read_golombs());
            } else {
                stream.write_golombs(deltaScales[static_cast<size_t>(j)]);
            }
            nextScale = (lastScale + deltaScales[static_cast<size_t>(j)] + 256) & 0xFF;
            lastScale = nextScale != 0 ? nextScale : lastScale;
        }
    }
    void to_s(GolombBitStream& stream) { process_stream(stream, true, static_cast<int>(deltaScales.size())); }

private:
    std::vector<int32_t> deltaScales;
};

/// The seq_scaling_list_present_flags, and a list for each that is 1.
class ScalingMatrix : public GolombStreamEntity {
public:
    static constexpr size_t listsOf4x4 = 6;

    size_t lists = 0; ///< 8, or 12 where chroma has lists of its own

    void clear() override {
        scalingListPresent.clear();
        scalingLists.clear();
    }
    void parse(GolombBitStream& stream) override {
        clear();
        for (size_t i = 0; i < lists; ++i) {
            scalingListPresent.parse(stream);
            scalingLists.emplace_back();
            if (scalingListPresent.values.back() == 1) {
                scalingLists.back().process_stream(stream, false, i < listsOf4x4 ? 16 : 64);
            }
        }
    }
    void to_s(GolombBitStream& stream) override {
        for (ScalingList& list : scalingLists) {
            scalingListPresent.to_s(stream);
            list.to_s(stream); // nothing, where the flag is 0
        }
    }

private:
    BitDataVector<1> scalingListPresent;
    std::deque<ScalingList> scalingLists;
};

/// E.1.2 hrd_parameters
class HRD : public Structure {
public:
    void clear() override {
        bit_rate_value_minus1.clear();
        cpb_size_value_minus1.clear();
        cbr_flag.clear();
    }

    void process_stream(GolombBitStream& stream, bool writing) override {
        const Walk walk{stream, writing};
        walk(cpb_cnt_minus1);
        walk(bit_rate_scale);
        walk(cpb_size_scale);
        for (uint32_t i = 0; i <= cpb_cnt_minus1.value; ++i) {
            walk(bit_rate_value_minus1);
            walk(cpb_size_value_minus1);
            walk(cbr_flag);
        }
        walk(initial_cpb_removal_delay_length_minus1);
        walk(cpb_removal_delay_length_minus1);
        walk(dpb_output_delay_length_minus1);
        walk(time_offset_length);
    }

private:
    GolombData cpb_cnt_minus1;
    BitData<4> bit_rate_scale;
    BitData<4> cpb_size_scale;
    GolombDataVector bit_rate_value_minus1;
    GolombDataVector cpb_size_value_minus1;
    BitDataVector<1> cbr_flag;
    BitData<5> initial_cpb_removal_delay_length_minus1;
    BitData<5> cpb_removal_delay_length_minus1;
    BitData<5> dpb_output_delay_length_minus1;
    BitData<5> time_offset_length;
};

/// E.1.1 vui_parameters
class VUI : public Structure {
public:
    BitData<1> video_signal_type_present_flag;
    BitData<3> video_format;
    BitData<1> video_full_range_flag;

    void clear() override {
        nal_hrd.clear();
        vcl_hrd.clear();
    }

    void process_stream(GolombBitStream& stream, bool writing) override {
        constexpr uint32_t extendedSar = 255;
        const Walk walk{stream, writing};
        walk(aspect_ratio_info_present_flag);
        if (aspect_ratio_info_present_flag.value == 1) {
            walk(aspect_ratio_idc);
            if (aspect_ratio_idc.value == extendedSar) {
                walk(sar_width);
                walk(sar_height);
            }
        }
        walk(overscan_info_present_flag);
        if (overscan_info_present_flag.value == 1) {
            walk(overscan_appropriate_flag);
        }
        walk(video_signal_type_present_flag);
        if (video_signal_type_present_flag.value == 1) {
            walk(video_format);
            walk(video_full_range_flag);
            walk(colour_description_present_flag);
            if (colour_description_present_flag.value == 1) {
                walk(colour_primaries);
                walk(transfer_characteristics);
                walk(matrix_coefficients);
            }
        }
        walk(chroma_loc_info_present_flag);
        if (chroma_loc_info_present_flag.value == 1) {
            walk(chroma_sample_loc_type_top_field);
            walk(chroma_sample_loc_type_bottom_field);
        }
        walk(timing_info_present_flag);
        if (timing_info_present_flag.value == 1) {
            walk(num_units_in_tick);
            walk(time_scale);
            walk(fixed_frame_rate_flag);
        }
        walk(nal_hrd_parameters_present_flag);
        if (nal_hrd_parameters_present_flag.value == 1) {
            walk(nal_hrd);
        }
        walk(vcl_hrd_parameters_present_flag);
        if (vcl_hrd_parameters_present_flag.value == 1) {
            walk(vcl_hrd);
        }
        if (nal_hrd_parameters_present_flag.value == 1 || vcl_hrd_parameters_present_flag.value == 1) {
            walk(low_delay_hrd_flag);
        }
        walk(pic_struct_present_flag);
        walk(bitstream_restriction_flag);
        if (bitstream_restriction_flag.value == 1) {
            walk(motion_vectors_over_pic_boundaries_flag);
            walk(max_bytes_per_pic_denom);
            walk(max_bits_per_mb_denom);
            walk(log2_max_mv_length_horizontal);
            walk(log2_max_mv_length_vertical);
            walk(max_num_reorder_frames);
            walk(max_dec_frame_buffering);
        }
    }

private:
    BitData<1> aspect_ratio_info_present_flag;
    BitData<8> aspect_ratio_idc;
    BitData<16> sar_width;
    BitData<16> sar_height;
    BitData<1> overscan_info_present_flag;
    BitData<1> overscan_appropriate_flag;
    BitData<1> colour_description_present_flag;
    BitData<8> colour_primaries;
    BitData<8> transfer_characteristics;
    BitData<8> matrix_coefficients;
    BitData<1> chroma_loc_info_present_flag;
    GolombData chroma_sample_loc_type_top_field;
    GolombData chroma_sample_loc_type_bottom_field;
    BitData<1> timing_info_present_flag;
    BitData<32> num_units_in_tick;
    BitData<32> time_scale;
    BitData<1> fixed_frame_rate_flag;
    BitData<1> nal_hrd_parameters_present_flag;
    HRD nal_hrd;
    BitData<1> vcl_hrd_parameters_present_flag;
    HRD vcl_hrd;
    BitData<1> low_delay_hrd_flag;
    BitData<1> pic_struct_present_flag;
    BitData<1> bitstream_restriction_flag;
    BitData<1> motion_vectors_over_pic_boundaries_flag;
    GolombData max_bytes_per_pic_denom;
    GolombData max_bits_per_mb_denom;
    GolombData log2_max_mv_length_horizontal;
    GolombData log2_max_mv_length_vertical;
    GolombData max_num_reorder_frames;
    GolombData max_dec_frame_buffering;
};

/// What the high profiles have in a sequence parameter set (7.3.2.1.1)
class HighProfileSpec : public Structure {
public:
    void clear() override { scalingMatrix.clear(); }

    void process_stream(GolombBitStream& stream, bool writing) override {
        constexpr uint32_t chroma444 = 3;
        const Walk walk{stream, writing};
        walk(chroma_format_idc);
        if (chroma_format_idc.value == chroma444) {
            walk(separate_colour_plane_flag);
        }
        walk(bit_depth_luma_minus8);
        walk(bit_depth_chroma_minus8);
        walk(qpprime_y_zero_transform_bypass_flag);
        walk(seq_scaling_matrix_present_flag);
        if (seq_scaling_matrix_present_flag.value == 1) {
            scalingMatrix.lists = chroma_format_idc.value == chroma444 ? 12 : 8;
            walk(scalingMatrix);
        }
    }

private:
    GolombData chroma_format_idc;
    BitData<1> separate_colour_plane_flag;
    GolombData bit_depth_luma_minus8;
    GolombData bit_depth_chroma_minus8;
    BitData<1> qpprime_y_zero_transform_bypass_flag;
    BitData<1> seq_scaling_matrix_present_flag;
    ScalingMatrix scalingMatrix;
};

/// A sequence parameter set with its NAL unit header (7.3.1, 7.3.2.1.1)
class SPS : public Structure {
public:
    BitData<8> profile_idc;
    BitData<1> constraint_set1_flag;
    BitData<1> vui_parameters_present_flag;
    VUI vui;
    BitData<1> rbsp_stop_one_bit;

    void clear() override {
        highProfile.clear();
        offset_for_ref_frame.clear();
        vui.clear();
    }

    void process_stream(GolombBitStream& stream, bool writing) override {
        const Walk walk{stream, writing};
        walk(forbidden_zero_bit);
        walk(nal_ref_idc);
        walk(nal_unit_type);
        walk(profile_idc);
        walk(constraint_set0_flag);
        walk(constraint_set1_flag);
        walk(constraint_set2_flag);
        walk(constraint_set3_flag);
        walk(reserved_zero_4bits);
        walk(level_idc);
        walk(seq_parameter_set_id);
        if (isHighProfile()) {
            walk(highProfile);
        }
        walk(log2_max_frame_num_minus4);
        walk(pic_order_cnt_type);
        if (pic_order_cnt_type.value == 0) {
            walk(log2_max_pic_order_cnt_lsb_minus4);
        } else if (pic_order_cnt_type.value == 1) {
            walk(delta_pic_order_always_zero_flag);
            walk(offset_for_non_ref_pic);
            walk(offset_for_top_to_bottom_field);
            walk(num_ref_frames_in_pic_order_cnt_cycle);
            for (uint32_t i = 0; i < num_ref_frames_in_pic_order_cnt_cycle.value; ++i) {
                walk(offset_for_ref_frame);
            }
        }
        walk(max_num_ref_frames);
        walk(gaps_in_frame_num_value_allowed_flag);
        walk(pic_width_in_mbs_minus1);
        walk(pic_height_in_map_units_minus1);
        walk(frame_mbs_only_flag);
        if (frame_mbs_only_flag.value == 0) {
            walk(mb_adaptive_frame_field_flag);
        }
        walk(direct_8x8_inference_flag);
        walk(frame_cropping_flag);
        if (frame_cropping_flag.value == 1) {
            walk(frame_crop_left_offset);
            walk(frame_crop_right_offset);
            walk(frame_crop_top_offset);
            walk(frame_crop_bottom_offset);
        }
        walk(vui_parameters_present_flag);
        if (vui_parameters_present_flag.value == 1) {
            walk(vui);
        }
        walk(rbsp_stop_one_bit);
    }

    [[nodiscard]] bool isFullRange() const {
        return vui_parameters_present_flag.value == 1 && vui.video_signal_type_present_flag.value == 1 &&
               vui.video_full_range_flag.value == 1;
    }

private:
    [[nodiscard]] bool isHighProfile() const {
        switch (profile_idc.value) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86:
        case 118:
        case 128:
        case 138:
            return true;
        default:
            return false;
        }
    }

    BitData<1> forbidden_zero_bit;
    BitData<2> nal_ref_idc;
    BitData<5> nal_unit_type;
    BitData<1> constraint_set0_flag;
    BitData<1> constraint_set2_flag;
    BitData<1> constraint_set3_flag;
    BitData<4> reserved_zero_4bits;
    BitData<8> level_idc;
    GolombData seq_parameter_set_id;
    HighProfileSpec highProfile;
    GolombData log2_max_frame_num_minus4;
    GolombData pic_order_cnt_type;
    GolombData log2_max_pic_order_cnt_lsb_minus4;
    BitData<1> delta_pic_order_always_zero_flag;
    GolombData offset_for_non_ref_pic;
    GolombData offset_for_top_to_bottom_field;
    GolombData num_ref_frames_in_pic_order_cnt_cycle;
    GolombDataVector offset_for_ref_frame;
    GolombData max_num_ref_frames;
    BitData<1> gaps_in_frame_num_value_allowed_flag;
    GolombData pic_width_in_mbs_minus1;
    GolombData pic_height_in_map_units_minus1;
    BitData<1> frame_mbs_only_flag;
    BitData<1> mb_adaptive_frame_field_flag;
    BitData<1> direct_8x8_inference_flag;
    BitData<1> frame_cropping_flag;
    GolombData frame_crop_left_offset;
    GolombData frame_crop_right_offset;
    GolombData frame_crop_top_offset;
    GolombData frame_crop_bottom_offset;
};

// ---- Emulation prevention, ITU-T H.264 7.4.1.1 -----------------------------------------------------

constexpr uint8_t emulationPreventionByte = 3;

/// The raw byte sequence payload: without the 03 of every 00 00 03.
ByteArray unescaped(const ByteArray& nalUnit) {
    ByteArray raw(nalUnit.size());
    size_t size = 0;
    size_t zeros = 0;
    for (const uint8_t byte : nalUnit) {
        if (zeros >= 2 && byte == emulationPreventionByte) {
            zeros = 0;
            continue;
        }
        raw[size++] = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    raw.resize(size);
    return raw;
}

/// With 03 wherever the payload would look like a start code or an escape.
ByteArray escaped(const ByteArray& raw) {
    ByteArray nalUnit(raw.size() + raw.size() / 2);
    size_t size = 0;
    size_t zeros = 0;
    for (const uint8_t byte : raw) {
        if (zeros >= 2 && byte <= emulationPreventionByte) {
            nalUnit[size++] = emulationPreventionByte;
            zeros = 0;
        }
        nalUnit[size++] = byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    nalUnit.resize(size);
    return nalUnit;
}

/// Whether nothing in the unit looks like a start code; zero bytes at its end are no part of it. A unit
/// that only holds 00 00 03 may be either, and counts as escaped: so every reader takes it.
bool isEscaped(const ByteArray& nalUnit) {
    size_t size = nalUnit.size();
    while (size != 0 && nalUnit[size - 1] == 0) {
        --size;
    }
    size_t zeros = 0;
    return std::all_of(nalUnit.begin(), nalUnit.begin() + size, [&zeros](uint8_t byte) {
        const bool startCode = zeros >= 2 && byte < emulationPreventionByte;
        zeros = byte == 0 ? zeros + 1 : 0;
        return !startCode;
    });
}

// ---- Structures of ISO/IEC 14496-15 ----------------------------------------------------------------

struct ParameterSet {
    uint16_t length = 0;
    ByteArray nalUnit;
};

/// Each parse() adds a set at the end, each to_s() writes the first and removes it.
class ParameterSetVector : public GolombStreamEntity {
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
class AVCC : public GolombStreamEntity {
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
    void sps_parse(SPS& sps) const {
        if (sequenceParameterSets.sets.empty()) {
            throw "no sps";
        }
        const ByteArray& nalUnit = sequenceParameterSets.sets.front().nalUnit;
        GolombBitStream stream;
        stream.attach(isEscaped(nalUnit) ? unescaped(nalUnit) : nalUnit);
        sps.parse(stream);
        bool understood = sps.rbsp_stop_one_bit.value == 1;
        while (understood && stream.bitsLeft() != 0) {
            understood = stream.next_bit() == 0;
        }
        if (!understood) {
            throw "bad trailing bits";
        }
    }
    /// Puts `sps` in the place of the first sequence parameter set, escaped if that one was. One that was
    /// not stays so, unless it would be taken for escaped now, and something else read from it.
    void sps_replace(SPS& sps) {
        ParameterSet& set = sequenceParameterSets.sets.at(0);
        GolombBitStream stream;
        sps.to_s(stream);
        ByteArray nalUnit;
        stream.bytes(nalUnit);
        const bool misread = isEscaped(nalUnit) && unescaped(nalUnit).size() != nalUnit.size();
        if (isEscaped(set.nalUnit) || misread) {
            nalUnit = escaped(nalUnit);
        }
        if (nalUnit.size() > UINT16_MAX) {
            throw "too long sps";
        }
        set.length = static_cast<uint16_t>(nalUnit.size());
        set.nalUnit = std::move(nalUnit);
    }

private:
    void process_stream(GolombBitStream& stream, bool writing) {
        const Walk walk{stream, writing};
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

    BitData<8> configurationVersion;
    BitData<8> AVCProfileIndication;
    BitData<8> profile_compatibility;
    BitData<8> AVCLevelIndication;
    BitData<6> reserved6;
    BitData<2> lengthSizeMinusOne;
    BitData<3> reserved3;
    BitData<5> numOfSequenceParameterSets;
    BitData<8> numOfPictureParameterSets;
    ParameterSetVector pictureParameterSets;
    ByteArray trailingBytes;
};

// ---- The box ---------------------------------------------------------------------------------------

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

bool prepare(const ByteArray& payload, AVCC& record, SPS& sps) {
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
    SPS sps;
    prepare(payload, record, sps);
}

bool AVCC::get_profile_idc_and_constrained_set1_flag(unsigned char& profile, bool& constrainedSet1,
                                                     bool& fullRange) const {
    ::AVCC record;
    SPS sps;
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
    SPS sps;
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
