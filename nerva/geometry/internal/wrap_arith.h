#pragma once

#include <cstdint>

// 32-bit arithmetic that wraps like the two's-complement hardware instead of
// being undefined on overflow. The library's sums and areas are 32-bit
// integer computations, as hosts compute them too; for in-range inputs these
// give exactly the plain result, and extreme inputs get a defined (wrapped)
// one.
namespace nerva {

inline int32_t wrap_add(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

inline int32_t wrap_sub(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

inline int32_t wrap_mul(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Sum of the integers a..b as the 32-bit expression ((1 - a) * a + (b + 1) * b) / 2.
inline int32_t wrap_range_sum(int32_t a, int32_t b)
{
    return wrap_add(wrap_mul(wrap_sub(1, a), a), wrap_mul(wrap_add(b, 1), b)) / 2;
}

}  // namespace nerva
