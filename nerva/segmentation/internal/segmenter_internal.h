#pragma once

// Shared between the segmenter's stages; not part of the public interface.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "nerva/segmentation/internal/zeroed_memory.h"
#include "nerva/segmentation/segment_rows.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace nerva {
namespace detail {

// Region lines come from fixed chunks that never move, handed out through
// non-owning shared pointers: no allocation once the chunks exist.
struct RegionLineArena {
    struct Chunk {
        std::unique_ptr<RLEregionline[]> lines;
        size_t size;
    };
    std::vector<Chunk> chunks;
    size_t chunk = 0;  // chunk being filled this frame
    size_t used = 0;   // lines taken from it
};

// A region's statistics, as the driver's labelling keeps them: the pool
// record's fields, side by side (copied into the record at the end).
struct RegionStats {
    int32_t seed_x;
    int32_t y_min;
    int32_t npix;
    int32_t nholes;
    int32_t x_min;
    int32_t x_max;
    int32_t y_max;
    double sum_x;
    double sum_y;
};

// The driver labels on plain indices: region per run, absorber, hole and
// statistics per region; the records' fields are written once, at the end.
struct LabelScratch {
    // Sized to the pools, used as far as the frame's runs and regions go:
    // the rest stays untouched (zeroed_memory.h).
    ScratchVector<int32_t> run_owner;
    ScratchVector<int32_t> absorber;
    ScratchVector<int32_t> hole;
    ScratchVector<RegionStats> stats;
    // The driver's region lines: each region's first line this frame, and
    // per row of interest what turns a run number into its first_seg.
    ScratchVector<RLEregionline*> first_line;
    std::vector<int32_t> row_base;
};

// Everything the segmenter keeps between frames that a host neither reads nor
// sets. Held by MV_RLEsegm::work.
struct SegmenterWork {
    RegionLineArena region_lines;
    LabelScratch labels;
    // The frame's runs by run number (the run's position in the segment
    // pool): bounds as (first, last) column pairs, and rows. Extraction
    // writes these only; the segment records are written from them once,
    // by the labelling or by the public extraction functions.
    ScratchVector<int32_t> run_bounds;
    ScratchVector<int32_t> run_rows;
    // Blob records released by pool trimming, kept for the next pool growth,
    // so that no frame allocates a blob once the largest frame was seen.
    std::vector<std::shared_ptr<RLEblob>> spare_blobs;
    // The chunk new pool blobs come from, and how many it handed out
    // (pool_blobs.cpp).
    std::shared_ptr<RLEblob> blob_chunk;
    size_t blob_chunk_used = 0;

    // Reliability (nerva/segmentation/segmenter.cpp): the observers being
    // notified (a snapshot, so that an observer may change the list), set
    // while a frame is being segmented so that a nested call is refused; the
    // host's memory ceiling (0: none); how the pool-full notice is written
    // and how many reuses the last frame made; how many pool regions may
    // hold a row index from earlier frames (trimmed between frames).
    std::vector<Observer<CSegmentMessage>*> notified;
    bool notifying = false;
    size_t memory_ceiling = 0;
    bool pool_full_counted = false;
    int32_t reused_blobs = 0;
    size_t regions_with_rows = 0;
    // Frames in a row that needed less than a quarter of the row indexes and
    // region lines held; trimming waits for several (segmenter.cpp). Over
    // those frames: the most region lines one frame used, and the most rows
    // each region slot needed.
    int light_frames = 0;
    size_t peak_lines = 0;
    ScratchVector<size_t> peak_rows;
};

// What a frame is read from, as far as the checks go: its size, and whether
// it is bytes in two dimensions (type and dims name what it is otherwise).
struct MaskShape {
    int cols = 0, rows = 0;
    bool bytes = true;
    int type = 0, dims = 2;
};

MaskShape shape_of(const cv::Mat& mask);

// A mask matrix read through the row interface.
class MatRows : public MaskRows {
public:
    explicit MatRows(const cv::Mat& mask) : mask_(mask) {}
    const uint8_t* row(int y) override { return mask_.ptr<uint8_t>(y); }
    const uint8_t* preview(int y) override { return mask_.ptr<uint8_t>(y); }

private:
    const cv::Mat& mask_;
};

// RLEsegm_segmentKAP's work on rows of a frame of the given shape, its
// messages prefixed with `who`.
std::shared_ptr<RLEblob> segment_frame(const segm_ptr& segmenter, const MaskShape& shape, MaskRows& rows,
                                       const char* who);

// Prints one line on standard error, prefixed with `who`, and returns true
// when the frame cannot be segmented without reading or writing out of
// bounds (uninitialised segmenter, unsuitable mask, region of interest
// outside the mask or the frame, column step below 1).
bool segmenter_refuses_frame(const MV_RLEsegm& segm, const MaskShape& shape, const char* who);

// Refuses a null segmenter with one line ("<who>: null segmenter; nothing
// done"); true when refused.
bool refuses_null(const MV_RLEsegm* segm, const char* who);

// Refuses row y for RLEsegm_build_RLElineKAP as segmenter_refuses_frame
// refuses a frame (and a row outside the mask or the image).
bool segmenter_refuses_row(const MV_RLEsegm& segm, int y, const cv::Mat& mask, const char* who);

// Notifies the observers of a new frame, then checks the frame again (an
// observer may have moved the region of interest, changed the steps or freed
// the segmenter's state): false, with one line, when the frame can no longer
// be segmented safely or when called from inside an observer's notify.
bool notify_observers(MV_RLEsegm& segm, const MaskShape& shape, const char* who);

// Per-frame reset of what outlives the pools (nerva/segmentation/storage_trim.cpp):
// empties the used regions' row indexes and the region lines; after a burst
// of tall or crowded frames, releases what the stream no longer needs and
// returns true. trim_spare_blobs then bounds the spare blob records.
bool trim_row_indexes(MV_RLEsegm& segm);
void trim_spare_blobs(MV_RLEsegm& segm);

// Writes the pool-full notice for `count` reuses of the last blob: one line
// per reuse, or one line with the count when the host asked for that.
void report_reused_blobs(MV_RLEsegm& segm, int32_t count);

// Extracts the runs of every row of interest of a frame already checked
// into the run-length image and SegmenterWork's run bounds and rows; the
// segment records are left as they were.
// Each row is asked of `rows` at most once.
void extract_frame(MV_RLEsegm& segm, MaskRows& rows);
void extract_frame(MV_RLEsegm& segm, const cv::Mat& mask);
// The same for row y alone, its bytes at `row` (column x at row[x]).
void extract_row(MV_RLEsegm& segm, int y, const uint8_t* row);
// Writes runs [from, to) of SegmenterWork's run bounds into their segment
// records, without an owner.
void write_run_records(MV_RLEsegm& segm, int32_t from, int32_t to);

// Finds the maximal runs of non-zero bytes of row[x, end) and stores them as
// (first, last) column pairs in `bounds` (end - x + 6 entries at least);
// returns how many.
using RowRunsKernel = int32_t (*)(const uint8_t* row, int x, int end, int32_t* bounds);

// The run kernels this CPU can run, widest instruction set first (the first
// is the one extraction uses; the others are there to be compared with it).
std::vector<RowRunsKernel> row_runs_kernels();

// Labels the runs of the current frame, as extract_frame left them (their
// bounds in run_bounds, the segment records not yet written), exactly as
// img2regs_init, img2regs_exec over the rows of interest and img2regs_pass2
// would, leaving the same segment records, regions, run owners and img2regs
// state. Run owners need not have been reset. The run owners and region
// statistics in SegmenterWork::labels are then the frame's (what
// fill_region_lines reads). False when no row of interest held a run.
bool label_frame(MV_RLEsegm& segm);

// set_segs_in_regsKAP(segm, nrows) for a frame label_frame has just labelled,
// counting the rows of interest from its run owners.
void fill_region_lines(MV_RLEsegm& segm, int nrows);

// A new zero-filled blob for the segmenter's pool, as blob_new makes it, but
// from a zeroed chunk of records, so that the parts of the record a frame
// does not use are never written.
std::shared_ptr<RLEblob> new_pool_blob(SegmenterWork& work);

// Grows the region pool by half (records of one new block, idents set).
void grow_region_pool(MV_RLEsegm& segm);

// Grows the segment pool so that entry `index` exists, re-pointing every
// run-length line that points into the old storage.
void grow_segment_pool(MV_RLEsegm& segm, int32_t index);

inline void ensure_segment_slot(MV_RLEsegm& segm, int32_t index)
{
    if (index >= static_cast<int32_t>(segm.seg_pool.size())) grow_segment_pool(segm, index);
}

}  // namespace detail
}  // namespace nerva
