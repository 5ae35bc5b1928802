#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The foreground clean-up of nerva-blobs and blobs_in_video: an opening,
// then a closing, each with an N x N ellipse (0 = none), on masks of 0 and
// 255. The result is byte for byte that of OpenCV's morphologyEx with
// getStructuringElement(MORPH_ELLIPSE, {N, N}) and its defaults (the anchor
// at the element's centre, N / 2; pixels outside the frame neither erode
// nor dilate), the clean-up the presets were tuned with, for a fraction of
// its cost: the work is done on bits, 64 pixels a word.
namespace nerva_pipeline {

class CleanUp {
public:
    CleanUp(int open, int close);

    // Whether apply changes anything: sides 0 and 1 leave every mask as it is.
    bool active() const { return !open_boxes_.empty() || !close_boxes_.empty(); }

    // `in` and `out`, rows `in_step` and `out_step` bytes apart, may be the
    // same buffer. Any non-zero byte of `in` counts as 255. The working
    // buffers are made at the first frame of a size and reused, so a stream
    // of frames allocates nothing after its first.
    void apply(const std::uint8_t* in, std::size_t in_step, std::uint8_t* out, std::size_t out_step, int width,
               int height);

    // A rectangle of a structuring element: offsets from the anchor, inclusive.
    struct Box {
        int x0, x1, y0, y1;
    };
    // The N x N ellipse as rectangles whose union it is; none for N below 2,
    // whose element is the anchor alone.
    static std::vector<Box> ellipse_boxes(int side);

private:
    template <bool Erode>
    void morph(std::vector<std::uint64_t>& src, std::vector<std::uint64_t>& dst, const std::vector<Box>& boxes);
    template <bool Erode>
    void box(const std::vector<std::uint64_t>& src, std::vector<std::uint64_t>& dst, const Box& b, std::size_t begin,
             std::size_t first, std::size_t last);
    template <bool Erode>
    void neutralise(std::vector<std::uint64_t>& plane) const;
    std::size_t word_of(int y) const { return static_cast<std::size_t>(reach_ + y) * stride_; }

    std::vector<Box> open_boxes_, close_boxes_;
    int reach_;  // the largest side: the farthest an element looks from its anchor, and then some
    int width_ = 0, height_ = 0, words_ = 0;
    int gap_;  // neutral words after each row's words, more bits than an element reaches sideways
    int stride_ = 0;
    // Planes of bits: the frame's rows, each followed by its gap, between
    // reach_ neutral rows above and below and a neutral tail, so that whole
    // planes are worked as one string of bits and windows near the frame's
    // edges need no check.
    std::vector<std::uint64_t> plane_, other_, column_, row_;
};

}  // namespace nerva_pipeline
