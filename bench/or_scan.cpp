#include "or_scan.h"

#include <immintrin.h>

#include <cstdint>
#include <cstring>

namespace {

uint64_t or_tail(const uint8_t* p, int n)
{
    uint64_t any = 0;
    for (int x = 0; x < n; ++x) any |= p[x];
    return any;
}

// Four accumulators, 128 bytes a step: the loads, not the ORs' latency, set
// the pace.
__attribute__((target("avx2"))) uint64_t or_scan_avx2(const cv::Mat& mask)
{
    __m256i a0 = _mm256_setzero_si256(), a1 = a0, a2 = a0, a3 = a0;
    uint64_t tail = 0;
    for (int y = 0; y < mask.rows; ++y) {
        const uint8_t* row = mask.ptr<uint8_t>(y);
        int x = 0;
        for (; x + 128 <= mask.cols; x += 128) {
            a0 = _mm256_or_si256(a0, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x)));
            a1 = _mm256_or_si256(a1, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x + 32)));
            a2 = _mm256_or_si256(a2, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x + 64)));
            a3 = _mm256_or_si256(a3, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x + 96)));
        }
        for (; x + 32 <= mask.cols; x += 32)
            a0 = _mm256_or_si256(a0, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + x)));
        tail |= or_tail(row + x, mask.cols - x);
    }
    const __m256i all = _mm256_or_si256(_mm256_or_si256(a0, a1), _mm256_or_si256(a2, a3));
    return tail | static_cast<uint64_t>(!_mm256_testz_si256(all, all));
}

uint64_t or_scan_words(const cv::Mat& mask)
{
    uint64_t any = 0;
    for (int y = 0; y < mask.rows; ++y) {
        const uint8_t* row = mask.ptr<uint8_t>(y);
        int x = 0;
        for (; x + 8 <= mask.cols; x += 8) {
            uint64_t word;
            std::memcpy(&word, row + x, sizeof word);
            any |= word;
        }
        any |= or_tail(row + x, mask.cols - x);
    }
    return any;
}

bool has_avx2()
{
    static const bool yes = (__builtin_cpu_init(), __builtin_cpu_supports("avx2"));
    return yes;
}

}  // namespace

uint64_t or_scan(const cv::Mat& mask) { return has_avx2() ? or_scan_avx2(mask) : or_scan_words(mask); }

const char* or_scan_kernel() { return has_avx2() ? "AVX2" : "scalar"; }
