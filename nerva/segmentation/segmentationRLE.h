#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "nerva/blob/RLEblob.h"
#include "nerva/geometry/rectangle.h"
#include "nerva/rle/RLEimage.h"
#include "nerva/segmentation/RLEregion.h"
#include "nerva/segmentation/observer.h"

// Blob segmentation of foreground masks.
//
// One MV_RLEsegm per stream of masks of one frame size. The host creates it
// inside a shared pointer, calls RLEsegm_init_privateKAP once, optionally sets
// the steps, the region of interest and the size filter, then calls
// RLEsegm_segmentKAP once per frame and walks the returned blob list. The
// blobs belong to the segmenter and are reused by the next frame: copy a blob
// (copy_blob) to keep it longer.
//
// Per frame, in order: reset, run extraction (sparse over rows and columns
// when the steps are above 1; exact with steps 1,1), a one-pass sweep that
// labels runs into 4-connected regions, a second pass resolving merges, and
// the conversion of surviving regions into blobs from the blob pool.
//
// Choices that keep a host safe:
//  - Pools grow for a frame that needs more runs or regions than they hold
//    (100000 segments, 50000 regions after initialisation), so the result
//    stays exact; the larger pools are kept for later frames. Run-length
//    lines are re-pointed when the segment pool's storage moves.
//  - Beyond 2000 kept regions the last pool blob is reused with the message
//    "RLEsegm_get_new_blob(): too many blobs !Last blob reused." (hosts
//    filter on that line), but appending the blob that is already the list's tail leaves the links
//    alone, so the list never links to itself and every walk terminates
//    (nb_blobs still counts every append).
//  - RLEsegm_segmentKAP refuses, with one line on standard error and a null
//    result (after resetting the blob list, without notifying observers and
//    without touching the statistics): an uninitialised segmenter; a mask
//    that is not 8-bit single channel (CV_8UC1 and CV_8SC1 are both read as
//    bytes); a region of interest outside the mask
//    or outside the initialised frame; a column step below 1. A row step of
//    0 or less reads every row (dense mode): that is always safe and exact
//    down the image, so it is taken as "no row sampling". An inverted region
//    of interest (xmin > xmax or ymin > ymax) is legal and finds nothing.
//  - Blobs released by the pool trimming are recycled (zero-filled again)
//    when the pool grows back, instead of being allocated anew.
//  - Observers are called from a snapshot of the list (one removed before its
//    turn is skipped) and the frame is checked again after them, so an
//    observer may move the region of interest, change the steps, free or
//    re-initialise the segmenter; segmenting again from notify is refused.
//  - Rows of the run-length image are emptied before the runs they point at
//    go (RLEsegm_free_private, RLEsegm_seg_pool_init, destruction): a host
//    may keep the image or a line past them.
//  - Region row indexes and region-line chunks left by a tall or crowded
//    frame are trimmed between frames; a repeated frame allocates nothing.
//  - Per-row region lines (region::reg_lines) come from an arena owned by the
//    segmenter, through non-owning shared pointers (no reference counting on
//    the hot path): they are valid until the next frame and never beyond the
//    segmenter's life.
namespace nerva {

class MV_RLEsegm;
namespace detail {
struct SegmenterWork;
}

struct CSegmentMessage {
    explicit CSegmentMessage(MV_RLEsegm* s) : sender(s) {}
    MV_RLEsegm* sender;
    int32_t type = 0;  // 1 when sent: "new frame, runs about to be extracted"
    int32_t arg1 = 0;  // -1 when sent
    int32_t arg2 = 0;  // -1 when sent
    uint64_t payload = 0;
};

// The labelling sweep's state: one per segmenter.
struct img2regs {
    std::shared_ptr<region> first;  // first region created this frame
    std::shared_ptr<region> last;   // last region created (chain tail)
    int32_t y = 0;                  // row being labelled
    std::shared_ptr<segment> cur_seg;
    std::shared_ptr<segment> prev_seg;
    std::shared_ptr<segment>* prev_runs = nullptr;  // not owned
    int32_t prev_count = 0;
    std::shared_ptr<segment>* cur_runs = nullptr;  // not owned
    int32_t cur_count = 0;
    int32_t prev_idx = -1;
    int32_t cur_idx = -1;
};

class MV_RLEsegm : public Observable<CSegmentMessage> {
public:
    MV_RLEsegm();
    virtual ~MV_RLEsegm();
    MV_RLEsegm(const MV_RLEsegm&) = delete;
    MV_RLEsegm& operator=(const MV_RLEsegm&) = delete;

    // Fills rle_img for the region of interest, notifies the observers once
    // and returns a new reference to rle_img.
    std::shared_ptr<RLEimage> RLEsegm_build_RLEimageKAP(const cv::Mat& mask);
    // Extracts the runs of row y into line y (every step_x-th column).
    void RLEsegm_build_RLElineKAP(int y, const cv::Mat& mask);

    std::shared_ptr<RLEimage> rle_img;
    std::shared_ptr<img2regs> i2r;
    std::vector<std::shared_ptr<segment>> seg_pool;
    int32_t nb_segs = 0;
    std::vector<std::shared_ptr<region>> reg_pool;
    int32_t nb_regs = 0;
    int32_t reg_mark = 0;
    std::vector<std::shared_ptr<RLEblob>> blob_pool;
    int32_t last_blob = 0;
    int32_t nb_pool_blobs = 0;
    std::shared_ptr<RLEblob> blob_head;
    std::shared_ptr<RLEblob> blob_tail;
    int32_t nb_blobs = 0;
    int32_t roi_xmin = 0, roi_ymin = 0, roi_xmax = 0, roi_ymax = 0;
    int32_t step_x = 4;
    int32_t step_y = 2;
    int32_t spare_a = 0;  // set by the constructor, used by nothing
    int32_t spare_b = 0;
    int32_t min_blob_side = 0;    // smallest accepted box width and height
    int32_t min_blob_pixels = 0;  // smallest accepted pixel count
    int32_t nb_blobs_cur = -1;
    int32_t blob_area_cur = -1;  // sum of box areas (not pixel counts)
    int32_t nb_blobs_prev = -1;
    int32_t blob_area_prev = -1;
    // Host-filled; each value divided by its box's area every frame (a null
    // key's value is left as it is).
    std::map<rectangle*, double> densities;
    bool flag = false;
    CSegmentMessage msg;

    // The library's working state for this segmenter (arena, scratch
    // arrays, spare blobs): private, so its layout is not part of the record.
    std::unique_ptr<detail::SegmenterWork> work;
};

using segm_ptr = std::shared_ptr<MV_RLEsegm>;

// ---- life cycle and driver ----
void RLEsegm_init_privateKAP(segm_ptr s, int xmin, int xmax, int ymin, int ymax, int width, int height);
std::vector<std::shared_ptr<region>> RLEsegm_reg_pool_init(int n, segm_ptr s);
std::vector<std::shared_ptr<segment>> RLEsegm_seg_pool_init(int n, segm_ptr s);
// Segments one frame; returns the head of the blob list or null.
std::shared_ptr<RLEblob> RLEsegm_segmentKAP(const cv::Mat& mask, segm_ptr s);
void RLEsegm_reset(segm_ptr s);
void RLEsegm_free_private(segm_ptr s);
void RLEsegm_set_steps(segm_ptr s, int step_x, int step_y);
std::shared_ptr<RLEimage> RLEsegm_get_rle_img(segm_ptr s);
// Note the order: x, y of the first corner, then x, y of the last.
void RLEsegm_set_ROI(int xmin, int ymin, int xmax, int ymax, segm_ptr s);
int RLEsegm_get_blobs_number(segm_ptr s);
void RLEsegm_increase_blobs_number(segm_ptr s);
void RLEsegm_decrease_blobs_number(segm_ptr s);
void RLEreset_blob_idents(segm_ptr s);

// ---- limits a host may set (kept outside the record, whose layout stays) ----
// Upper bound, in bytes, on what the segmenter's pools, scratch arrays and
// region lines may hold for a frame; 0 (the default) for none. A frame whose
// runs could take more is refused before any row is extracted (null list,
// one line on standard error); the pools stay as they were. The pools made
// by RLEsegm_init_privateKAP count too (about 13 MB), and so does each blob
// record the frame may take from the blob pool (about 20 KB).
void RLEsegm_set_memory_ceiling(segm_ptr s, size_t bytes);
size_t RLEsegm_get_memory_ceiling(segm_ptr s);
// With true, the pool-full notice is written once per frame with the number
// of reuses ("RLEsegm_get_new_blob(): too many blobs !Last blob reused. (%d
// times in this frame)") instead of once per reuse (the default).
void RLEsegm_count_reused_blobs(segm_ptr s, bool one_line_per_frame);
// How often the last frame reused the pool's last blob (0 when it did not).
int RLEsegm_get_reused_blobs(segm_ptr s);

// ---- region labelling ----
using i2r_ptr = std::shared_ptr<img2regs>;
void img2regs_init(i2r_ptr i2r, segm_ptr segm);
void img2regs_exec(i2r_ptr i2r, int nrows, segm_ptr segm);
void img2regs_initstep(i2r_ptr i2r, segm_ptr segm);
void img2regs_iter(i2r_ptr i2r, segm_ptr segm);
void img2regs_avanp(i2r_ptr i2r);
void img2regs_avanc(i2r_ptr i2r, segm_ptr segm);
void img2regs_new_region(i2r_ptr i2r, int x_start, std::shared_ptr<segment> run, segm_ptr segm);
void img2regs_fusion(i2r_ptr i2r);
void img2regs_replace(i2r_ptr i2r, std::shared_ptr<region> old_reg, std::shared_ptr<region> new_reg);
void img2regs_pass2(i2r_ptr i2r, segm_ptr segm);

// ---- regions to blobs ----
void set_segs_in_regsKAP(segm_ptr s, int nrows);
std::shared_ptr<RLEblob> RLEsegm_regions2blobsKAP(int min_side, int min_pixels, segm_ptr s);
std::shared_ptr<RLEblob> RLEsegm_get_new_blob(segm_ptr s);
void RLEsegm_blob_list_append(std::shared_ptr<RLEblob> blob, segm_ptr s);
void RLEsegm_blob_list_append_to_head(std::shared_ptr<RLEblob> blob, segm_ptr s);
void RLEsegm_blob_list_remove_blob(std::shared_ptr<RLEblob> blob, segm_ptr s);
// reg_pool[i] for i <= nb_regs (the first unused region included), else null.
std::shared_ptr<region> RLEsegm_get_region(int i, segm_ptr s);

// ---- measures of one region inside a rectangle (bounds inclusive) ----
// `ident` is the region's pool position; only runs owned by that very region count.
int subregion_get_sumxsumy(int ident, int x1, int y1, int x2, int y2, double* sumx, double* sumy, segm_ptr segm);
double subregion_get_sumx(int ident, int x1, int y1, int x2, int y2, segm_ptr segm);
double subregion_get_sumy(int ident, int x1, int y1, int x2, int y2, segm_ptr segm);
// 1 when both sides are reached (strict overlap with the rectangle's columns).
int subregion_get_xlimit(int ident, int x1, int y1, int x2, int y2, int* xmin, int* xmax, segm_ptr segm);
// 1 when both the top and the bottom row are found (inclusive overlap).
int subregion_get_ylimit(int ident, int x1, int y1, int x2, int y2, int* ymin, int* ymax, segm_ptr segm);

}  // namespace nerva
