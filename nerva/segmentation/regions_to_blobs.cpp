// Regions to blobs: per-row run indexes of the regions, and one blob from the
// segmenter's pool for every surviving region that passes the size filter.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "nerva/blob/internal/blob_internal.h"
#include "nerva/internal/report.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

constexpr size_t kArenaChunk = 4096;
constexpr int32_t kPrefetchAhead = 8;

// Written when the blob pool is full: the first part has no line end of its
// own, so both parts stand on one line.
constexpr char kPoolFullMessage[] = "RLEsegm_get_new_blob(): too many blobs !Last blob reused.\n";

void write_pool_full_messages(int32_t count)
{
    char block[64 * (sizeof kPoolFullMessage - 1)];
    const size_t len = sizeof kPoolFullMessage - 1;
    const int32_t per_block = static_cast<int32_t>(sizeof block / len);
    for (int32_t i = 0; i < per_block && i < count; ++i) std::memcpy(block + i * len, kPoolFullMessage, len);
    while (count > 0) {
        const int32_t n = count < per_block ? count : per_block;
        detail::report_bytes(MESSAGES_STDERR, block, len * static_cast<size_t>(n));
        count -= n;
    }
}

// Region lines come from fixed chunks that never move, each region's lines
// side by side, handed out through non-owning shared pointers (aliasing an
// empty owner): no allocation once the chunks exist, and no reference-count
// traffic per line.
RLEregionline* take_region_lines(detail::RegionLineArena& arena, size_t n)
{
    while (arena.chunk < arena.chunks.size() && arena.used + n > arena.chunks[arena.chunk].size) {
        ++arena.chunk;
        arena.used = 0;
    }
    if (arena.chunk == arena.chunks.size()) {
        const size_t size = n > kArenaChunk ? n : kArenaChunk;
        arena.chunks.push_back({std::unique_ptr<RLEregionline[]>(new RLEregionline[size]), size});
        arena.used = 0;
    }
    RLEregionline* span = arena.chunks[arena.chunk].lines.get() + arena.used;
    arena.used += n;
    return span;
}

// Mean coordinate truncated toward zero. Empty or inverted runs (sampled
// extraction) can leave a region with no pixels; its mean is 0 rather than
// an undefined conversion.
int32_t truncated_mean(double sum, int32_t npix)
{
    const double m = sum / static_cast<double>(npix);
    if (!std::isfinite(m)) return 0;
    if (m >= 2147483647.0) return 2147483647;
    if (m <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int32_t>(m);
}

}  // namespace

void detail::report_reused_blobs(MV_RLEsegm& segm, int32_t count)
{
    segm.work->reused_blobs = count;
    if (count <= 0) return;
    if (!segm.work->pool_full_counted) {
        write_pool_full_messages(count);
        return;
    }
    report(MESSAGES_STDERR, "RLEsegm_get_new_blob(): too many blobs !Last blob reused. (%d times in this frame)\n",
           count);
}

namespace {

// Gives each region of the frame its lines, one per row of its box, side by
// side in the arena; `first_line`, when given, receives each region's first.
void lay_out_region_lines(MV_RLEsegm& segmenter, RLEregionline** first_line)
{
    detail::RegionLineArena& arena = segmenter.work->region_lines;
    arena.chunk = 0;
    arena.used = 0;
    static const std::shared_ptr<RLEregionline> no_owner;
    for (int32_t i = 0; i < segmenter.nb_regs; ++i) {
        region& reg = *segmenter.reg_pool[static_cast<size_t>(i)];
        const int32_t rows = reg.y_max - reg.y_min + 1;
        const size_t n = rows > 0 ? static_cast<size_t>(rows) : 0;
        RLEregionline* span = take_region_lines(arena, n);
        if (first_line) first_line[i] = span;
        reg.reg_lines.clear();
        reg.reg_lines.reserve(n);
        for (size_t k = 0; k < n; ++k) {
            span[k] = RLEregionline{reg.y_min + static_cast<int32_t>(k), 0, 0};
            reg.reg_lines.emplace_back(no_owner, span + k);
        }
    }
}

inline void count_run(RLEregionline& rl, const RLEline& line, int32_t k)
{
    if (rl.nb_segs == 0) rl.first_seg = line.seg_offset + k;
    ++rl.nb_segs;
}

// Counts row y's runs on their owners' lines, through the segment records.
void count_row(const RLEline& line, int y)
{
    for (int32_t k = 0; k < line.nb_segs; ++k) {
        region* owner = line.segs[k]->owner.get();
        if (!owner) continue;
        const int64_t index = static_cast<int64_t>(y) - owner->y_min;
        // Lines outside this frame's region of interest keep older runs;
        // never index past a region's own rows because of them.
        if (index < 0 || index >= static_cast<int64_t>(owner->reg_lines.size())) continue;
        count_run(*owner->reg_lines[static_cast<size_t>(index)], line, k);
    }
}

// The rows set_segs_in_regsKAP visits: from the first, up to nrows and the
// image's last, stopping at a row never extracted.
int rows_to_count(const MV_RLEsegm& segmenter, int nrows)
{
    const int lines = static_cast<int>(segmenter.rle_img->lines.size());
    return nrows < lines ? nrows : lines;
}

}  // namespace

void set_segs_in_regsKAP(segm_ptr segm, int nrows)
{
    if (detail::refuses_null(segm.get(), "set_segs_in_regsKAP()")) return;
    MV_RLEsegm& segmenter = *segm;
    lay_out_region_lines(segmenter, nullptr);
    if (!segmenter.rle_img) return;
    const int last = rows_to_count(segmenter, nrows);
    for (int y = 0; y < last; ++y) {
        const RLEline& line = *segmenter.rle_img->lines[static_cast<size_t>(y)];
        if (!line.segs) break;  // rows below a never-extracted row are not visited
        count_row(line, y);
    }
}

// The same, with the frame's runs counted from the labelling's run owners
// and rows and its region rows (the records' values after label_frame), in
// one pass over the runs: no pass through the segment and region records
// per run, and no turn per row that depends on how many runs it holds.
// Counting in run order is counting in row order for each region line, as
// each line takes the runs of its own row only. Rows outside the region of
// interest hold older runs and are counted as above; they cannot reach the
// lines of this frame's regions, whose rows all lie inside it.
void detail::fill_region_lines(MV_RLEsegm& segmenter, int nrows)
{
    LabelScratch& labels = segmenter.work->labels;
    if (labels.first_line.size() < static_cast<size_t>(segmenter.nb_regs))
        labels.first_line.resize(segmenter.reg_pool.size());
    RLEregionline** first_line = labels.first_line.data();
    lay_out_region_lines(segmenter, first_line);
    if (!segmenter.rle_img) return;

    const int32_t y0 = segmenter.roi_ymin;
    const size_t roi_rows = static_cast<size_t>(segmenter.roi_ymax - y0 + 1);
    if (labels.row_base.size() < roi_rows) labels.row_base.resize(roi_rows);
    const std::shared_ptr<segment>* pool_base = segmenter.seg_pool.data();
    const int last = rows_to_count(segmenter, nrows);
    int stop = 0;  // rows from the first never extracted on are not visited
    for (; stop < last; ++stop) {
        const RLEline& line = *segmenter.rle_img->lines[static_cast<size_t>(stop)];
        if (!line.segs) break;
        if (stop < y0 || stop > segmenter.roi_ymax) count_row(line, stop);
        else  // read only for rows with runs: an empty row's pointer may be stale
            labels.row_base[static_cast<size_t>(stop - y0)] = static_cast<int32_t>(
                line.seg_offset - (reinterpret_cast<uintptr_t>(line.segs) - reinterpret_cast<uintptr_t>(pool_base)) /
                                      sizeof(std::shared_ptr<segment>));
    }

    const int32_t* owner = labels.run_owner.data();
    const int32_t* run_row = segmenter.work->run_rows.data();
    const int32_t* row_base = labels.row_base.data();
    const RegionStats* stats = labels.stats.data();
    for (int32_t k = 0; k < segmenter.nb_segs; ++k) {
        const int32_t y = run_row[k], r = owner[k];
        if (y >= stop || r < 0) continue;
        const int32_t index = y - stats[r].y_min;
        if (index < 0 || index > stats[r].y_max - stats[r].y_min) continue;
        RLEregionline& rl = first_line[r][index];
        const int32_t first = -static_cast<int32_t>(rl.nb_segs == 0);  // all ones for a line's first run
        rl.first_seg = ((row_base[y - y0] + k) & first) | (rl.first_seg & ~first);
        ++rl.nb_segs;
    }
}

namespace {

// The next free pool blob, cleaned: the slot itself, no reference taken.
// When the pool is full the last blob is reused and the message is written
// at once, or counted in *pool_full_count when the caller batches them.
const std::shared_ptr<RLEblob>& take_pool_blob(MV_RLEsegm& segmenter, int32_t* pool_full_count)
{
    ++segmenter.last_blob;
    if (segmenter.last_blob == segmenter.nb_pool_blobs) {
        const int32_t slots = static_cast<int32_t>(segmenter.blob_pool.size());
        if (segmenter.last_blob >= slots) {
            if (pool_full_count) ++*pool_full_count;
            else detail::report_bytes(MESSAGES_STDERR, kPoolFullMessage, sizeof kPoolFullMessage - 1);
            segmenter.last_blob = slots - 1;
            const std::shared_ptr<RLEblob>& last = segmenter.blob_pool[static_cast<size_t>(segmenter.last_blob)];
            detail::release_blob_data(*last, detail::BlobBuffer::forget);
            return last;
        }
        std::shared_ptr<RLEblob>& slot = segmenter.blob_pool[static_cast<size_t>(segmenter.nb_pool_blobs)];
        std::vector<std::shared_ptr<RLEblob>>& spare = segmenter.work->spare_blobs;
        if (spare.empty()) {
            slot = detail::new_pool_blob(*segmenter.work);
        } else {
            slot = std::move(spare.back());
            spare.pop_back();
            detail::renew_blob_record(*slot);
        }
        slot->ident = segmenter.nb_pool_blobs;
        ++segmenter.nb_pool_blobs;
    }
    const std::shared_ptr<RLEblob>& blob = segmenter.blob_pool[static_cast<size_t>(segmenter.last_blob)];
    detail::release_blob_data(*blob, detail::BlobBuffer::forget);
    return blob;
}

// A blob record spans 20 KB: the fields that filling and linking touch lie
// on some seven cache lines at both ends of it, cold after a frame's worth
// of other records. Asking for them a few blobs ahead overlaps those misses.
void prefetch_for_filling(const RLEblob* blob)
{
    __builtin_prefetch(&blob->ident, 1);
    __builtin_prefetch(&blob->buffer, 1);
    __builtin_prefetch(&blob->type, 1);
    __builtin_prefetch(&blob->fathers[0], 1);
    __builtin_prefetch(&blob->nb_fathers, 1);
    __builtin_prefetch(&blob->spare_reals[0], 1);
    __builtin_prefetch(&blob->prd_list, 1);
}

void fill_from_region(RLEblob& blob, const region& reg)
{
    blob.bbox.xmin = reg.x_min;
    blob.bbox.ymin = reg.y_min;
    blob.bbox.xmax = reg.x_max;
    blob.bbox.ymax = reg.y_max;
    blob.bbox.width = reg.x_max - reg.x_min + 1;
    blob.bbox.height = reg.y_max - reg.y_min + 1;
    blob.npix = reg.npix;
    blob.xc = truncated_mean(reg.sum_x, reg.npix);
    blob.yc = truncated_mean(reg.sum_y, reg.npix);
    blob.fathers[0] = reg.ident;
    blob.nb_fathers = 1;
    blob.npix_real = reg.npix;
    blob.sumy = reg.sum_y;
    blob.sumx = reg.sum_x;
    blob.occlusion = MM_OCCL_NONE;
    blob.type = UNKNOWN;
    blob.spare_reals[0] = 0;
}

// Appends blobs to the segmenter's list, writing each link only where it
// changes: pool blobs are listed in slot order every frame, so their links
// mostly stay as they were. The list's ends and the last blob's `next` are
// written by close(); until then the list is not to be walked.
class BlobAppender {
public:
    explicit BlobAppender(MV_RLEsegm& segmenter)
        : segmenter_(segmenter), head_(segmenter.blob_head ? &segmenter.blob_head : nullptr),
          tail_(segmenter.blob_tail ? &segmenter.blob_tail : nullptr)
    {}

    // `blob` must outlive close(). nb_blobs counts every append, but
    // appending the tail again (the pool-full reuse) would link it to itself:
    // the links are left alone.
    void append(const std::shared_ptr<RLEblob>& blob)
    {
        static const std::shared_ptr<RLEblob> none;
        ++segmenter_.nb_blobs;
        if (tail_ && blob.get() == tail_->get()) return;
        detail::set_link(blob->prev, tail_ ? *tail_ : none);
        if (tail_) detail::set_link((*tail_)->next, blob);
        if (!head_) head_ = &blob;
        tail_ = &blob;
        appended_ = true;
    }

    void close()
    {
        if (appended_ && (*tail_)->next) (*tail_)->next.reset();
        if (head_) detail::set_link(segmenter_.blob_head, *head_);
        if (tail_) detail::set_link(segmenter_.blob_tail, *tail_);
    }

private:
    MV_RLEsegm& segmenter_;
    const std::shared_ptr<RLEblob>* head_;
    const std::shared_ptr<RLEblob>* tail_;
    bool appended_ = false;
};

}  // namespace

std::shared_ptr<RLEblob> RLEsegm_get_new_blob(segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_new_blob()")) return nullptr;
    return take_pool_blob(*segmenter, nullptr);
}

std::shared_ptr<RLEblob> RLEsegm_regions2blobsKAP(int min_side, int min_pixels, segm_ptr segm)
{
    if (detail::refuses_null(segm.get(), "RLEsegm_regions2blobsKAP()")) return nullptr;
    MV_RLEsegm& segmenter = *segm;
    const std::shared_ptr<img2regs>& st = segmenter.i2r;
    if (!st || !st->first) return nullptr;
    const region* end = st->last ? st->last->next.get() : nullptr;
    // Pool-full messages are counted and written together at the end (same
    // bytes, one write instead of one per blob).
    int32_t pool_full_messages = 0;
    BlobAppender list(segmenter);
    for (const region* reg = st->first.get(); reg && reg != end; reg = reg->next.get()) {
        if (reg->absorber) continue;
        const int32_t width = reg->x_max - reg->x_min + 1;
        const int32_t height = reg->y_max - reg->y_min + 1;
        if (reg->npix < min_pixels || width < min_side || height < min_side) continue;

        const int32_t ahead = segmenter.last_blob + kPrefetchAhead;
        if (ahead >= 0 && ahead < segmenter.nb_pool_blobs)
            prefetch_for_filling(segmenter.blob_pool[static_cast<size_t>(ahead)].get());
        const std::shared_ptr<RLEblob>& blob = take_pool_blob(segmenter, &pool_full_messages);
        fill_from_region(*blob, *reg);
        list.append(blob);
    }
    list.close();
    detail::report_reused_blobs(segmenter, pool_full_messages);
    if (segmenter.nb_blobs == 0) return nullptr;
    return segmenter.blob_pool[0];
}

void RLEsegm_blob_list_append(std::shared_ptr<RLEblob> blob, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_blob_list_append()")) return;
    BlobAppender list(*segmenter);
    list.append(blob);
    list.close();
}

void RLEsegm_blob_list_append_to_head(std::shared_ptr<RLEblob> blob, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_blob_list_append_to_head()")) return;
    if (blob != segmenter->blob_head) {
        blob->next.reset();
        blob->prev.reset();
        if (!segmenter->blob_head) {
            segmenter->blob_tail = blob;
            segmenter->blob_head = blob;
        } else {
            segmenter->blob_head->prev = blob;
            blob->next = segmenter->blob_head;
            segmenter->blob_head = blob;
        }
    }
    ++segmenter->nb_blobs;
}

void RLEsegm_blob_list_remove_blob(std::shared_ptr<RLEblob> blob, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_blob_list_remove_blob()")) return;
    if (!segmenter->blob_head) return;
    if (blob == segmenter->blob_tail) segmenter->blob_tail = blob->prev;
    if (blob == segmenter->blob_head) {
        segmenter->blob_head = blob->next;
        if (segmenter->blob_head) segmenter->blob_head->prev.reset();
    } else {
        if (blob->prev) blob->prev->next = blob->next;
        if (blob->next) blob->next->prev = blob->prev;
    }
    --segmenter->nb_blobs;
}

std::shared_ptr<region> RLEsegm_get_region(int i, segm_ptr segmenter)
{
    if (detail::refuses_null(segmenter.get(), "RLEsegm_get_region()")) return nullptr;
    // The bound admits nb_regs itself: the first unused pool region.
    if (i < 0 || i > segmenter->nb_regs || static_cast<size_t>(i) >= segmenter->reg_pool.size()) return nullptr;
    return segmenter->reg_pool[static_cast<size_t>(i)];
}

}  // namespace nerva
