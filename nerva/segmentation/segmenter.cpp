// The segmenter's life cycle, its per-frame driver and its small accessors.
#include <algorithm>
#include <cstdio>

#include "nerva/blob/internal/blob_internal.h"
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

// Why the rows first_row..last_row (with the region of interest's columns)
// cannot be read safely, written into `why`; false when they can. `row` names
// a single row asked for (-1: the region of interest's rows).
bool rows_problem(const MV_RLEsegm& segmenter, const detail::MaskShape& mask, int first_row, int last_row, int row,
                  char* why, size_t size)
{
    if (!segmenter.rle_img || !segmenter.i2r) {
        std::snprintf(why, size, "segmenter not initialised (call RLEsegm_init_privateKAP first)");
        return true;
    }
    if (!mask.bytes || mask.cols < 1 || mask.rows < 1) {
        std::snprintf(why, size, "mask must be a non-empty 2-D 8-bit single-channel matrix (got type %d, %d dims)",
                      mask.type, mask.dims);
        return true;
    }
    if (segmenter.step_x < 1) {
        std::snprintf(why, size, "column step %d is below 1", segmenter.step_x);
        return true;
    }
    if (first_row > last_row) return false;  // no row of interest: nothing to read
    const int rows = std::min(mask.rows, static_cast<int>(segmenter.rle_img->lines.size()));
    const int cols = std::min(mask.cols, segmenter.rle_img->width);
    const bool rows_ok = first_row >= 0 && last_row < rows;
    const bool cols_ok =
        segmenter.roi_xmin > segmenter.roi_xmax || (segmenter.roi_xmin >= 0 && segmenter.roi_xmax < cols);
    if (rows_ok && cols_ok) return false;
    if (row >= 0 && !rows_ok) {
        std::snprintf(why, size, "row %d lies outside the %dx%d mask or the %dx%d frame given at initialisation", row,
                      mask.cols, mask.rows, segmenter.rle_img->width,
                      static_cast<int>(segmenter.rle_img->lines.size()));
        return true;
    }
    std::snprintf(why, size,
                  "region of interest x %d..%d, y %d..%d lies outside the %dx%d mask or the %dx%d frame "
                  "given at initialisation",
                  segmenter.roi_xmin, segmenter.roi_xmax, segmenter.roi_ymin, segmenter.roi_ymax, mask.cols, mask.rows,
                  segmenter.rle_img->width, static_cast<int>(segmenter.rle_img->lines.size()));
    return true;
}

// A host that keeps the run-length image (or one of its lines) past the
// runs' storage must find empty rows, not pointers into a released pool.
void empty_rows(RLEimage* img)
{
    if (!img) return;
    for (auto& line : img->lines) {
        if (!line) continue;
        line->nb_segs = 0;
        line->segs = nullptr;
    }
}

// Bytes the pools, the scratch arrays and the region lines hold for a frame
// of `runs` runs (every region is made from a run, every region row holds
// one).
size_t bytes_for_runs(const MV_RLEsegm& segm, size_t runs)
{
    const size_t segs = std::max(runs, segm.seg_pool.size());
    const size_t regs = std::max(runs, segm.reg_pool.size());
    const size_t lines = segm.rle_img ? segm.rle_img->lines.size() : 0;
    const size_t blobs =
        std::max(std::min(runs, segm.blob_pool.size()), static_cast<size_t>(std::max(segm.nb_pool_blobs, 0)));
    return segs * (sizeof(std::shared_ptr<segment>) + sizeof(segment) + 4 * sizeof(int32_t)) +
           regs * (sizeof(std::shared_ptr<region>) + sizeof(region) + 2 * sizeof(int32_t) +
                   sizeof(detail::RegionStats) + sizeof(RLEregionline*)) +
           runs * (sizeof(RLEregionline) + sizeof(std::shared_ptr<RLEregionline>)) + blobs * sizeof(RLEblob) +
           lines * (sizeof(RLEline) + 2 * sizeof(std::shared_ptr<RLEline>));
}

// Runs in the region of interest when every row is read: an upper bound of
// what extraction finds. Counted only when the worst case of the frame's
// size would pass the ceiling, so hosts without a ceiling never pay for it.
// Rows that cannot be read ahead are taken at their worst.
size_t runs_upper_bound(const MV_RLEsegm& segm, MaskRows& mask, size_t ceiling)
{
    if (segm.roi_xmin > segm.roi_xmax || segm.roi_ymin > segm.roi_ymax) return 0;
    const size_t rows = static_cast<size_t>(segm.roi_ymax - segm.roi_ymin) + 1;
    const size_t samples = static_cast<size_t>((static_cast<int64_t>(segm.roi_xmax) - segm.roi_xmin) / segm.step_x) + 1;
    const size_t worst = rows * ((samples + 1) / 2);
    if (bytes_for_runs(segm, worst) <= ceiling) return worst;
    size_t runs = 0;
    for (int y = segm.roi_ymin; y <= segm.roi_ymax; ++y) {
        const uint8_t* row = mask.preview(y);
        if (!row) return worst;
        bool inside = false;
        for (int64_t x = segm.roi_xmin; x <= segm.roi_xmax; x += segm.step_x) {
            const bool fg = row[x] != 0;
            runs += fg && !inside;
            inside = fg;
        }
    }
    return runs;
}

bool exceeds_ceiling(const MV_RLEsegm& segm, MaskRows& rows, const char* who)
{
    const size_t ceiling = segm.work->memory_ceiling;
    if (ceiling == 0) return false;
    const size_t need = bytes_for_runs(segm, runs_upper_bound(segm, rows, ceiling));
    if (need <= ceiling) return false;
    detail::report(MESSAGES_STDERR,
                   "%s: the frame may need %zu bytes, above the memory ceiling of %zu; nothing segmented\n", who, need,
                   ceiling);
    return true;
}

// Clears the notifying mark however notify ends (an observer may throw).
struct NotifyingMark {
    explicit NotifyingMark(bool& mark) : mark_(mark) { mark_ = true; }
    ~NotifyingMark() { mark_ = false; }
    bool& mark_;
};

}  // namespace

detail::MaskShape detail::shape_of(const cv::Mat& mask)
{
    // Any 8-bit single-channel matrix is read as bytes, signed or not.
    const bool bytes =
        !mask.empty() && mask.dims == 2 && mask.channels() == 1 && (mask.depth() == CV_8U || mask.depth() == CV_8S);
    return MaskShape{mask.cols, mask.rows, bytes, mask.type(), mask.dims};
}

bool detail::segmenter_refuses_frame(const MV_RLEsegm& segm, const MaskShape& mask, const char* who)
{
    char why[256];
    if (!rows_problem(segm, mask, segm.roi_ymin, segm.roi_ymax, -1, why, sizeof why)) return false;
    report(MESSAGES_STDERR, "%s: %s; nothing segmented\n", who, why);
    return true;
}

bool detail::segmenter_refuses_row(const MV_RLEsegm& segm, int y, const cv::Mat& mask, const char* who)
{
    char why[256];
    if (!rows_problem(segm, shape_of(mask), y, y, y < 0 ? 0 : y, why, sizeof why)) return false;
    report(MESSAGES_STDERR, "%s: %s; nothing extracted\n", who, why);
    return true;
}

bool detail::refuses_null(const MV_RLEsegm* segm, const char* who)
{
    if (segm) return false;
    report(MESSAGES_STDERR, "%s: null segmenter; nothing done\n", who);
    return true;
}

bool detail::notify_observers(MV_RLEsegm& segm, const MaskShape& mask, const char* who)
{
    SegmenterWork& work = *segm.work;
    if (work.notifying) {
        report(MESSAGES_STDERR, "%s: called from an observer's notify during a frame; nothing segmented\n", who);
        return false;
    }
    {
        NotifyingMark mark(work.notifying);
        segm.msg.type = 1;
        segm.msg.arg1 = -1;
        segm.msg.arg2 = -1;
        // A snapshot: observers may add or remove observers (themselves or
        // others). One removed before its turn is skipped; one added is
        // called from the next frame on.
        work.notified.assign(segm.observers.begin(), segm.observers.end());
        for (Observer<CSegmentMessage>* o : work.notified)
            if (std::find(segm.observers.begin(), segm.observers.end(), o) != segm.observers.end())
                o->notify(&segm.msg);
    }
    // Observers may move the region of interest, change the steps, free or
    // re-initialise the segmenter: the frame is checked again.
    return !segmenter_refuses_frame(segm, mask, who);
}

void detail::grow_region_pool(MV_RLEsegm& segm)
{
    // Regions are held by shared pointer, so nothing already handed out moves.
    const size_t n = segm.reg_pool.size();
    resize_pool(segm.reg_pool, n + n / 2 + 64);
    fill_from_block(segm.reg_pool, n, segm.reg_pool.size(), true);  // every ident is written
    for (size_t i = n; i < segm.reg_pool.size(); ++i) segm.reg_pool[i]->ident = static_cast<int32_t>(i);
}

MV_RLEsegm::MV_RLEsegm() : blob_pool(kBlobPoolSlots), msg(this), work(new detail::SegmenterWork)
{
    work->spare_blobs.reserve(kBlobPoolSlots);
}

MV_RLEsegm::~MV_RLEsegm()
{
    empty_rows(rle_img.get());  // a host may still hold the image
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

namespace {

void init_region_pool(MV_RLEsegm& segm, int n)
{
    cut_region_links(segm.reg_pool);
    detail::resize_pool(segm.reg_pool, n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(segm.reg_pool, 0, segm.reg_pool.size(), true);  // every ident is written
    for (size_t i = 0; i < segm.reg_pool.size(); ++i) segm.reg_pool[i]->ident = static_cast<int32_t>(i);
    segm.nb_regs = 0;
}

void init_segment_pool(MV_RLEsegm& segm, int n)
{
    // The runs are gone with the old records: no row may point at them.
    empty_rows(segm.rle_img.get());
    detail::resize_pool(segm.seg_pool, n > 0 ? static_cast<size_t>(n) : 0);
    detail::fill_from_block(segm.seg_pool, 0, segm.seg_pool.size());
    segm.nb_segs = 0;
}

}  // namespace

std::vector<std::shared_ptr<region>> RLEsegm_reg_pool_init(int n, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_reg_pool_init()")) return {};
    init_region_pool(*segmenter, n);
    return segmenter->reg_pool;
}

std::vector<std::shared_ptr<segment>> RLEsegm_seg_pool_init(int n, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_seg_pool_init()")) return {};
    init_segment_pool(*segmenter, n);
    return segmenter->seg_pool;
}

void RLEsegm_init_privateKAP(segm_ptr segmenter, int xmin, int xmax, int ymin, int ymax, int width, int height)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_init_privateKAP()")) return;
    // Not through the public pool functions: the copies of the pools they
    // return would cost as much as the pools themselves.
    init_region_pool(*segmenter, kRegionPoolSize);
    init_segment_pool(*segmenter, kSegmentPoolSize);
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
    if (detail::refuses_null(segmenter.get(), "RLEsegm_reset()")) return;
    segmenter->nb_segs = 0;
    const bool trimmed = detail::trim_row_indexes(*segmenter);  // empties the used regions' row indexes
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
            // What blob_free releases, without taking a reference that would
            // hide whether the host still holds the record.
            detail::release_blob_data(*slot, detail::BlobBuffer::forget);
            // Nobody else should hold a pool blob past the frame; if the host
            // does, the record is left to it rather than recycled.
            if (slot.use_count() == 1) segmenter->work->spare_blobs.push_back(std::move(slot));
            slot.reset();
        }
        segmenter->nb_pool_blobs = segmenter->last_blob;
    }
    if (trimmed) detail::trim_spare_blobs(*segmenter);
    segmenter->nb_blobs = 0;
    segmenter->last_blob = -1;
    segmenter->blob_head.reset();
    segmenter->blob_tail.reset();
}

void RLEsegm_free_private(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_free_private()")) return;
    // The image record stays, emptied, with its size: a host's reference to
    // it (or to one of its lines) never points into the released pool, and
    // the next initialisation reuses it.
    empty_rows(segmenter->rle_img.get());
    RLEimage_free(segmenter->rle_img);
    cut_region_links(segmenter->reg_pool);
    segmenter->reg_pool.clear();
    segmenter->seg_pool.clear();
    if (segmenter->i2r) segmenter->i2r.reset();
    for (int i = 0; i < segmenter->nb_pool_blobs && static_cast<size_t>(i) < segmenter->blob_pool.size(); ++i) {
        std::shared_ptr<RLEblob> blob = segmenter->blob_pool[static_cast<size_t>(i)];
        if (blob) blob_free(blob);
    }
}

std::shared_ptr<RLEblob> detail::segment_frame(const segm_ptr& segmenter, const MaskShape& mask, MaskRows& rows,
                                               const char* who)
{
    if (refuses_null(segmenter.get(), who)) return nullptr;
    if (segmenter->work->notifying) {
        // From inside an observer's notify: the frame in progress is left alone.
        report(MESSAGES_STDERR, "%s: called from an observer's notify during a frame; nothing segmented\n", who);
        return nullptr;
    }
    // The size filter in force at entry is the one used.
    const int min_side = segmenter->min_blob_side;
    const int min_pixels = segmenter->min_blob_pixels;

    if (segmenter_refuses_frame(*segmenter, mask, who)) {
        RLEsegm_reset(segmenter);
        return nullptr;
    }
    RLEsegm_reset(segmenter);
    RLEreset_blob_idents(segmenter);
    segmenter->work->reused_blobs = 0;
    if (!notify_observers(*segmenter, mask, who)) return nullptr;
    rows.start(std::max(segmenter->step_y, 1));
    if (exceeds_ceiling(*segmenter, rows, who)) return nullptr;
    extract_frame(*segmenter, rows);

    if (segmenter->nb_segs == 0) {
        segmenter->nb_blobs_prev = segmenter->nb_blobs_cur;
        segmenter->blob_area_prev = segmenter->blob_area_cur;
        segmenter->nb_blobs_cur = 0;
        segmenter->blob_area_cur = 0;
        return nullptr;
    }

    // img2regs_init, img2regs_exec over the rows of interest and
    // img2regs_pass2, on compact arrays; then the region lines from the same
    // arrays. A frame with runs always has a row of interest with runs
    // (extraction reads those rows only), so the sweep always labels it.
    label_frame(*segmenter);
    fill_region_lines(*segmenter, mask.rows);
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

    // A null key has no box to divide by: its value is left as the host put it.
    for (auto& entry : segmenter->densities)
        if (entry.first)
            entry.second = entry.second / static_cast<double>(wrap_mul(entry.first->width, entry.first->height));
    return head;
}

std::shared_ptr<RLEblob> RLEsegm_segmentKAP(const cv::Mat& mask, segm_ptr segmenter)
{
    detail::MatRows rows(mask);
    return detail::segment_frame(segmenter, detail::shape_of(mask), rows, "RLEsegm_segmentKAP()");
}

std::shared_ptr<RLEblob> RLEsegm_segment_rows(MaskRows& rows, int width, int height, segm_ptr segmenter)
{
    detail::MaskShape shape{width, height, true, CV_8UC1, 2};
    return detail::segment_frame(segmenter, shape, rows, "RLEsegm_segment_rows()");
}

void RLEsegm_set_steps(segm_ptr segmenter, int step_x, int step_y)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_set_steps()")) return;
    segmenter->step_x = step_x;
    segmenter->step_y = step_y;
}

std::shared_ptr<RLEimage> RLEsegm_get_rle_img(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_rle_img()")) return nullptr;
    return segmenter->rle_img;
}

void RLEsegm_set_ROI(int xmin, int ymin, int xmax, int ymax, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_set_ROI()")) return;
    segmenter->roi_xmin = xmin;
    segmenter->roi_ymin = ymin;
    segmenter->roi_xmax = xmax;
    segmenter->roi_ymax = ymax;
}

int RLEsegm_get_blobs_number(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_blobs_number()")) return -1;
    return segmenter->nb_blobs;
}

void RLEsegm_increase_blobs_number(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_increase_blobs_number()")) return;
    segmenter->nb_blobs = wrap_add(segmenter->nb_blobs, 1);
}

void RLEsegm_decrease_blobs_number(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_decrease_blobs_number()")) return;
    segmenter->nb_blobs = wrap_sub(segmenter->nb_blobs, 1);
}

void RLEsegm_set_memory_ceiling(segm_ptr segmenter, size_t bytes)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_set_memory_ceiling()")) return;
    segmenter->work->memory_ceiling = bytes;
}

size_t RLEsegm_get_memory_ceiling(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_memory_ceiling()")) return 0;
    return segmenter->work->memory_ceiling;
}

void RLEsegm_count_reused_blobs(segm_ptr segmenter, bool one_line_per_frame)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_count_reused_blobs()")) return;
    segmenter->work->pool_full_counted = one_line_per_frame;
}

int RLEsegm_get_reused_blobs(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_reused_blobs()")) return -1;
    return segmenter->work->reused_blobs;
}

void RLEreset_blob_idents(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEreset_blob_idents()")) return;
    for (int i = 0; i < segmenter->nb_pool_blobs && static_cast<size_t>(i) < segmenter->blob_pool.size(); ++i)
        if (segmenter->blob_pool[static_cast<size_t>(i)]) segmenter->blob_pool[static_cast<size_t>(i)]->ident = i;
}

}  // namespace nerva
