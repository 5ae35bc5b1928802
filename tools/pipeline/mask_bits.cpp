#include "mask_bits.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nerva_pipeline {

void pack_row(const std::uint8_t* bytes, int width, std::uint64_t* bits)
{
    int x = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    for (; x + 64 <= width; x += 64) {
        __m128i v[4];
        for (int part = 0; part < 4; ++part)
            v[part] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + x) + part);
        // Most of a mask is background: a word of zeros is known at one test.
        const __m128i any = _mm_or_si128(_mm_or_si128(v[0], v[1]), _mm_or_si128(v[2], v[3]));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, zero)) == 0xffff) {
            bits[x / 64] = 0;
            continue;
        }
        std::uint64_t zeros = 0;
        for (int part = 0; part < 4; ++part) {
            const auto lanes = static_cast<std::uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v[part], zero)));
            zeros |= std::uint64_t{lanes} << (16 * part);
        }
        bits[x / 64] = ~zeros;
    }
#endif
    for (; x < width; x += 64) {
        std::uint64_t word = 0;
        const int end = x + 64 < width ? x + 64 : width;
        for (int i = x; i < end; ++i) word |= std::uint64_t{bytes[i] != 0} << (i - x);
        bits[x / 64] = word;
    }
}

void unpack_row(const std::uint64_t* bits, int width, std::uint8_t* bytes)
{
    int x = 0;
#if defined(__SSE2__)
    // Each byte of bits spread over eight lanes, each lane keeping its own
    // bit. Masks are mostly background, and people fill whole words: those
    // words are written without looking at their bits.
    const __m128i lane_bit = _mm_set1_epi64x(static_cast<long long>(0x8040201008040201ULL));
    constexpr std::uint64_t spread = 0x0101010101010101ULL;
    for (; x + 64 <= width; x += 64) {
        const std::uint64_t word = bits[x / 64];
        __m128i* out = reinterpret_cast<__m128i*>(bytes + x);
        if (word == 0 || word == ~std::uint64_t{0}) {
            const __m128i all = word ? _mm_set1_epi8(-1) : _mm_setzero_si128();
            for (int part = 0; part < 4; ++part) _mm_storeu_si128(out + part, all);
            continue;
        }
        for (int part = 0; part < 4; ++part) {
            const auto two = static_cast<std::uint32_t>(word >> (16 * part)) & 0xffffu;
            const __m128i v = _mm_set_epi64x(static_cast<long long>((two >> 8) * spread),
                                             static_cast<long long>((two & 0xffu) * spread));
            _mm_storeu_si128(out + part, _mm_cmpeq_epi8(_mm_and_si128(v, lane_bit), lane_bit));
        }
    }
#endif
    for (; x < width; ++x) bytes[x] = ((bits[x / 64] >> (x % 64)) & 1u) ? 255 : 0;
}

}  // namespace nerva_pipeline
