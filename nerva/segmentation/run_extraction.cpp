// Run extraction: the rows of the region of interest become runs in the
// run-length image, each run a segment of the segmenter's pool.
//
// Columns are sampled every step_x; rows are read every step_y until
// foreground is met, then the rows around it are read in full (with a
// back-fill upwards). With steps 1,1 the runs are exactly the maximal
// horizontal foreground runs.
#include <cstdint>
#include <cstring>

#include "nerva/internal/simd.h"
#include "nerva/segmentation/internal/pool_blocks.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {

namespace {

inline uint64_t load8(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// What the row kernels need from an instruction set: the foreground bits of
// 64 bytes (bit i set when byte i is non-zero) and whether 256 bytes hold any
// foreground. The library is built for the baseline only; AVX2 is used on
// CPUs that have it, chosen at run time (see row_runs below). An AVX-512BW
// kernel (one vptestmb per 64 bytes) measured slower than both on the vtest
// masks (extraction 35 us against 29 us per frame), so there is none.
struct BaselineIsa {
#if defined(__SSE2__)
    // Bit i set when byte i of the 16 at p is zero.
    static unsigned zero_bytes16(const uint8_t* p)
    {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())));
    }
    static uint64_t bits64(const uint8_t* p)
    {
        const uint64_t z0 = zero_bytes16(p), z1 = zero_bytes16(p + 16), z2 = zero_bytes16(p + 32),
                       z3 = zero_bytes16(p + 48);
        return ~(z0 | (z1 << 16) | (z2 << 32) | (z3 << 48));
    }
    // Many independent loads in flight: the empty stretches come from memory.
    static bool any256(const uint8_t* q)
    {
        const __m128i* p = reinterpret_cast<const __m128i*>(q);
        __m128i a = _mm_or_si128(_mm_loadu_si128(p), _mm_loadu_si128(p + 1));
        __m128i b = _mm_or_si128(_mm_loadu_si128(p + 2), _mm_loadu_si128(p + 3));
        for (int i = 4; i < 16; i += 4) {
            a = _mm_or_si128(a, _mm_or_si128(_mm_loadu_si128(p + i), _mm_loadu_si128(p + i + 1)));
            b = _mm_or_si128(b, _mm_or_si128(_mm_loadu_si128(p + i + 2), _mm_loadu_si128(p + i + 3)));
        }
        return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(a, b), _mm_setzero_si128())) != 0xFFFF;
    }
#else
    static uint64_t bits64(const uint8_t* p)
    {
        uint64_t bits = 0;
        for (int i = 0; i < 64; ++i) bits |= uint64_t{p[i] != 0} << i;
        return bits;
    }
    static bool any256(const uint8_t* p)
    {
        uint64_t any = 0;
        for (int i = 0; i < 256; i += 8) any |= load8(p + i);
        return any != 0;
    }
#endif
};

#if defined(NERVA_X86_DISPATCH)
struct Avx2Isa {
    __attribute__((target("avx2"))) static uint64_t bits64(const uint8_t* p)
    {
        const __m256i zero = _mm256_setzero_si256();
        const uint32_t z0 = static_cast<uint32_t>(
            _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), zero)));
        const uint32_t z1 = static_cast<uint32_t>(_mm256_movemask_epi8(
            _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32)), zero)));
        return ~(uint64_t{z0} | (uint64_t{z1} << 32));
    }
    __attribute__((target("avx2"))) static bool any256(const uint8_t* q)
    {
        const __m256i* p = reinterpret_cast<const __m256i*>(q);
        const __m256i a = _mm256_or_si256(_mm256_or_si256(_mm256_loadu_si256(p), _mm256_loadu_si256(p + 1)),
                                          _mm256_or_si256(_mm256_loadu_si256(p + 2), _mm256_loadu_si256(p + 3)));
        const __m256i b = _mm256_or_si256(_mm256_or_si256(_mm256_loadu_si256(p + 4), _mm256_loadu_si256(p + 5)),
                                          _mm256_or_si256(_mm256_loadu_si256(p + 6), _mm256_loadu_si256(p + 7)));
        const __m256i any = _mm256_or_si256(a, b);
        return !_mm256_testz_si256(any, any);
    }
};
#endif

// First x in [x, end) whose byte is non-zero, or end. Masks are mostly
// background: one 64-byte look (runs often follow each other closely), then
// 256 empty bytes per test.
template <class Isa>
inline int next_foreground(const uint8_t* row, int x, int end)
{
    if (x + 64 <= end) {
        const uint64_t fg = Isa::bits64(row + x);
        if (fg) return x + __builtin_ctzll(fg);
        x += 64;
    }
    while (x + 256 <= end && !Isa::any256(row + x)) x += 256;
    while (x + 64 <= end) {
        const uint64_t fg = Isa::bits64(row + x);
        if (fg) return x + __builtin_ctzll(fg);
        x += 64;
    }
    while (x + 8 <= end) {
        const uint64_t v = load8(row + x);
        if (v) return x + (__builtin_ctzll(v) >> 3);
        x += 8;
    }
    while (x < end && !row[x]) ++x;
    return x;
}

// Lowest set bit's position; any value when v is 0 (the entry it feeds is
// then past the row's count).
inline int32_t lowest_bit(uint64_t v) { return __builtin_ctzll(v | (uint64_t{1} << 63)); }

// Stores the run boundaries of the 64 columns from x, `edges` bit i set when
// the foreground state changes between columns x+i-1 and x+i, at bounds[k]
// on, and counts them in k (a run is open while k is odd): a start at its
// column, an end one column before. The first six entries are written
// whatever the count, in a loop of fixed length: a loop that stopped after
// the last boundary would take a turn the branch predictor cannot learn on
// real masks, and a mispredicted turn costs more than the stores (six: a
// chunk with three runs takes no turn). Entries past the count are
// overwritten later or lie past the row's end.
inline void store_edges(uint64_t edges, int x, int32_t* bounds, int32_t& k)
{
    const int32_t count = __builtin_popcountll(edges);
    int32_t* out = bounds + k;
    const int32_t offset[2] = {x - (k & 1), x - ((k & 1) ^ 1)};  // for even and odd entries
    int32_t j = 0;
    for (; j < 6; ++j, edges &= edges - 1) out[j] = offset[j & 1] + lowest_bit(edges);
    for (; edges; ++j, edges &= edges - 1) out[j] = offset[j & 1] + lowest_bit(edges);
    k += count;
}

// The maximal runs of non-zero bytes of [x, end), left to right, as
// contiguous (first, last) pairs in `bounds`; returns how many. Runs are
// found from the bit masks of 64-byte chunks (a boundary is a bit where the
// mask changes), stored as store_edges does. Outside a run, background is
// skipped up to the chunk of the next foreground byte (next_foreground); the
// last partial chunk is read as the row's last 64 bytes. `bounds` holds at
// least end - x + 6 entries.
template <class Isa>
inline int32_t find_runs(const uint8_t* row, int x, int end, int32_t* bounds)
{
    const int first = x;
    int32_t k = 0;
    while (x + 64 <= end) {
        if (!(k & 1)) {
            const int skipped = next_foreground<Isa>(row, x, end);
            // Keep chunks on the same 64-byte grid as before the skip.
            x += (skipped - x) & ~63;
            if (x + 64 > end) break;
        }
        const uint64_t fg = Isa::bits64(row + x);
        store_edges(fg ^ ((fg << 1) | static_cast<uint64_t>(k & 1)), x, bounds, k);
        x += 64;
    }
    const int rest = end - x;
    if (rest > 0) {
        uint64_t fg = 0;
        if (end - first >= 64) {
            fg = Isa::bits64(row + end - 64) >> (64 - rest);
        } else {
            for (int i = 0; i < rest; ++i) fg |= uint64_t{row[x + i] != 0} << i;
        }
        const uint64_t edges = (fg ^ ((fg << 1) | static_cast<uint64_t>(k & 1))) & ((uint64_t{1} << rest) - 1);
        store_edges(edges, x, bounds, k);
    }
    if (k & 1) bounds[k++] = end - 1;
    return k / 2;
}

int32_t row_runs_baseline(const uint8_t* row, int x, int end, int32_t* bounds)
{
    return find_runs<BaselineIsa>(row, x, end, bounds);
}

#if defined(NERVA_X86_DISPATCH)
// `flatten` inlines the kernel and its instruction-set primitives into this
// entry point, which alone is compiled for AVX2.
__attribute__((target("avx2,popcnt,bmi"), flatten)) int32_t row_runs_avx2(const uint8_t* row, int x, int end,
                                                                          int32_t* bounds)
{
    return find_runs<Avx2Isa>(row, x, end, bounds);
}
#endif

}  // namespace

std::vector<detail::RowRunsKernel> detail::row_runs_kernels()
{
    std::vector<RowRunsKernel> kernels;
#if defined(NERVA_X86_DISPATCH)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt") && __builtin_cpu_supports("bmi"))
        kernels.push_back(row_runs_avx2);
#endif
    kernels.push_back(row_runs_baseline);
    return kernels;
}

namespace {

// The widest kernel this CPU runs, chosen once.
const detail::RowRunsKernel row_runs = detail::row_runs_kernels().front();

// Bit i of bits[step] is set when i is a multiple of step (steps 1 to 32).
struct EveryStepBits {
    uint64_t bits[33] = {};
    constexpr EveryStepBits()
    {
        for (int step = 1; step <= 32; ++step)
            for (int i = 0; i < 64; i += step) bits[step] |= uint64_t{1} << i;
    }
};
constexpr EveryStepBits kEveryStep;

// Calls run(first, last) for every run of the columns sampled every `step`
// from `xmin` to `xmax`. A run begun between two samples starts just after
// the preceding background sample and, when it ends inside the row, ends on
// that same sample: such runs come out with last < first on purpose. A run
// begun on `xmin` itself ends on column 0 (the back column's initial value)
// unless it reaches `xmax`.
//
// Steps up to 32 work on 64-column chunks: the sampled foreground bits are
// compared with those one step to the left, so each run boundary costs one
// bit scan, and empty stretches are skipped 256 bytes at a time.
template <class Run>
inline void for_each_sampled_run(const uint8_t* row, int32_t xmin, int32_t xmax, int32_t step, Run&& run)
{
    int32_t back = 0, first = 0;
    bool open = false;
    int64_t x = xmin;  // next sample; 64-bit so that a huge step cannot overflow
    const int64_t end = static_cast<int64_t>(xmax) + 1;
#if defined(__SSE2__)
    if (step <= 32) {
        const uint64_t every_step = kEveryStep.bits[step];
        const int32_t drift = 64 % step;  // how far the samples move back, chunk to chunk
        int64_t chunk = xmin;
        int32_t phase = 0;  // offset in the chunk of its first sample
        while (chunk + 64 <= end) {
            if (!open) {
                const int64_t skipped =
                    next_foreground<BaselineIsa>(row, static_cast<int>(chunk), static_cast<int>(end));
                const int64_t jump = (skipped - chunk) & ~int64_t{63};
                if (jump) {
                    chunk += jump;
                    if (chunk + 64 > end) break;
                    const int32_t rem = static_cast<int32_t>((chunk - xmin) % step);
                    phase = rem ? step - rem : 0;
                }
            }
            const uint64_t samples = every_step << phase;
            const uint64_t fg = BaselineIsa::bits64(row + chunk) & samples;
            // The sample before the chunk's first one is the last of the chunk before.
            const uint64_t before = (fg << step) | (open ? uint64_t{1} << phase : 0);
            uint64_t edges = (fg ^ before) & samples;
            while (edges) {
                const int64_t at = chunk + __builtin_ctzll(edges);
                edges &= edges - 1;
                if (!open) {
                    if (at != xmin) {
                        back = static_cast<int32_t>(at - step);
                        first = back + 1;
                    } else {
                        first = xmin;
                    }
                    open = true;
                } else {
                    run(first, back);
                    open = false;
                }
            }
            chunk += 64;
            phase = phase >= drift ? phase - drift : phase - drift + step;
        }
        // Resume one by one at the first sample not yet seen.
        const int64_t rem = (chunk - xmin) % step;
        x = rem ? chunk + (step - rem) : chunk;
    }
#endif
    while (x < end) {
        const bool fg = row[x] != 0;
        if (!open && fg) {
            if (x != xmin) {
                back = static_cast<int32_t>(x - step);
                first = back + 1;
            } else {
                first = xmin;
            }
            open = true;
        } else if (open && !fg) {
            run(first, back);
            open = false;
        }
        x += step;
    }
    if (open) run(first, xmax);
}

}  // namespace

void detail::grow_segment_pool(MV_RLEsegm& segm, int32_t index)
{
    auto& pool = segm.seg_pool;
    const auto old_base = reinterpret_cast<uintptr_t>(pool.data());
    const size_t old_size = pool.size();
    size_t new_size = old_size + old_size / 2 + 1024;
    if (new_size <= static_cast<size_t>(index)) new_size = static_cast<size_t>(index) + 1;
    pool.reserve(new_size);
    const auto new_base = reinterpret_cast<uintptr_t>(pool.data());
    if (new_base != old_base && segm.rle_img) {
        // Lines point into the pool's storage: follow it to its new place.
        const uintptr_t old_end = old_base + old_size * sizeof(std::shared_ptr<segment>);
        for (auto& line : segm.rle_img->lines) {
            if (!line || !line->segs) continue;
            const auto p = reinterpret_cast<uintptr_t>(line->segs);
            if (p >= old_base && p <= old_end && old_base != 0)
                line->segs = reinterpret_cast<std::shared_ptr<segment>*>(new_base + (p - old_base));
        }
    }
    pool.resize(new_size);
    fill_from_block(pool, old_size, new_size);
}

namespace {
constexpr int32_t kRowsWrittenAlways = 8;
}  // namespace

void detail::extract_row(MV_RLEsegm& segm, int y, const uint8_t* row)
{
    RLEline& line = *segm.rle_img->lines[static_cast<size_t>(y)];
    ensure_segment_slot(segm, segm.nb_segs);  // so the line points into real storage
    line.segs = segm.seg_pool.data() + segm.nb_segs;
    if (segm.roi_xmin > segm.roi_xmax || segm.step_x < 1) {
        line.nb_segs = 0;
        return;
    }
    auto& bounds = segm.work->run_bounds;
    const size_t first = static_cast<size_t>(segm.nb_segs);
    const int64_t span = int64_t{segm.roi_xmax} - segm.roi_xmin;  // no division per row in exact mode
    const size_t samples = static_cast<size_t>(segm.step_x == 1 ? span : span / segm.step_x) + 1;
    if (bounds.size() < 2 * first + samples + 6) bounds.resize(2 * first + samples + 6);
    int32_t* b = bounds.data() + 2 * first;
    int32_t runs = 0;
    if (segm.step_x == 1) {
        runs = row_runs(row, segm.roi_xmin, segm.roi_xmax + 1, b);
    } else {
        for_each_sampled_run(row, segm.roi_xmin, segm.roi_xmax, segm.step_x, [&](int32_t x_start, int32_t x_end) {
            b[2 * runs] = x_start;
            b[2 * runs + 1] = x_end;
            ++runs;
        });
    }
    if (runs > 0) ensure_segment_slot(segm, segm.nb_segs + runs - 1);
    // The row of each run. The first eight entries are written whatever the
    // count, in a loop of fixed length: rows hold a few runs, and a loop that
    // stopped after the last would take a turn the branch predictor cannot
    // learn. Entries past the count belong to later runs, which overwrite them.
    auto& rows = segm.work->run_rows;
    if (rows.size() < first + static_cast<size_t>(runs) + kRowsWrittenAlways)
        rows.resize(segm.seg_pool.size() + kRowsWrittenAlways);
    int32_t* const row_of = rows.data() + first;
    for (int32_t i = 0; i < kRowsWrittenAlways; ++i) row_of[i] = y;
    for (int32_t i = kRowsWrittenAlways; i < runs; ++i) row_of[i] = y;
    segm.nb_segs += runs;
    line.nb_segs = runs;
}

void detail::write_run_records(MV_RLEsegm& segm, int32_t from, int32_t to)
{
    const int32_t* b = segm.work->run_bounds.data();
    for (int32_t k = from; k < to; ++k) {
        segment& seg = *segm.seg_pool[static_cast<size_t>(k)];
        seg.x_start = b[2 * k];
        seg.x_end = b[2 * k + 1];
        seg.owner.reset();
    }
}

void detail::extract_frame(MV_RLEsegm& segm, const cv::Mat& mask)
{
    MatRows rows(mask);
    extract_frame(segm, rows);
}

void detail::extract_frame(MV_RLEsegm& segm, MaskRows& rows)
{
    const int32_t step_y = segm.step_y;
    if (step_y <= 1) {
        for (int y = segm.roi_ymin; y <= segm.roi_ymax; ++y) extract_row(segm, y, rows.row(y));
        return;
    }

    // Sparse mode reads one row in step_y; a row with runs back-fills the
    // rows above it (never re-reading the marker row) and switches to dense
    // mode until a row without runs.
    bool dense = false;
    int marker = segm.roi_ymin - 1;
    auto& lines = segm.rle_img->lines;
    for (int y = segm.roi_ymin; y <= segm.roi_ymax; ++y) {
        if (!dense) {
            if (y % step_y != 0) {
                lines[static_cast<size_t>(y)]->nb_segs = 0;
                continue;
            }
            extract_row(segm, y, rows.row(y));
            if (lines[static_cast<size_t>(y)]->nb_segs == 0) {
                marker = y;
                continue;
            }
            for (int j = y - 1; j > marker; --j) {
                extract_row(segm, j, rows.row(j));
                if (lines[static_cast<size_t>(j)]->nb_segs == 0) break;
            }
            dense = true;
        } else {
            extract_row(segm, y, rows.row(y));
            if (lines[static_cast<size_t>(y)]->nb_segs == 0) {
                marker = y;
                dense = false;
            }
        }
    }
}

void MV_RLEsegm::RLEsegm_build_RLElineKAP(int y, const cv::Mat& mask)
{
    if (detail::segmenter_refuses_row(*this, y, mask, "RLEsegm_build_RLElineKAP()")) return;
    const int32_t first = nb_segs;
    detail::extract_row(*this, y, mask.ptr<uint8_t>(y));
    detail::write_run_records(*this, first, nb_segs);
}

std::shared_ptr<RLEimage> MV_RLEsegm::RLEsegm_build_RLEimageKAP(const cv::Mat& mask)
{
    if (!detail::notify_observers(*this, detail::shape_of(mask), "RLEsegm_build_RLEimageKAP()")) return rle_img;
    const int32_t first = nb_segs;
    detail::extract_frame(*this, mask);
    detail::write_run_records(*this, first, nb_segs);
    return rle_img;
}

}  // namespace nerva
