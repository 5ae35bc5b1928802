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
    for (auto& r : pool) {
        if (!r) continue;
        r->link.reset();
        r->next.reset();
        r->absorber.reset();
        r->hole.reset();
    }
}

void cut_blob_links(const std::shared_ptr<RLEblob>& b)
{
    if (!b) return;
    b->next.reset();
    b->prev.reset();
}

// Why the frame cannot be segmented safely, written into `why`; false when
// it can.
bool frame_problem(const MV_RLEsegm& s, const cv::Mat& mask, char* why, size_t size)
{
    if (!s.rle_img || !s.i2r) {
        std::snprintf(why, size, "segmenter not initialised (call RLEsegm_init_privateKAP first)");
        return true;
    }
    if (mask.empty() || mask.dims != 2 || mask.type() != CV_8UC1) {
        std::snprintf(why, size, "mask must be a non-empty 2-D 8-bit single-channel matrix (got type %d, %d dims)",
                      mask.type(), mask.dims);
        return true;
    }
    if (s.step_x < 1) {
        std::snprintf(why, size, "column step %d is below 1", s.step_x);
        return true;
    }
    if (s.roi_ymin > s.roi_ymax) return false;  // no row of interest: nothing to read
    const int rows = mask.rows < static_cast<int>(s.rle_img->lines.size()) ? mask.rows
                                                                             : static_cast<int>(s.rle_img->lines.size());
    const int cols = mask.cols < s.rle_img->width ? mask.cols : s.rle_img->width;
    const bool rows_ok = s.roi_ymin >= 0 && s.roi_ymax < rows;
    const bool cols_ok = s.roi_xmin > s.roi_xmax || (s.roi_xmin >= 0 && s.roi_xmax < cols);
    if (!rows_ok || !cols_ok) {
        std::snprintf(why, size,
                      "region of interest x %d..%d, y %d..%d lies outside the %dx%d mask or the %dx%d frame "
                      "given at initialisation",
                      s.roi_xmin, s.roi_xmax, s.roi_ymin, s.roi_ymax, mask.cols, mask.rows, s.rle_img->width,
                      static_cast<int>(s.rle_img->lines.size()));
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
    for (auto& b : blob_pool) cut_blob_links(b);
    blob_pool.clear();
    work.reset();
}

std::vector<std::shared_ptr<region>> RLEsegm_reg_pool_init(int n, segm_ptr s)
{
    cut_region_links(s->reg_pool);
    s->reg_pool.resize(n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(s->reg_pool, 0, s->reg_pool.size());
    for (size_t i = 0; i < s->reg_pool.size(); ++i) s->reg_pool[i]->ident = static_cast<int32_t>(i);
    s->nb_regs = 0;
    return s->reg_pool;
}

std::vector<std::shared_ptr<segment>> RLEsegm_seg_pool_init(int n, segm_ptr s)
{
    detail::ensure_segment_slot(*s, n - 1);  // keeps run-length lines valid if storage moves
    s->seg_pool.resize(n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(s->seg_pool, 0, s->seg_pool.size());
    s->nb_segs = 0;
    return s->seg_pool;
}

void RLEsegm_init_privateKAP(segm_ptr s, int xmin, int xmax, int ymin, int ymax, int width, int height)
{
    RLEsegm_reg_pool_init(kRegionPoolSize, s);
    RLEsegm_seg_pool_init(kSegmentPoolSize, s);
    s->i2r = std::make_shared<img2regs>();
    s->blob_head.reset();
    s->blob_tail.reset();
    for (int i = 0; i < s->nb_pool_blobs; ++i) {
        cut_blob_links(s->blob_pool[static_cast<size_t>(i)]);
        s->blob_pool[static_cast<size_t>(i)] = blob_new();
        s->blob_pool[static_cast<size_t>(i)]->ident = i;
    }
    s->last_blob = -1;
    s->reg_mark = -1;
    RLEsegm_set_ROI(xmin, ymin, xmax, ymax, s);
    s->rle_img = RLEimage_initialize(s->rle_img, width, height);
}

void RLEsegm_reset(segm_ptr s)
{
    s->nb_segs = 0;
    for (int i = 0; i < s->nb_regs && static_cast<size_t>(i) < s->reg_pool.size(); ++i)
        s->reg_pool[static_cast<size_t>(i)]->reg_lines.clear();
    s->nb_regs = 0;

    // Trim the blob pool only when it is clearly oversized. The slot
    // `last_blob` itself goes too, so exactly `last_blob` blobs remain.
    if (s->last_blob >= 20 && s->nb_pool_blobs - s->last_blob >= 11) {
        // Cut the list links into and within the trimmed range first (the
        // list's tail is the blob at last_blob), so the released records are
        // really free.
        s->blob_head.reset();
        s->blob_tail.reset();
        const std::shared_ptr<RLEblob>& kept_tail = s->blob_pool[static_cast<size_t>(s->last_blob - 1)];
        if (kept_tail && kept_tail->next == s->blob_pool[static_cast<size_t>(s->last_blob)]) kept_tail->next.reset();
        for (int i = s->last_blob; i < s->nb_pool_blobs; ++i) cut_blob_links(s->blob_pool[static_cast<size_t>(i)]);
        for (int i = s->last_blob; i < s->nb_pool_blobs; ++i) {
            std::shared_ptr<RLEblob>& slot = s->blob_pool[static_cast<size_t>(i)];
            if (!slot) continue;
            std::shared_ptr<RLEblob> b = slot;
            blob_free(b);
            // Nobody else should hold a pool blob past the frame; if the host
            // does, the record is left to it rather than recycled.
            if (slot.use_count() == 1) s->work->spare_blobs.push_back(std::move(slot));
            slot.reset();
        }
        s->nb_pool_blobs = s->last_blob;
    }
    s->nb_blobs = 0;
    s->last_blob = -1;
    s->blob_head.reset();
    s->blob_tail.reset();
}

void RLEsegm_free_private(segm_ptr s)
{
    s->rle_img = RLEimage_free(s->rle_img);
    cut_region_links(s->reg_pool);
    s->reg_pool.clear();
    s->seg_pool.clear();
    if (s->i2r) s->i2r.reset();
    for (int i = 0; i < s->nb_pool_blobs && static_cast<size_t>(i) < s->blob_pool.size(); ++i) {
        std::shared_ptr<RLEblob> b = s->blob_pool[static_cast<size_t>(i)];
        if (b) blob_free(b);
    }
}

std::shared_ptr<RLEblob> RLEsegm_segmentKAP(const cv::Mat& mask, segm_ptr s)
{
    // The size filter in force at entry is the one used.
    const int min_side = s->min_blob_side;
    const int min_pixels = s->min_blob_pixels;

    if (detail::segmenter_refuses_frame(*s, mask, "RLEsegm_segmentKAP()")) {
        RLEsegm_reset(s);
        return nullptr;
    }
    RLEsegm_reset(s);
    RLEreset_blob_idents(s);
    detail::extract_frame(*s, mask, detail::ExtractionMode::driver);

    if (s->nb_segs == 0) {
        s->nb_blobs_prev = s->nb_blobs_cur;
        s->blob_area_prev = s->blob_area_cur;
        s->nb_blobs_cur = 0;
        s->blob_area_cur = 0;
        return nullptr;
    }

    // The sweep of img2regs_init, img2regs_exec over the rows of interest
    // and img2regs_pass2, on plain indices.
    detail::label_frame(*s);
    set_segs_in_regsKAP(s, mask.rows);
    std::shared_ptr<RLEblob> head = RLEsegm_regions2blobsKAP(min_side, min_pixels, s);

    // "Area" is the area of the boxes, not the number of foreground pixels.
    int32_t count = 0, area = 0;
    for (const RLEblob* b = head.get(); b; b = b->next.get()) {
        ++count;
        area = wrap_add(area, wrap_mul(b->bbox.width, b->bbox.height));
    }
    s->nb_blobs_prev = s->nb_blobs_cur;
    s->nb_blobs_cur = count;
    s->blob_area_prev = s->blob_area_cur;
    s->blob_area_cur = area;

    for (auto& entry : s->densities)
        entry.second = entry.second / static_cast<double>(wrap_mul(entry.first->width, entry.first->height));
    return head;
}

void RLEsegm_set_steps(segm_ptr s, int step_x, int step_y)
{
    s->step_x = step_x;
    s->step_y = step_y;
}

std::shared_ptr<RLEimage> RLEsegm_get_rle_img(segm_ptr s) { return s->rle_img; }

void RLEsegm_set_ROI(int xmin, int ymin, int xmax, int ymax, segm_ptr s)
{
    s->roi_xmin = xmin;
    s->roi_ymin = ymin;
    s->roi_xmax = xmax;
    s->roi_ymax = ymax;
}

int RLEsegm_get_blobs_number(segm_ptr s) { return s->nb_blobs; }

void RLEsegm_increase_blobs_number(segm_ptr s) { s->nb_blobs = wrap_add(s->nb_blobs, 1); }

void RLEsegm_decrease_blobs_number(segm_ptr s) { s->nb_blobs = wrap_sub(s->nb_blobs, 1); }

void RLEreset_blob_idents(segm_ptr s)
{
    for (int i = 0; i < s->nb_pool_blobs && static_cast<size_t>(i) < s->blob_pool.size(); ++i)
        if (s->blob_pool[static_cast<size_t>(i)]) s->blob_pool[static_cast<size_t>(i)]->ident = i;
}

}  // namespace nerva
