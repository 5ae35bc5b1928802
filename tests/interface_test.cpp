// Every public function of the library's interface exists with the expected
// name: taking its address fails to compile (or link) otherwise.
#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {
using any_fn = void (*)();
template <class Fn>
any_fn erase(Fn f)
{
    return reinterpret_cast<any_fn>(f);
}
#define F(name) erase(&name)
}  // namespace

// clang-format off
TEST(Interface, EveryPublicFunctionExists)
{
    const std::vector<any_fn> functions = {
        F(RLEsegm_init_privateKAP), F(RLEsegm_reg_pool_init), F(RLEsegm_seg_pool_init), F(RLEsegm_segmentKAP),
        F(RLEsegm_reset), F(RLEsegm_free_private), F(RLEsegm_set_steps), F(RLEsegm_get_rle_img), F(RLEsegm_set_ROI),
        F(RLEsegm_get_blobs_number), F(RLEsegm_increase_blobs_number), F(RLEsegm_decrease_blobs_number),
        F(RLEreset_blob_idents), F(img2regs_init), F(img2regs_exec), F(img2regs_initstep), F(img2regs_iter),
        F(img2regs_avanp), F(img2regs_avanc), F(img2regs_new_region), F(img2regs_fusion), F(img2regs_replace),
        F(img2regs_pass2), F(set_segs_in_regsKAP), F(RLEsegm_regions2blobsKAP), F(RLEsegm_get_new_blob),
        F(RLEsegm_blob_list_append), F(RLEsegm_blob_list_append_to_head), F(RLEsegm_blob_list_remove_blob),
        F(RLEsegm_get_region), F(subregion_get_sumxsumy), F(subregion_get_sumx), F(subregion_get_sumy),
        F(subregion_get_xlimit), F(subregion_get_ylimit), F(segment_new), F(region_new), F(segment_free),
        F(region_free), F(new_segment_list), F(insert_in_seg_list), F(free_segment_list), F(region_initialize),
        F(region_absorb_segment), F(region_absorb_region), F(region_add_hole), F(RLEimage_new), F(RLEimage_initialize),
        F(RLEimage_get_line), F(RLEimage_free), F(blob_new), erase(static_cast<blob_ptr (*)(blob_ptr)>(&copy_blob)),
        erase(static_cast<RLEblob* (*)(blob_ptr, blob_ptr)>(&copy_blob)), F(copy_blob_data), F(copy_blob_with_lists),
        F(copy_blob_list), F(blob_free), F(free_blob_list), F(blob_clean), F(blob_list_number), F(blob_get_biggest2D),
        F(remove_blob), F(blob_same_father), F(get_type_from_name), F(get_name_from_type), F(get_subtype_from_name),
        F(get_name_from_subtype), F(get_occl_type_from_name), F(get_occl_name_from_type),
        F(get_occl_name_from_type_detailed), F(compute_overlap_ratio_blob), F(compute_overlap_ratio_blob_strict),
        F(is_blob1_overlap_blob2), F(isPixBelongsToBlob), F(is_blob1_inside_blob2), F(same2DBlob), F(isBlobOcculted),
        F(isBlobTopOcculted), F(isBlobBottomOcculted), F(isBlobHuman), F(isBlobAVehicle), F(isBlobARealObject),
        F(vertical_split_blob), F(horizontal_split_blob), F(set_in_height_given_position), F(prdata_new),
        F(prdata_free), F(free_prd_list), erase(static_cast<prob_rel_data* (*)(const prob_rel_data*)>(&copy_prdata)),
        erase(static_cast<void (*)(const prob_rel_data*, prob_rel_data*)>(&copy_prdata)), F(copy_prdata_list),
        F(copy_prdata_no_lists), F(copy_prdata_only_info), F(copy_prd_to_blob), F(copy_blob_to_prd),
        erase(static_cast<void (*)(blob_ptr, prob_rel_data*)>(&set_null_3D_prd)),
        erase(static_cast<void (*)(prob_rel_data*, blob_type_t, blob_subtype_t, blob_occl_type, const rectangle*)>(
            &set_null_3D_prd)),
        F(new_rectangle), F(free_rectangle), F(init_rectangle), F(initRectangle), F(make_rectangle), F(copy_rectangle),
        F(absorb_rectangle), F(merge_rectangle), F(rectangle_intersection), F(rectangle_union),
        F(rectangle_intersect_ratio), F(rectangle_intersect_ratio_strict), F(rectangle_distance),
        F(rectangle_exact_distance), F(rect_distance), F(rectangles_intersect), F(rectangle_in_rectangle),
        F(rectangleIntersectionArea), F(rectangleNIntersectionArea), F(rectangleArea), F(new_frectangle),
        F(free_frectangle), F(init_frectangle), F(make_frectangle), F(new_parallelepiped), F(free_parallelepiped),
        F(copy_parallelepiped), F(get_w_l), F(init_parall_limits), F(get_parall_limits), F(math::ceilOrFloor),
        F(math::areEqual), F(math::gaussian), F(math::roundInt),
        erase(static_cast<double (*)(double, double)>(&math::max)),
        erase(static_cast<double (*)(double, double)>(&math::min)), erase(static_cast<int (*)(int, int)>(&math::max)),
        erase(static_cast<int (*)(int, int)>(&math::min)), F(initialize_image), F(make_image), F(destroy_image),
        F(clear_image), F(copy_whole_image), F(copy_image_content), F(image_data_encapsulate), F(convert_to_grey),
        F(convert_to_4bytes), F(convert_to_1byte), F(save_image), F(_write_header), F(draw_rectangle),
        F(draw_color_rectangle), F(bb_draw_color_line), F(bb_draw_color_line_diag), F(clear_image_area),
        F(merge_binary_images), F(merge_binary_images_color), F(check_RGB_channels_extension), F(save_gradient),
        F(color_thresholding), F(grey_thresholding), F(float_thresholding), F(int_thresholding), F(update),
        F(grey_thresholded_update), F(color_thresholded_update), F(copy_to_bg), F(copy_from_bg), F(abs_difference),
        F(sign_difference), F(abs_image), F(show_chgmt), F(_color_show_chgmt), F(RLEimage_to_binaire),
        F(RLEimage_to_binary_raw_gray), F(RLEimage_save_binaire), F(RLEimage_clear_binaire), F(init_CamStamp_st),
        F(init_TimeStamp_st), F(init_JpegHeader_st), F(atob),
    };
    for (any_fn f : functions) EXPECT_NE(f, nullptr);
    EXPECT_TRUE(&MV_RLEsegm::RLEsegm_build_RLEimageKAP && &MV_RLEsegm::RLEsegm_build_RLElineKAP);
}
// clang-format on
