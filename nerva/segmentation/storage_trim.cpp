// What a segmenter keeps from frame to frame beyond its pools: the regions'
// row indexes, the region-line chunks and the spare blob records. Emptied
// every frame, released only once a burst of tall or crowded frames is over.
#include <algorithm>

#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {
namespace detail {

namespace {

// Below these sizes nothing is trimmed, so ordinary frames never allocate
// for the row indexes or the region lines.
constexpr size_t kKeptRowIndex = 32;          // entries per region
constexpr size_t kKeptRegionLines = 1 << 16;  // lines over all chunks
// Row index entries beyond kKeptRowIndex per region that a stream may hold
// before it counts as light (256 Ki entries, 4 MB of pointers). Each region
// slot keeps the most rows any region it held needed: on a noisy stream the
// sum over slots runs to several times what one frame uses, and trimming it
// would have the next frames allocate again.
constexpr size_t kRowIndexSlack = 1 << 18;
// A frame is light when the region lines held are more than four times the
// most a frame used (kLinesHeldFactor), or the row index entries beyond
// kKeptRowIndex more than sixteen times that (kRowIndexFactor): a row index
// entry serves one region row, so the second bound is looser to allow for
// the slots' own peaks.
constexpr size_t kLinesHeldFactor = 4;
constexpr size_t kRowIndexFactor = 16;
// Storage is trimmed only after this many light frames in a row: a stream
// whose regions change height from frame to frame keeps what its tallest
// frames need instead of reallocating it.
constexpr int kFramesBeforeTrim = 8;
// Spare blob records (20 KB each) kept when the row indexes are trimmed, so
// that a burst of crowded frames does not stay resident either.
constexpr size_t kKeptSpareBlobs = 128;

size_t excess_row_index(size_t capacity) { return capacity > kKeptRowIndex ? capacity - kKeptRowIndex : 0; }

}  // namespace

// Once the stream has been light for kFramesBeforeTrim frames in a row: a
// region's row index shrinks when it holds more than twice the most its slot
// needed over those frames, regions past the last frame's keep at most
// kKeptRowIndex entries, and region-line chunks beyond twice the most lines
// a frame used go. The peaks are those of the light frames, not the last
// frame alone: on a noisy stream, region heights change from frame to frame
// and slot by slot, and fitting each slot to one frame would have the next
// frames allocate again. Until then every row index is only emptied, so the
// steady state allocates nothing.
bool trim_row_indexes(MV_RLEsegm& segm)
{
    SegmenterWork& work = *segm.work;
    const size_t used = std::min(static_cast<size_t>(std::max(segm.nb_regs, 0)), segm.reg_pool.size());
    const size_t held = std::min(std::max(work.regions_with_rows, used), segm.reg_pool.size());
    RegionLineArena& arena = work.region_lines;
    size_t lines_used = arena.used;
    for (size_t c = 0; c < arena.chunk && c < arena.chunks.size(); ++c) lines_used += arena.chunks[c].size;
    size_t lines_held = 0, index_held = 0;
    for (const auto& chunk : arena.chunks) lines_held += chunk.size;
    // What a trim could release: row indexes beyond the kKeptRowIndex entries
    // every region may keep. Counting those too would make a stream of many
    // small regions look light whatever it needs.
    for (size_t i = 0; i < held; ++i)
        if (segm.reg_pool[i]) index_held += excess_row_index(segm.reg_pool[i]->reg_lines.capacity());
    const size_t peak_lines = std::max(work.peak_lines, lines_used);
    const bool light = lines_held > std::max(kLinesHeldFactor * peak_lines, kKeptRegionLines) ||
                       index_held > std::max(kRowIndexFactor * peak_lines, kRowIndexSlack);
    work.light_frames = light ? work.light_frames + 1 : 0;
    // A frame that is not light starts the window of peaks afresh.
    work.peak_lines = light ? peak_lines : lines_used;
    const bool trim = work.light_frames >= kFramesBeforeTrim;

    auto& peak_rows = work.peak_rows;
    if (peak_rows.size() < held) peak_rows.resize(segm.reg_pool.size());  // new entries read 0
    for (size_t i = 0; i < held; ++i) {
        if (!segm.reg_pool[i]) continue;
        auto& rows = segm.reg_pool[i]->reg_lines;
        const size_t need = i < used ? rows.size() : 0;
        const size_t peak = light ? std::max(peak_rows[i], need) : need;
        if (trim && rows.capacity() > kKeptRowIndex && rows.capacity() > 2 * peak) {
            std::vector<std::shared_ptr<RLEregionline>> fitted;
            fitted.reserve(std::max(peak + peak / 4, kKeptRowIndex));
            rows.swap(fitted);
        } else {
            rows.clear();
        }
        peak_rows[i] = trim ? 0 : peak;
    }
    work.regions_with_rows = trim ? used : held;

    if (trim) {
        const size_t keep = std::max(2 * peak_lines, kKeptRegionLines);
        size_t kept = 0, total = 0;
        while (kept < arena.chunks.size() && (kept <= arena.chunk || total + arena.chunks[kept].size <= keep))
            total += arena.chunks[kept++].size;
        arena.chunks.resize(kept);
        work.light_frames = 0;
        work.peak_lines = 0;
    }
    arena.chunk = 0;  // the region lines start from the first chunk again
    arena.used = 0;
    return trim;
}

void trim_spare_blobs(MV_RLEsegm& segm)
{
    if (segm.work->spare_blobs.size() > kKeptSpareBlobs) segm.work->spare_blobs.resize(kKeptSpareBlobs);
}

}  // namespace detail
}  // namespace nerva
