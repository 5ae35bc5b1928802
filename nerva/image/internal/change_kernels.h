#pragma once

#include <cstdint>
#include <vector>

// Row kernels of change detection over contiguous bytes, one set per
// instruction set. Every set gives the same bytes as the scalar one for
// every input: the running average is taken in single precision and
// truncated toward zero, and only the low 8 bits of the sum are kept. Not
// part of the public interface.
namespace nerva {
namespace detail {

// Low byte of c + trunc((b - c) * k), the product in single precision. The
// low byte of a truncated float is that of its int32 conversion when it
// fits; a float of magnitude 2^31 or more is a multiple of 256, and an
// infinite or NaN product adds nothing, so both add 0.
inline uint8_t averaged_byte(uint8_t b, uint8_t c, float k)
{
    const float v = static_cast<float>(b - c) * k;
    const int32_t t = v >= -2147483648.0f && v < 2147483648.0f ? static_cast<int32_t>(v) : 0;
    return static_cast<uint8_t>(c + t);
}

struct ChangeKernels {
    const char* name;
    // b[i] becomes the running average of b[i] towards c[i].
    void (*average)(uint8_t* b, const uint8_t* c, int64_t n, float k);
    // The same, only where |b[i] - c[i]| < threshold.
    void (*average_close)(uint8_t* b, const uint8_t* c, int64_t n, float k, int threshold);
    // out[i] = |a[i] - b[i]|.
    void (*abs_diff)(const uint8_t* a, const uint8_t* b, uint8_t* out, int64_t n);
    // out[i] = 255 when in[i] >= threshold, else 0.
    void (*at_least)(const uint8_t* in, uint8_t* out, int64_t n, unsigned threshold);
    // One pass of the three above: mask[i] = 255 when |c[i] - b[i]| >=
    // threshold, else 0, then b[i] becomes the running average.
    void (*detect)(uint8_t* b, const uint8_t* c, uint8_t* mask, int64_t n, float k, unsigned threshold);
};

// The kernel sets this CPU runs, widest instruction set first; the last is
// the scalar one.
const std::vector<ChangeKernels>& change_kernels();

// The widest set, chosen once.
const ChangeKernels& change_kernel();

// True when the n bytes at p and the n bytes at q are the same bytes or do
// not overlap: the kernels read and write element by element, so only a
// partial overlap makes the order of the work visible.
inline bool same_or_apart(const void* p, const void* q, int64_t n)
{
    const auto a = reinterpret_cast<uintptr_t>(p), b = reinterpret_cast<uintptr_t>(q);
    return a == b || a + static_cast<uint64_t>(n) <= b || b + static_cast<uint64_t>(n) <= a;
}

inline bool apart(const void* p, const void* q, int64_t n) { return p != q && same_or_apart(p, q, n); }

}  // namespace detail
}  // namespace nerva
