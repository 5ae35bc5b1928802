// Every public function of the library's interface exists with the expected
// name: taking its address fails to compile (or link) otherwise.
#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

using any_fn = void (*)();

template <class F>
any_fn erase(F f)
{
    return reinterpret_cast<any_fn>(f);
}

#define NERVA_FN(name) erase(&name)

}  // namespace

TEST(Interface, EveryPublicFunctionExists)
{
    const std::vector<any_fn> functions = {
        // segmentation
        NERVA_FN(RLEsegm_init_privateKAP), NERVA_FN(RLEsegm_reg_pool_init), NERVA_FN(RLEsegm_seg_pool_init),
        NERVA_FN(RLEsegm_segmentKAP), NERVA_FN(RLEsegm_reset), NERVA_FN(RLEsegm_free_private),
        NERVA_FN(RLEsegm_set_steps), NERVA_FN(RLEsegm_get_rle_img), NERVA_FN(RLEsegm_set_ROI),
        NERVA_FN(RLEsegm_get_blobs_number), NERVA_FN(RLEsegm_increase_blobs_number),
        NERVA_FN(RLEsegm_decrease_blobs_number), NERVA_FN(RLEreset_blob_idents), NERVA_FN(img2regs_init),
        NERVA_FN(img2regs_exec), NERVA_FN(img2regs_initstep), NERVA_FN(img2regs_iter), NERVA_FN(img2regs_avanp),
        NERVA_FN(img2regs_avanc), NERVA_FN(img2regs_new_region), NERVA_FN(img2regs_fusion),
        NERVA_FN(img2regs_replace), NERVA_FN(img2regs_pass2), NERVA_FN(set_segs_in_regsKAP),
        NERVA_FN(RLEsegm_regions2blobsKAP), NERVA_FN(RLEsegm_get_new_blob), NERVA_FN(RLEsegm_blob_list_append),
        NERVA_FN(RLEsegm_blob_list_append_to_head), NERVA_FN(RLEsegm_blob_list_remove_blob),
        NERVA_FN(RLEsegm_get_region), NERVA_FN(subregion_get_sumxsumy), NERVA_FN(subregion_get_sumx),
        NERVA_FN(subregion_get_sumy), NERVA_FN(subregion_get_xlimit), NERVA_FN(subregion_get_ylimit),
        NERVA_FN(segment_new), NERVA_FN(region_new), NERVA_FN(segment_free), NERVA_FN(region_free),
        NERVA_FN(new_segment_list), NERVA_FN(insert_in_seg_list), NERVA_FN(free_segment_list),
        NERVA_FN(region_initialize), NERVA_FN(region_absorb_segment), NERVA_FN(region_absorb_region),
        NERVA_FN(region_add_hole),
        // run-length images
        NERVA_FN(RLEimage_new), NERVA_FN(RLEimage_initialize), NERVA_FN(RLEimage_get_line), NERVA_FN(RLEimage_free),
        // blobs
        NERVA_FN(blob_new), erase(static_cast<blob_ptr (*)(blob_ptr)>(&copy_blob)),
        erase(static_cast<RLEblob* (*)(blob_ptr, blob_ptr)>(&copy_blob)), NERVA_FN(copy_blob_data),
        NERVA_FN(copy_blob_with_lists), NERVA_FN(copy_blob_list), NERVA_FN(blob_free), NERVA_FN(free_blob_list),
        NERVA_FN(blob_clean), NERVA_FN(blob_list_number), NERVA_FN(blob_get_biggest2D), NERVA_FN(remove_blob),
        NERVA_FN(blob_same_father), NERVA_FN(get_type_from_name), NERVA_FN(get_name_from_type),
        NERVA_FN(get_subtype_from_name), NERVA_FN(get_name_from_subtype), NERVA_FN(get_occl_type_from_name),
        NERVA_FN(get_occl_name_from_type), NERVA_FN(get_occl_name_from_type_detailed),
        NERVA_FN(compute_overlap_ratio_blob), NERVA_FN(compute_overlap_ratio_blob_strict),
        NERVA_FN(is_blob1_overlap_blob2), NERVA_FN(isPixBelongsToBlob), NERVA_FN(is_blob1_inside_blob2),
        NERVA_FN(same2DBlob), NERVA_FN(isBlobOcculted), NERVA_FN(isBlobTopOcculted), NERVA_FN(isBlobBottomOcculted),
        NERVA_FN(isBlobHuman), NERVA_FN(isBlobAVehicle), NERVA_FN(isBlobARealObject), NERVA_FN(vertical_split_blob),
        NERVA_FN(horizontal_split_blob), NERVA_FN(set_in_height_given_position), NERVA_FN(prdata_new),
        NERVA_FN(prdata_free), NERVA_FN(free_prd_list),
        erase(static_cast<prob_rel_data* (*)(const prob_rel_data*)>(&copy_prdata)),
        erase(static_cast<void (*)(const prob_rel_data*, prob_rel_data*)>(&copy_prdata)),
        NERVA_FN(copy_prdata_list), NERVA_FN(copy_prdata_no_lists), NERVA_FN(copy_prdata_only_info),
        NERVA_FN(copy_prd_to_blob), NERVA_FN(copy_blob_to_prd),
        erase(static_cast<void (*)(blob_ptr, prob_rel_data*)>(&set_null_3D_prd)),
        erase(static_cast<void (*)(prob_rel_data*, blob_type_t, blob_subtype_t, blob_occl_type, const rectangle*)>(
            &set_null_3D_prd)),
        // geometry and numerics
        NERVA_FN(new_rectangle), NERVA_FN(free_rectangle), NERVA_FN(init_rectangle), NERVA_FN(initRectangle),
        NERVA_FN(make_rectangle), NERVA_FN(copy_rectangle), NERVA_FN(absorb_rectangle), NERVA_FN(merge_rectangle),
        NERVA_FN(rectangle_intersection), NERVA_FN(rectangle_union), NERVA_FN(rectangle_intersect_ratio),
        NERVA_FN(rectangle_intersect_ratio_strict), NERVA_FN(rectangle_distance), NERVA_FN(rectangle_exact_distance),
        NERVA_FN(rect_distance), NERVA_FN(rectangles_intersect), NERVA_FN(rectangle_in_rectangle),
        NERVA_FN(rectangleIntersectionArea), NERVA_FN(rectangleNIntersectionArea), NERVA_FN(rectangleArea),
        NERVA_FN(new_frectangle), NERVA_FN(free_frectangle), NERVA_FN(init_frectangle), NERVA_FN(make_frectangle),
        NERVA_FN(new_parallelepiped), NERVA_FN(free_parallelepiped), NERVA_FN(copy_parallelepiped),
        NERVA_FN(get_w_l), NERVA_FN(init_parall_limits), NERVA_FN(get_parall_limits), NERVA_FN(math::ceilOrFloor),
        NERVA_FN(math::areEqual), NERVA_FN(math::gaussian), NERVA_FN(math::roundInt),
        erase(static_cast<double (*)(double, double)>(&math::max)),
        erase(static_cast<double (*)(double, double)>(&math::min)), erase(static_cast<int (*)(int, int)>(&math::max)),
        erase(static_cast<int (*)(int, int)>(&math::min)),
        // images
        NERVA_FN(initialize_image), NERVA_FN(make_image), NERVA_FN(destroy_image), NERVA_FN(clear_image),
        NERVA_FN(copy_whole_image), NERVA_FN(copy_image_content), NERVA_FN(image_data_encapsulate),
        NERVA_FN(convert_to_grey), NERVA_FN(convert_to_4bytes), NERVA_FN(convert_to_1byte), NERVA_FN(save_image),
        NERVA_FN(_write_header), NERVA_FN(draw_rectangle), NERVA_FN(draw_color_rectangle),
        NERVA_FN(bb_draw_color_line), NERVA_FN(bb_draw_color_line_diag), NERVA_FN(clear_image_area),
        NERVA_FN(merge_binary_images), NERVA_FN(merge_binary_images_color), NERVA_FN(check_RGB_channels_extension),
        NERVA_FN(save_gradient), NERVA_FN(color_thresholding), NERVA_FN(grey_thresholding),
        NERVA_FN(float_thresholding), NERVA_FN(int_thresholding), NERVA_FN(update), NERVA_FN(grey_thresholded_update),
        NERVA_FN(color_thresholded_update), NERVA_FN(copy_to_bg), NERVA_FN(copy_from_bg), NERVA_FN(abs_difference),
        NERVA_FN(sign_difference), NERVA_FN(abs_image), NERVA_FN(show_chgmt), NERVA_FN(_color_show_chgmt),
        NERVA_FN(RLEimage_to_binaire), NERVA_FN(RLEimage_to_binary_raw_gray), NERVA_FN(RLEimage_save_binaire),
        NERVA_FN(RLEimage_clear_binaire),
        // stamps
        NERVA_FN(init_CamStamp_st), NERVA_FN(init_TimeStamp_st), NERVA_FN(init_JpegHeader_st), NERVA_FN(atob),
    };
    for (any_fn f : functions) EXPECT_NE(f, nullptr);
    EXPECT_NE(&MV_RLEsegm::RLEsegm_build_RLEimageKAP, nullptr);
    EXPECT_NE(&MV_RLEsegm::RLEsegm_build_RLElineKAP, nullptr);
}
