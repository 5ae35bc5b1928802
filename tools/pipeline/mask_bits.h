#pragma once

#include <cstddef>
#include <cstdint>

// Masks as bits, 64 pixels a word: bit x % 64 of word x / 64 is pixel x of
// the row. A clean-up on bits does 64 pixels in one integer operation.
namespace nerva_pipeline {

inline int words_for(int width) { return (width + 63) / 64; }

// One row of bytes to bits: a non-zero byte is a set bit. The bits past
// `width` in the last word are cleared.
void pack_row(const std::uint8_t* bytes, int width, std::uint64_t* bits);

// One row of bits to bytes: 255 for a set bit, 0 otherwise.
void unpack_row(const std::uint64_t* bits, int width, std::uint8_t* bytes);

}  // namespace nerva_pipeline
