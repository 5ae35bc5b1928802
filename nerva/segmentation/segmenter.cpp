// The segmenter's life cycle, its per-frame driver and its small accessors.
#include <cstdio>

#include "nerva/geometry/internal/wrap_arith.h"
#include "nerva/internal/report.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

constexpr int kBlobPoolSlots = 2000;
constexpr int kRegionPoolSize = 50000;
constexpr int kSegmentPoolSize = 100000;

// Regions and blobs link each other through shared pointers in both
// directions (a region's `next` and the absorber link back; a blob's `next`
// and `prev`), so a pool can only really be released after its links are cut.
void cut_region_links(std::vector<std::shared_ptr<region>>& pool)
{
    for (auto& reg : pool) {
        if (!reg) continue;
        reg->link.reset();
        reg->next.reset();
        reg->absorber.reset();
        reg->hole.reset();
    }
}

void cut_blob_links(const std::shared_ptr<RLEblob>& blob)
{
    if (!blob) return;
    blob->next.reset();
    blob->prev.reset();
}

// Why the frame cannot be segmented safely, written into `why`; false when
// it can.
bool frame_problem(const MV_RLEsegm& segmenter, const cv::Mat& mask, char* why, size_t size)
{
    if (!segmenter.rle_img || !segmenter.i2r) {
        std::snprintf(why, size, "segmenter not initialised (call RLEsegm_init_privateKAP first)");
        return true;
    }
    if (mask.empty() || mask.dims != 2 || mask.type() != CV_8UC1) {
        std::snprintf(why, size, "mask must be a non-empty 2-D 8-bit single-channel matrix (got type %d, %d dims)",
                      mask.type(), mask.dims);
        return true;
    }
    if (segmenter.step_x < 1) {
        std::snprintf(why, size, "column step %d is below 1", segmenter.step_x);
        return true;
    }
    if (segmenter.roi_ymin > segmenter.roi_ymax) return false;  // no row of interest: nothing to read
    const int rows = mask.rows < static_cast<int>(segmenter.rle_img->lines.size())
                         ? mask.rows
                         : static_cast<int>(segmenter.rle_img->lines.size());
    const int cols = mask.cols < segmenter.rle_img->width ? mask.cols : segmenter.rle_img->width;
    const bool rows_ok = segmenter.roi_ymin >= 0 && segmenter.roi_ymax < rows;
    const bool cols_ok =
        segmenter.roi_xmin > segmenter.roi_xmax || (segmenter.roi_xmin >= 0 && segmenter.roi_xmax < cols);
    if (!rows_ok || !cols_ok) {
        std::snprintf(why, size,
                      "region of interest x %d..%d, y %d..%d lies outside the %dx%d mask or the %dx%d frame "
                      "given at initialisation",
                      segmenter.roi_xmin, segmenter.roi_xmax, segmenter.roi_ymin, segmenter.roi_ymax, mask.cols,
                      mask.rows, segmenter.rle_img->width, static_cast<int>(segmenter.rle_img->lines.size()));
        return true;
    }
    return false;
}

}  // namespace

bool detail::segmenter_refuses_frame(const MV_RLEsegm& segm, const cv::Mat& mask, const char* who)
{
    char why[256];
    if (!frame_problem(segm, mask, why, sizeof why)) return false;
    report(MESSAGES_STDERR, "%s: %s; nothing segmented\n", who, why);
    return true;
}

void detail::grow_region_pool(MV_RLEsegm& segm)
{
    // Regions are held by shared pointer, so nothing already handed out moves.
    const size_t n = segm.reg_pool.size();
    segm.reg_pool.resize(n + n / 2 + 64);
    fill_from_block(segm.reg_pool, n, segm.reg_pool.size());
    for (size_t i = n; i < segm.reg_pool.size(); ++i) segm.reg_pool[i]->ident = static_cast<int32_t>(i);
}

MV_RLEsegm::MV_RLEsegm() : blob_pool(kBlobPoolSlots), msg(this), work(new detail::SegmenterWork)
{
    work->spare_blobs.reserve(kBlobPoolSlots);
}

MV_RLEsegm::~MV_RLEsegm()
{
    rle_img.reset();
    cut_region_links(reg_pool);
    reg_pool.clear();
    seg_pool.clear();
    i2r.reset();
    blob_head.reset();
    blob_tail.reset();
    for (auto& blob : blob_pool) cut_blob_links(blob);
    blob_pool.clear();
    work.reset();
}

std::vector<std::shared_ptr<region>> RLEsegm_reg_pool_init(int n, segm_ptr segmenter)
{
    cut_region_links(segmenter->reg_pool);
    segmenter->reg_pool.resize(n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(segmenter->reg_pool, 0, segmenter->reg_pool.size());
    for (size_t i = 0; i < segmenter->reg_pool.size(); ++i) segmenter->reg_pool[i]->ident = static_cast<int32_t>(i);
    segmenter->nb_regs = 0;
    return segmenter->reg_pool;
}

std::vector<std::shared_ptr<segment>> RLEsegm_seg_pool_init(int n, segm_ptr segmenter)
{
    detail::ensure_segment_slot(*segmenter, n - 1);  // keeps run-length lines valid if storage moves
    segmenter->seg_pool.resize(n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(segmenter->seg_pool, 0, segmenter->seg_pool.size());
    segmenter->nb_segs = 0;
    return segmenter->seg_pool;
}

void RLEsegm_init_privateKAP(segm_ptr segmenter, int xmin, int xmax, int ymin, int ymax, int width, int height)
{
    RLEsegm_reg_pool_init(kRegionPoolSize, segmenter);
    RLEsegm_seg_pool_init(kSegmentPoolSize, segmenter);
    segmenter->i2r = std::make_shared<img2regs>();
    segmenter->blob_head.reset();
    segmenter->blob_tail.reset();
    for (int i = 0; i < segmenter->nb_pool_blobs; ++i) {
        cut_blob_links(segmenter->blob_pool[static_cast<size_t>(i)]);
        segmenter->blob_pool[static_cast<size_t>(i)] = blob_new();
        segmenter->blob_pool[static_cast<size_t>(i)]->ident = i;
    }
    segmenter->last_blob = -1;
    segmenter->reg_mark = -1;
    RLEsegm_set_ROI(xmin, ymin, xmax, ymax, segmenter);
    segmenter->rle_img = RLEimage_initialize(segmenter->rle_img, width, height);
}

void RLEsegm_reset(segm_ptr segmenter)
{
    segmenter->nb_segs = 0;
    for (int i = 0; i < segmenter->nb_regs && static_cast<size_t>(i) < segmenter->reg_pool.size(); ++i)
        segmenter->reg_pool[static_cast<size_t>(i)]->reg_lines.clear();
    segmenter->nb_regs = 0;

    // Trim the blob pool only when it is clearly oversized. The slot
    // `last_blob` itself goes too, so exactly `last_blob` blobs remain.
    if (segmenter->last_blob >= 20 && segmenter->nb_pool_blobs - segmenter->last_blob >= 11) {
        // Cut the list links into and within the trimmed range first (the
        // list's tail is the blob at last_blob), so the released records are
        // really free.
        segmenter->blob_head.reset();
        segmenter->blob_tail.reset();
        const std::shared_ptr<RLEblob>& kept_tail = segmenter->blob_pool[static_cast<size_t>(segmenter->last_blob - 1)];
        if (kept_tail && kept_tail->next == segmenter->blob_pool[static_cast<size_t>(segmenter->last_blob)])
            kept_tail->next.reset();
        for (int i = segmenter->last_blob; i < segmenter->nb_pool_blobs; ++i)
            cut_blob_links(segmenter->blob_pool[static_cast<size_t>(i)]);
        for (int i = segmenter->last_blob; i < segmenter->nb_pool_blobs; ++i) {
            std::shared_ptr<RLEblob>& slot = segmenter->blob_pool[static_cast<size_t>(i)];
            if (!slot) continue;
            std::shared_ptr<RLEblob> blob = slot;
            blob_free(blob);
            // Nobody else should hold a pool blob past the frame; if the host
            // does, the record is left to it rather than recycled.
            if (slot.use_count() == 1) segmenter->work->spare_blobs.push_back(std::move(slot));
            slot.reset();
        }
        segmenter->nb_pool_blobs = segmenter->last_blob;
    }
    segmenter->nb_blobs = 0;
    segmenter->last_blob = -1;
    segmenter->blob_head.reset();
    segmenter->blob_tail.reset();
}

void RLEsegm_free_private(segm_ptr segmenter)
{
    segmenter->rle_img = RLEimage_free(segmenter->rle_img);
    cut_region_links(segmenter->reg_pool);
    segmenter->reg_pool.clear();
    segmenter->seg_pool.clear();
    if (segmenter->i2r) segmenter->i2r.reset();
    for (int i = 0; i < segmenter->nb_pool_blobs && static_cast<size_t>(i) < segmenter->blob_pool.size(); ++i) {
        std::shared_ptr<RLEblob> blob = segmenter->blob_pool[static_cast<size_t>(i)];
        if (blob) blob_free(blob);
    }
}

std::shared_ptr<RLEblob> RLEsegm_segmentKAP(const cv::Mat& mask, segm_ptr segmenter)
{
    // The size filter in force at entry is the one used.
    const int min_side = segmenter->min_blob_side;
    const int min_pixels = segmenter->min_blob_pixels;

    if (detail::segmenter_refuses_frame(*segmenter, mask, "RLEsegm_segmentKAP()")) {
        RLEsegm_reset(segmenter);
        return nullptr;
    }
    RLEsegm_reset(segmenter);
    RLEreset_blob_idents(segmenter);
    detail::extract_frame(*segmenter, mask, detail::ExtractionMode::driver);

    if (segmenter->nb_segs == 0) {
        segmenter->nb_blobs_prev = segmenter->nb_blobs_cur;
        segmenter->blob_area_prev = segmenter->blob_area_cur;
        segmenter->nb_blobs_cur = 0;
        segmenter->blob_area_cur = 0;
        return nullptr;
    }

    // The sweep of img2regs_init, img2regs_exec over the rows of interest
    // and img2regs_pass2, on plain indices.
    detail::label_frame(*segmenter);
    set_segs_in_regsKAP(segmenter, mask.rows);
    std::shared_ptr<RLEblob> head = RLEsegm_regions2blobsKAP(min_side, min_pixels, segmenter);

    // "Area" is the area of the boxes, not the number of foreground pixels.
    int32_t count = 0, area = 0;
    for (const RLEblob* blob = head.get(); blob; blob = blob->next.get()) {
        ++count;
        area = wrap_add(area, wrap_mul(blob->bbox.width, blob->bbox.height));
    }
    segmenter->nb_blobs_prev = segmenter->nb_blobs_cur;
    segmenter->nb_blobs_cur = count;
    segmenter->blob_area_prev = segmenter->blob_area_cur;
    segmenter->blob_area_cur = area;

    for (auto& entry : segmenter->densities)
        entry.second = entry.second / static_cast<double>(wrap_mul(entry.first->width, entry.first->height));
    return head;
}

void RLEsegm_set_steps(segm_ptr segmenter, int step_x, int step_y)
{
    segmenter->step_x = step_x;
    segmenter->step_y = step_y;
}

std::shared_ptr<RLEimage> RLEsegm_get_rle_img(segm_ptr segmenter) { return segmenter->rle_img; }

void RLEsegm_set_ROI(int xmin, int ymin, int xmax, int ymax, segm_ptr segmenter)
{
    segmenter->roi_xmin = xmin;
    segmenter->roi_ymin = ymin;
    segmenter->roi_xmax = xmax;
    segmenter->roi_ymax = ymax;
}

int RLEsegm_get_blobs_number(segm_ptr segmenter) { return segmenter->nb_blobs; }

void RLEsegm_increase_blobs_number(segm_ptr segmenter) { segmenter->nb_blobs = wrap_add(segmenter->nb_blobs, 1); }

void RLEsegm_decrease_blobs_number(segm_ptr segmenter) { segmenter->nb_blobs = wrap_sub(segmenter->nb_blobs, 1); }

void RLEreset_blob_idents(segm_ptr segmenter)
{
    for (int i = 0; i < segmenter->nb_pool_blobs && static_cast<size_t>(i) < segmenter->blob_pool.size(); ++i)
        if (segmenter->blob_pool[static_cast<size_t>(i)]) segmenter->blob_pool[static_cast<size_t>(i)]->ident = i;
}

}  // namespace nerva
