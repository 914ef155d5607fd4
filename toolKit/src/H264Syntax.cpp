// SPDX-License-Identifier: MIT
#include "H264Syntax.h"

#include <algorithm>
#include <array>

namespace H264 {

void ScalingList::process_stream(GolombBitStream& stream, bool writing, int size) {
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

void ScalingMatrix::parse(GolombBitStream& stream) {
    constexpr size_t listsOf4x4 = 6;
    clear();
    for (size_t i = 0; i < lists; ++i) {
        scalingListPresent.parse(stream);
        scalingLists.emplace_back();
        if (scalingListPresent.values.back() == 1) {
            scalingLists.back().process_stream(stream, false, i < listsOf4x4 ? 16 : 64);
        }
    }
}

void ScalingMatrix::to_s(GolombBitStream& stream) {
    for (ScalingList& list : scalingLists) {
        scalingListPresent.to_s(stream);
        list.to_s(stream); // nothing, where the flag is 0
    }
}

void HRD::process_stream(GolombBitStream& stream, bool writing) {
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

void VUI::process_stream(GolombBitStream& stream, bool writing) {
    constexpr uint32_t extendedSar = 255;
    const Walk walk{stream, writing};
    if (walk(aspect_ratio_info_present_flag)) {
        if (walk(aspect_ratio_idc) == extendedSar) {
            walk(sar_width);
            walk(sar_height);
        }
    }
    if (walk(overscan_info_present_flag)) {
        walk(overscan_appropriate_flag);
    }
    if (walk(video_signal_type_present_flag)) {
        walk(video_format);
        walk(video_full_range_flag);
        if (walk(colour_description_present_flag)) {
            walk(colour_primaries);
            walk(transfer_characteristics);
            walk(matrix_coefficients);
        }
    }
    if (walk(chroma_loc_info_present_flag)) {
        walk(chroma_sample_loc_type_top_field);
        walk(chroma_sample_loc_type_bottom_field);
    }
    if (walk(timing_info_present_flag)) {
        walk(num_units_in_tick);
        walk(time_scale);
        walk(fixed_frame_rate_flag);
    }
    if (walk(nal_hrd_parameters_present_flag)) {
        walk(nal_hrd);
    }
    if (walk(vcl_hrd_parameters_present_flag)) {
        walk(vcl_hrd);
    }
    if (nal_hrd_parameters_present_flag.value || vcl_hrd_parameters_present_flag.value) {
        walk(low_delay_hrd_flag);
    }
    walk(pic_struct_present_flag);
    if (walk(bitstream_restriction_flag)) {
        walk(motion_vectors_over_pic_boundaries_flag);
        walk(max_bytes_per_pic_denom);
        walk(max_bits_per_mb_denom);
        walk(log2_max_mv_length_horizontal);
        walk(log2_max_mv_length_vertical);
        walk(max_num_reorder_frames);
        walk(max_dec_frame_buffering);
    }
}

void HighProfileSpec::process_stream(GolombBitStream& stream, bool writing) {
    constexpr uint32_t chroma444 = 3;
    const Walk walk{stream, writing};
    if (walk(chroma_format_idc) == chroma444) {
        walk(separate_colour_plane_flag);
    }
    walk(bit_depth_luma_minus8);
    walk(bit_depth_chroma_minus8);
    walk(qpprime_y_zero_transform_bypass_flag);
    if (walk(seq_scaling_matrix_present_flag)) {
        scalingMatrix.lists = chroma_format_idc.value == chroma444 ? 12 : 8;
        walk(scalingMatrix);
    }
}

void TrailingBits::process_stream(GolombBitStream& stream, bool writing) {
    const Walk walk{stream, writing};
    bool understood = walk(rbsp_stop_one_bit);
    while (!writing && understood && stream.bitsLeft() != 0) {
        understood = stream.next_bit() == 0;
    }
    if (!understood) {
        throw "bad trailing bits";
    }
    stream.flush_bits();
}

void SPS::process_stream(GolombBitStream& stream, bool writing) {
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
    if (walk(pic_order_cnt_type) == 0) {
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
    if (walk(frame_mbs_only_flag) == 0) {
        walk(mb_adaptive_frame_field_flag);
    }
    walk(direct_8x8_inference_flag);
    if (walk(frame_cropping_flag)) {
        walk(frame_crop_left_offset);
        walk(frame_crop_right_offset);
        walk(frame_crop_top_offset);
        walk(frame_crop_bottom_offset);
    }
    if (walk(vui_parameters_present_flag)) {
        walk(vui);
    }
    walk(rbsp_trailing_bits);
}

bool SPS::isFullRange() const {
    return vui_parameters_present_flag.value == 1 && vui.video_signal_type_present_flag.value == 1 &&
           vui.video_full_range_flag.value == 1;
}

bool SPS::isHighProfile() const {
    constexpr std::array<uint32_t, 10> profiles{100, 110, 122, 244, 44, 83, 86, 118, 128, 138};
    return std::find(profiles.begin(), profiles.end(), profile_idc.value) != profiles.end();
}

} // namespace H264
