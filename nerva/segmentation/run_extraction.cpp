// Run extraction: the rows of the region of interest become runs in the
// run-length image, each run a segment of the segmenter's pool.
//
// Columns are sampled every step_x; rows are read every step_y until
// foreground is met, then the rows around it are read in full (with a
// back-fill upwards). With steps 1,1 the runs are exactly the maximal
// horizontal foreground runs.
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Bit i set when byte i of the 16 at p is zero.
#if defined(__SSE2__)
inline unsigned zero_bytes16(const uint8_t* p)
{
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())));
}
#endif

// First x in [x, end) whose byte is non-zero, or end. Sixteen (or eight)
// bytes at a time over long empty stretches.
inline int next_foreground(const uint8_t* row, int x, int end)
{
#if defined(__SSE2__)
    // Masks are mostly background: skip 256, then 64 empty bytes per test,
    // with many independent loads in flight.
    const __m128i zero = _mm_setzero_si128();
    // Runs often follow each other closely: look at the next 16 bytes first.
    if (x + 16 <= end) {
        const unsigned nonzero = ~zero_bytes16(row + x) & 0xFFFFu;
        if (nonzero) return x + __builtin_ctz(nonzero);
        x += 16;
    }
    while (x + 256 <= end) {
        const __m128i* p = reinterpret_cast<const __m128i*>(row + x);
        __m128i a = _mm_or_si128(_mm_loadu_si128(p), _mm_loadu_si128(p + 1));
        __m128i b = _mm_or_si128(_mm_loadu_si128(p + 2), _mm_loadu_si128(p + 3));
        for (int i = 4; i < 16; i += 4) {
            a = _mm_or_si128(a, _mm_or_si128(_mm_loadu_si128(p + i), _mm_loadu_si128(p + i + 1)));
            b = _mm_or_si128(b, _mm_or_si128(_mm_loadu_si128(p + i + 2), _mm_loadu_si128(p + i + 3)));
        }
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(a, b), zero)) != 0xFFFF) break;
        x += 256;
    }
    while (x + 64 <= end) {
        const __m128i* p = reinterpret_cast<const __m128i*>(row + x);
        const __m128i any = _mm_or_si128(_mm_or_si128(_mm_loadu_si128(p), _mm_loadu_si128(p + 1)),
                                         _mm_or_si128(_mm_loadu_si128(p + 2), _mm_loadu_si128(p + 3)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, zero)) != 0xFFFF) break;
        x += 64;
    }
    while (x + 16 <= end) {
        const unsigned nonzero = ~zero_bytes16(row + x) & 0xFFFFu;
        if (nonzero) return x + __builtin_ctz(nonzero);
        x += 16;
    }
#endif
    while (x + 8 <= end) {
        const uint64_t v = load8(row + x);
        if (v) return x + (__builtin_ctzll(v) >> 3);
        x += 8;
    }
    while (x < end && !row[x]) ++x;
    return x;
}

#if defined(__SSE2__)
// Bit i set when byte i of the 64 at p is non-zero.
inline uint64_t foreground_bits64(const uint8_t* p)
{
    const uint64_t z0 = zero_bytes16(p), z1 = zero_bytes16(p + 16), z2 = zero_bytes16(p + 32),
                   z3 = zero_bytes16(p + 48);
    return ~(z0 | (z1 << 16) | (z2 << 32) | (z3 << 48));
}
#endif

// Calls run(first, last) for every maximal run of non-zero bytes in
// [x, end), left to right. Runs are found from the bit masks of 64-byte
// chunks: the run boundaries are the bits where the mask changes, taken one
// by one, so the loop branches once per boundary instead of once per byte
// test, and empty stretches are skipped 256 bytes at a time.
template <class Run>
inline void for_each_foreground_run(const uint8_t* row, int x, int end, Run&& run)
{
    int open_at = -1;  // first column of the run in progress, -1 when none
#if defined(__SSE2__)
    while (x + 64 <= end) {
        if (open_at < 0) {
            const int skipped = next_foreground(row, x, end);
            // Keep chunks on the same 64-byte grid as before the skip.
            x += (skipped - x) & ~63;
            if (x + 64 > end) break;
        }
        const uint64_t fg = foreground_bits64(row + x);
        // Bit i: the foreground state changes between column x+i-1 and x+i.
        uint64_t edges = fg ^ ((fg << 1) | (open_at >= 0 ? 1u : 0u));
        while (edges) {
            const int at = x + __builtin_ctzll(edges);
            edges &= edges - 1;
            if (open_at < 0) {
                open_at = at;
            } else {
                run(open_at, at - 1);
                open_at = -1;
            }
        }
        x += 64;
    }
#endif
    for (; x < end; ++x) {
        if (row[x]) {
            if (open_at < 0) open_at = x;
        } else if (open_at >= 0) {
            run(open_at, x - 1);
            open_at = -1;
        }
    }
    if (open_at >= 0) run(open_at, end - 1);
}

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
                const int64_t skipped = next_foreground(row, static_cast<int>(chunk), static_cast<int>(end));
                const int64_t jump = (skipped - chunk) & ~int64_t{63};
                if (jump) {
                    chunk += jump;
                    if (chunk + 64 > end) break;
                    const int32_t rem = static_cast<int32_t>((chunk - xmin) % step);
                    phase = rem ? step - rem : 0;
                }
            }
            const uint64_t samples = every_step << phase;
            const uint64_t fg = foreground_bits64(row + chunk) & samples;
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

void detail::extract_row(MV_RLEsegm& segm, int y, const cv::Mat& mask, ExtractionMode mode)
{
    RLEline& line = *segm.rle_img->lines[static_cast<size_t>(y)];
    ensure_segment_slot(segm, segm.nb_segs);  // so the line points into real storage
    line.segs = segm.seg_pool.data() + segm.nb_segs;
    if (segm.roi_xmin > segm.roi_xmax || segm.step_x < 1) {
        line.nb_segs = 0;
        return;
    }
    const uint8_t* row = mask.data + static_cast<size_t>(y) * mask.step[0];
    const bool reset_owners = mode == ExtractionMode::checked;
    int32_t runs = 0;

    auto store_run = [&](int32_t x_start, int32_t x_end) {
        ensure_segment_slot(segm, segm.nb_segs);
        segment& seg = *segm.seg_pool[static_cast<size_t>(segm.nb_segs++)];
        seg.x_start = x_start;
        seg.x_end = x_end;
        if (reset_owners) seg.owner.reset();
        ++runs;
    };

    if (segm.step_x == 1) {
        for_each_foreground_run(row, segm.roi_xmin, segm.roi_xmax + 1, store_run);
    } else {
        for_each_sampled_run(row, segm.roi_xmin, segm.roi_xmax, segm.step_x, store_run);
    }
    line.nb_segs = runs;
}

void detail::extract_frame(MV_RLEsegm& segm, const cv::Mat& mask, ExtractionMode mode)
{
    if (mode == ExtractionMode::checked && !notify_observers(segm, mask, "RLEsegm_build_RLEimageKAP()")) return;

    const int32_t step_y = segm.step_y;
    if (step_y <= 1) {
        for (int y = segm.roi_ymin; y <= segm.roi_ymax; ++y) extract_row(segm, y, mask, mode);
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
            extract_row(segm, y, mask, mode);
            if (lines[static_cast<size_t>(y)]->nb_segs == 0) {
                marker = y;
                continue;
            }
            for (int j = y - 1; j > marker; --j) {
                extract_row(segm, j, mask, mode);
                if (lines[static_cast<size_t>(j)]->nb_segs == 0) break;
            }
            dense = true;
        } else {
            extract_row(segm, y, mask, mode);
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
    detail::extract_row(*this, y, mask, detail::ExtractionMode::checked);
}

std::shared_ptr<RLEimage> MV_RLEsegm::RLEsegm_build_RLEimageKAP(const cv::Mat& mask)
{
    detail::extract_frame(*this, mask, detail::ExtractionMode::checked);
    return rle_img;
}

}  // namespace nerva
