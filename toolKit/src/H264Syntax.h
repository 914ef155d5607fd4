// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "GolombBitStream.h"

/// The syntax of the H.264 sequence parameter set (ITU-T H.264, 7.3.2.1.1 and annex E): objects that are read
/// from a bit stream and written to one. Errors are thrown as a `char const*`, see GolombBitStream.
///
/// An object is read once, changed, and written once: writing uses up the fields that come in rows. A field
/// that is not there in the stream keeps its value, 0 in a new object.
namespace H264 {

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

    /// Reads or writes a field; its value, if it has a single one.
    template <class Field>
    auto operator()(Field& field) const {
        writing ? field.to_s(stream) : field.parse(stream);
        if constexpr (requires { field.value; }) {
            return field.value;
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

/// 7.3.2.1.1.1 scaling_list
class ScalingList {
public:
    void process_stream(GolombBitStream& stream, bool writing, int size);
    void to_s(GolombBitStream& stream) { process_stream(stream, true, static_cast<int>(deltaScales.size())); }

private:
    std::vector<int32_t> deltaScales;
};

/// The seq_scaling_list_present_flags, and a list for each that is 1.
class ScalingMatrix : public GolombStreamEntity {
public:
    size_t lists = 0; ///< 8, or 12 where chroma has lists of its own

    void clear() override {
        scalingListPresent.clear();
        scalingLists.clear();
    }
    void parse(GolombBitStream& stream) override;
    void to_s(GolombBitStream& stream) override;

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

    void process_stream(GolombBitStream& stream, bool writing) override;

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

    void process_stream(GolombBitStream& stream, bool writing) override;

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

    void process_stream(GolombBitStream& stream, bool writing) override;

private:
    GolombData chroma_format_idc;
    BitData<1> separate_colour_plane_flag;
    GolombData bit_depth_luma_minus8;
    GolombData bit_depth_chroma_minus8;
    BitData<1> qpprime_y_zero_transform_bypass_flag;
    BitData<1> seq_scaling_matrix_present_flag;
    ScalingMatrix scalingMatrix;
};

/// 7.3.2.11 rbsp_trailing_bits. A set that does not end so throws "bad trailing bits"; zero bytes at the end
/// of a NAL unit are no part of it and let pass.
class TrailingBits : public Structure {
public:
    void clear() override { rbsp_stop_one_bit.clear(); }
    void process_stream(GolombBitStream& stream, bool writing) override;

private:
    BitData<1> rbsp_stop_one_bit;
};

/// A sequence parameter set with its NAL unit header (7.3.1, 7.3.2.1.1)
class SPS : public Structure {
public:
    BitData<8> profile_idc;
    BitData<1> constraint_set1_flag;
    BitData<1> vui_parameters_present_flag;
    VUI vui;

    void clear() override {
        highProfile.clear();
        offset_for_ref_frame.clear();
        vui.clear();
    }

    void process_stream(GolombBitStream& stream, bool writing) override;

    /// Whether video_full_range_flag is there and 1.
    [[nodiscard]] bool isFullRange() const;

private:
    [[nodiscard]] bool isHighProfile() const;

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
    TrailingBits rbsp_trailing_bits;
};

} // namespace H264
