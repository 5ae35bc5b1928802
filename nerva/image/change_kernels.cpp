// Change detection's row kernels: the running average, the thresholded
// running average, the absolute difference, the threshold, and the three in
// one pass. One template over the instruction set's primitives; the
// library is built for the baseline and the AVX2 set is chosen at run time
// on CPUs that have it, as the run kernels are.
//
// The average widens each byte difference to 32 bits, converts it to
// float, multiplies by k and truncates with cvttps, whose out-of-range and
// NaN result (0x80000000) has the low byte 0 the scalar formula gives such
// products. Unpacking bytes to words to doublewords and packing them back
// are inverses lane by lane, so no shuffle across lanes is needed.
#include <cstring>

#include "nerva/image/internal/change_kernels.h"
#include "nerva/internal/simd.h"

namespace nerva {
namespace detail {
namespace {

// ---- scalar: the reference, and the tails of the vector kernels ----

void average_scalar(uint8_t* b, const uint8_t* c, int64_t n, float k)
{
    for (int64_t i = 0; i < n; ++i) b[i] = averaged_byte(b[i], c[i], k);
}

void average_close_scalar(uint8_t* b, const uint8_t* c, int64_t n, float k, int threshold)
{
    for (int64_t i = 0; i < n; ++i) {
        const int d = b[i] - c[i];
        if ((d < 0 ? -d : d) < threshold) b[i] = averaged_byte(b[i], c[i], k);
    }
}

void abs_diff_scalar(const uint8_t* a, const uint8_t* b, uint8_t* out, int64_t n)
{
    for (int64_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(a[i] > b[i] ? a[i] - b[i] : b[i] - a[i]);
}

void at_least_scalar(const uint8_t* in, uint8_t* out, int64_t n, unsigned threshold)
{
    for (int64_t i = 0; i < n; ++i) out[i] = in[i] >= threshold ? 255 : 0;
}

void detect_scalar(uint8_t* b, const uint8_t* c, uint8_t* mask, int64_t n, float k, unsigned threshold)
{
    for (int64_t i = 0; i < n; ++i) {
        const unsigned d = static_cast<unsigned>(b[i] > c[i] ? b[i] - c[i] : c[i] - b[i]);
        mask[i] = d >= threshold ? 255 : 0;
        b[i] = averaged_byte(b[i], c[i], k);
    }
}

#if defined(__SSE2__)

// ---- the vector kernels, over an instruction set's primitives ----

// These templates take and return AVX vectors without being compiled for
// AVX themselves; they are only ever inlined into the AVX2 entry points
// (flatten), so no call crosses the calling convention GCC and clang warn
// about.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wpsabi"
#endif

// A threshold on bytes as "byte > limit": limit = threshold - 1, and the
// cases no byte or every byte passes handled before any vector work.
struct ByteLimit {
    bool none, all;
    uint8_t limit;
};

inline ByteLimit at_least_limit(unsigned threshold)
{
    return ByteLimit{threshold > 255, threshold == 0, static_cast<uint8_t>(threshold - 1)};
}

template <class I>
inline typename I::V moved_bytes(typename I::V b, typename I::V c, typename I::F k)
{
    using V = typename I::V;
    const V zero = I::zero(), low = I::splat32(0xFF);
    // One 16-bit difference half, as two halves of 32-bit products' low bytes.
    auto words = [&](V d16) {
        const V lo = I::and_(I::truncate(I::mul(I::to_float(I::srai32_16(I::unpacklo16(d16, d16))), k)), low);
        const V hi = I::and_(I::truncate(I::mul(I::to_float(I::srai32_16(I::unpackhi16(d16, d16))), k)), low);
        return I::packs32(lo, hi);
    };
    const V dlo = I::sub16(I::unpacklo8(b, zero), I::unpacklo8(c, zero));
    const V dhi = I::sub16(I::unpackhi8(b, zero), I::unpackhi8(c, zero));
    return I::packus16(words(dlo), words(dhi));
}

template <class I>
inline typename I::V averaged(typename I::V b, typename I::V c, typename I::F k)
{
    return I::add8(c, moved_bytes<I>(b, c, k));
}

// Bytes of v above limit as 0xFF, the others 0.
template <class I>
inline typename I::V above(typename I::V v, typename I::V limit)
{
    return I::not_(I::eq8(I::max8(v, limit), limit));
}

template <class I>
inline void average_with(uint8_t* b, const uint8_t* c, int64_t n, float k)
{
    const typename I::F kv = I::splatf(k);
    int64_t i = 0;
    for (; i + I::width <= n; i += I::width) I::store(b + i, averaged<I>(I::load(b + i), I::load(c + i), kv));
    average_scalar(b + i, c + i, n - i, k);
}

template <class I>
inline void average_close_with(uint8_t* b, const uint8_t* c, int64_t n, float k, int threshold)
{
    if (threshold <= 0) return;
    // |d| < threshold is |d| <= threshold - 1; from 256 on every byte passes.
    const typename I::V limit = I::splat8(static_cast<uint8_t>(threshold > 256 ? 255 : threshold - 1));
    const typename I::F kv = I::splatf(k);
    int64_t i = 0;
    for (; i + I::width <= n; i += I::width) {
        const typename I::V vb = I::load(b + i), vc = I::load(c + i);
        const typename I::V far = above<I>(I::absdiff(vb, vc), limit);
        I::store(b + i, I::select(far, vb, averaged<I>(vb, vc, kv)));
    }
    average_close_scalar(b + i, c + i, n - i, k, threshold);
}

template <class I>
inline void abs_diff_with(const uint8_t* a, const uint8_t* b, uint8_t* out, int64_t n)
{
    int64_t i = 0;
    for (; i + I::width <= n; i += I::width) I::store(out + i, I::absdiff(I::load(a + i), I::load(b + i)));
    abs_diff_scalar(a + i, b + i, out + i, n - i);
}

template <class I>
inline void at_least_with(const uint8_t* in, uint8_t* out, int64_t n, unsigned threshold)
{
    const ByteLimit t = at_least_limit(threshold);
    if (t.none || t.all) {
        std::memset(out, t.all ? 255 : 0, static_cast<size_t>(n));
        return;
    }
    const typename I::V limit = I::splat8(t.limit);
    int64_t i = 0;
    for (; i + I::width <= n; i += I::width) I::store(out + i, above<I>(I::load(in + i), limit));
    at_least_scalar(in + i, out + i, n - i, threshold);
}

template <class I>
inline void detect_with(uint8_t* b, const uint8_t* c, uint8_t* mask, int64_t n, float k, unsigned threshold)
{
    const ByteLimit t = at_least_limit(threshold);
    const typename I::V limit = I::splat8(t.limit), all = I::splat8(t.all ? 0xFF : 0);
    const typename I::F kv = I::splatf(k);
    int64_t i = 0;
    for (; i + I::width <= n; i += I::width) {
        const typename I::V vb = I::load(b + i), vc = I::load(c + i);
        const typename I::V changed = t.none ? I::zero() : I::or_(all, above<I>(I::absdiff(vb, vc), limit));
        I::store(mask + i, changed);
        I::store(b + i, averaged<I>(vb, vc, kv));
    }
    detect_scalar(b + i, c + i, mask + i, n - i, k, threshold);
}

struct Sse2 {
    using V = __m128i;
    using F = __m128;
    static constexpr int width = 16;
    static V load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V zero() { return _mm_setzero_si128(); }
    static V splat8(uint8_t v) { return _mm_set1_epi8(static_cast<char>(v)); }
    static V splat32(int32_t v) { return _mm_set1_epi32(v); }
    static F splatf(float v) { return _mm_set1_ps(v); }
    static V unpacklo8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
    static V unpackhi8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
    static V unpacklo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V unpackhi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V srai32_16(V a) { return _mm_srai_epi32(a, 16); }
    static V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V add8(V a, V b) { return _mm_add_epi8(a, b); }
    static F to_float(V a) { return _mm_cvtepi32_ps(a); }
    static F mul(F a, F b) { return _mm_mul_ps(a, b); }
    static V truncate(F a) { return _mm_cvttps_epi32(a); }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V not_(V a) { return _mm_xor_si128(a, _mm_set1_epi32(-1)); }
    static V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
    static V packus16(V a, V b) { return _mm_packus_epi16(a, b); }
    static V absdiff(V a, V b) { return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a)); }
    static V max8(V a, V b) { return _mm_max_epu8(a, b); }
    static V eq8(V a, V b) { return _mm_cmpeq_epi8(a, b); }
    // m ? a : b, m's bytes all ones or all zeros
    static V select(V m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
};

void average_sse2(uint8_t* b, const uint8_t* c, int64_t n, float k) { average_with<Sse2>(b, c, n, k); }
void average_close_sse2(uint8_t* b, const uint8_t* c, int64_t n, float k, int threshold)
{
    average_close_with<Sse2>(b, c, n, k, threshold);
}
void abs_diff_sse2(const uint8_t* a, const uint8_t* b, uint8_t* out, int64_t n) { abs_diff_with<Sse2>(a, b, out, n); }
void at_least_sse2(const uint8_t* in, uint8_t* out, int64_t n, unsigned threshold)
{
    at_least_with<Sse2>(in, out, n, threshold);
}
void detect_sse2(uint8_t* b, const uint8_t* c, uint8_t* mask, int64_t n, float k, unsigned threshold)
{
    detect_with<Sse2>(b, c, mask, n, k, threshold);
}

#endif  // __SSE2__

// clang refuses the AVX vectors these templates pass between inlined
// functions of different targets, so its builds (the fuzzers) run the SSE2
// and scalar kernels; the library's GCC builds have all three.
#if defined(NERVA_X86_DISPATCH) && !defined(__clang__)
#define NERVA_CHANGE_AVX2 1
#endif

#if defined(NERVA_CHANGE_AVX2)

#define NERVA_AVX2 __attribute__((target("avx2")))

struct Avx2 {
    using V = __m256i;
    using F = __m256;
    static constexpr int width = 32;
    NERVA_AVX2 static V load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    NERVA_AVX2 static void store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    NERVA_AVX2 static V zero() { return _mm256_setzero_si256(); }
    NERVA_AVX2 static V splat8(uint8_t v) { return _mm256_set1_epi8(static_cast<char>(v)); }
    NERVA_AVX2 static V splat32(int32_t v) { return _mm256_set1_epi32(v); }
    NERVA_AVX2 static F splatf(float v) { return _mm256_set1_ps(v); }
    NERVA_AVX2 static V unpacklo8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
    NERVA_AVX2 static V unpackhi8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
    NERVA_AVX2 static V unpacklo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    NERVA_AVX2 static V unpackhi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    NERVA_AVX2 static V srai32_16(V a) { return _mm256_srai_epi32(a, 16); }
    NERVA_AVX2 static V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
    NERVA_AVX2 static V add8(V a, V b) { return _mm256_add_epi8(a, b); }
    NERVA_AVX2 static F to_float(V a) { return _mm256_cvtepi32_ps(a); }
    NERVA_AVX2 static F mul(F a, F b) { return _mm256_mul_ps(a, b); }
    NERVA_AVX2 static V truncate(F a) { return _mm256_cvttps_epi32(a); }
    NERVA_AVX2 static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    NERVA_AVX2 static V or_(V a, V b) { return _mm256_or_si256(a, b); }
    NERVA_AVX2 static V not_(V a) { return _mm256_xor_si256(a, _mm256_set1_epi32(-1)); }
    NERVA_AVX2 static V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
    NERVA_AVX2 static V packus16(V a, V b) { return _mm256_packus_epi16(a, b); }
    NERVA_AVX2 static V absdiff(V a, V b) { return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a)); }
    NERVA_AVX2 static V max8(V a, V b) { return _mm256_max_epu8(a, b); }
    NERVA_AVX2 static V eq8(V a, V b) { return _mm256_cmpeq_epi8(a, b); }
    NERVA_AVX2 static V select(V m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
};

// `flatten` inlines the templates and primitives into these entry points,
// which alone are compiled for AVX2.
#define NERVA_AVX2_ENTRY __attribute__((target("avx2"), flatten))

NERVA_AVX2_ENTRY void average_avx2(uint8_t* b, const uint8_t* c, int64_t n, float k) { average_with<Avx2>(b, c, n, k); }
NERVA_AVX2_ENTRY void average_close_avx2(uint8_t* b, const uint8_t* c, int64_t n, float k, int threshold)
{
    average_close_with<Avx2>(b, c, n, k, threshold);
}
NERVA_AVX2_ENTRY void abs_diff_avx2(const uint8_t* a, const uint8_t* b, uint8_t* out, int64_t n)
{
    abs_diff_with<Avx2>(a, b, out, n);
}
NERVA_AVX2_ENTRY void at_least_avx2(const uint8_t* in, uint8_t* out, int64_t n, unsigned threshold)
{
    at_least_with<Avx2>(in, out, n, threshold);
}
NERVA_AVX2_ENTRY void detect_avx2(uint8_t* b, const uint8_t* c, uint8_t* mask, int64_t n, float k, unsigned threshold)
{
    detect_with<Avx2>(b, c, mask, n, k, threshold);
}

#endif  // NERVA_CHANGE_AVX2

std::vector<ChangeKernels> available_kernels()
{
    std::vector<ChangeKernels> sets;
#if defined(NERVA_CHANGE_AVX2)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
        sets.push_back({"avx2", average_avx2, average_close_avx2, abs_diff_avx2, at_least_avx2, detect_avx2});
#endif
#if defined(__SSE2__)
    sets.push_back({"sse2", average_sse2, average_close_sse2, abs_diff_sse2, at_least_sse2, detect_sse2});
#endif
    sets.push_back({"scalar", average_scalar, average_close_scalar, abs_diff_scalar, at_least_scalar, detect_scalar});
    return sets;
}

}  // namespace

const std::vector<ChangeKernels>& change_kernels()
{
    static const std::vector<ChangeKernels> sets = available_kernels();
    return sets;
}

const ChangeKernels& change_kernel()
{
    static const ChangeKernels& widest = change_kernels().front();
    return widest;
}

}  // namespace detail
}  // namespace nerva
