#include "clean_up.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "mask_bits.h"

namespace nerva_pipeline {
namespace {

// The columns [first, last] one row of an element holds.
struct Span {
    int first, last;
};

// The rows of the N x N ellipse as OpenCV's getStructuringElement draws
// them, rounding included (to nearest, ties to even), so that even sides
// and large ones give its very element.
std::vector<Span> ellipse_rows(int side)
{
    const int r = side / 2, c = side / 2;
    const double inv_r2 = r ? 1.0 / (static_cast<double>(r) * r) : 0.0;
    std::vector<Span> rows(side);
    for (int i = 0; i < side; ++i) {
        const int dy = i - r;
        const int dx = static_cast<int>(std::lrint(c * std::sqrt((r * r - dy * dy) * inv_r2)));
        rows[i] = {std::max(c - dx, 0), std::min(c + dx + 1, side) - 1};
    }
    return rows;
}

// Erosion keeps a pixel when every pixel under the element is set, dilation
// when any is; outside the frame, pixels take the value that changes nothing.
template <bool Erode>
constexpr std::uint64_t kNeutral = Erode ? ~std::uint64_t{0} : 0;

template <bool Erode>
inline std::uint64_t join(std::uint64_t a, std::uint64_t b)
{
    return Erode ? a & b : a | b;
}

// The 64 bits of a plane that start `offset` bits after word i's first,
// without a branch: the second shift is split so that an offset that is a
// multiple of 64 shifts its neighbour out entirely.
inline std::uint64_t bits_at(const std::uint64_t* plane, std::size_t i, std::ptrdiff_t words, int bits)
{
    return (plane[i + words] >> bits) | ((plane[i + words + 1] << 1) << (63 - bits));
}

// Offset as whole words (rounded down) and the bits left.
inline std::ptrdiff_t words_of(int offset) { return offset >= 0 ? offset / 64 : -((63 - offset) / 64); }
inline int bits_of(int offset) { return static_cast<int>(offset - 64 * words_of(offset)); }

// A box at most this long each way is joined directly: its rows in one
// pass whose count is a constant the compiler unrolls, its columns a pass
// per distance; longer ones by doubling.
constexpr int kShortest = 8;

// out[i] = the join of rows i + first, i + first + stride, ... (Length of them).
template <bool Erode, int Length>
void join_rows(const std::uint64_t* in, std::uint64_t* out, std::size_t begin, std::size_t end, std::ptrdiff_t first,
               std::ptrdiff_t stride)
{
    for (std::size_t i = begin; i < end; ++i) {
        std::uint64_t v = in[i + first];
        for (int t = 1; t < Length; ++t) v = join<Erode>(v, in[i + first + t * stride]);
        out[i] = v;
    }
}

// out[i] joined with the bits x0 to x1 around each of word i's, for
// -kShortest <= x0 <= 0 <= x1 <= kShortest (an ellipse's rows all hold
// its centre column): a pass per distance, each a shift the same for every
// word, which the compiler works several words at a time.
template <bool Erode>
void join_bits(const std::uint64_t* in, std::uint64_t* out, std::size_t begin, std::size_t end, int x0, int x1)
{
    for (std::size_t i = begin; i < end; ++i) out[i] = join<Erode>(out[i], in[i]);
    for (int t = 1; t <= std::max(x1, -x0); ++t) {
        const int back = 64 - t;
        if (t <= x1 && t <= -x0) {
            for (std::size_t i = begin; i < end; ++i) {
                const std::uint64_t right = (in[i] >> t) | (in[i + 1] << back);
                const std::uint64_t left = (in[i] << t) | (in[i - 1] >> back);
                out[i] = join<Erode>(out[i], join<Erode>(left, right));
            }
        } else if (t <= x1) {
            for (std::size_t i = begin; i < end; ++i) out[i] = join<Erode>(out[i], (in[i] >> t) | (in[i + 1] << back));
        } else {
            for (std::size_t i = begin; i < end; ++i) out[i] = join<Erode>(out[i], (in[i] << t) | (in[i - 1] >> back));
        }
    }
}

template <bool Erode, std::size_t... L>
constexpr auto row_joins(std::index_sequence<L...>)
{
    return std::array{&join_rows<Erode, static_cast<int>(L) + 1>...};
}

template <bool Erode>
constexpr auto kRowJoins = row_joins<Erode>(std::make_index_sequence<kShortest>());

}  // namespace

std::vector<CleanUp::Box> CleanUp::ellipse_boxes(int side)
{
    if (side < 2) return {};
    const std::vector<Span> rows = ellipse_rows(side);
    const int anchor = side / 2;
    std::vector<Box> boxes;
    // The rows of an ellipse are nested: each row's span, stretched over
    // every row that holds it, is a rectangle inside the element, and the
    // rectangles of the distinct spans cover it.
    for (int s = 0; s < side; ++s) {
        const Span span = rows[s];
        const auto same = [&](const Span& o) { return o.first == span.first && o.last == span.last; };
        if (std::any_of(rows.begin(), rows.begin() + s, same)) continue;
        const auto holds = [&](int i) { return rows[i].first <= span.first && rows[i].last >= span.last; };
        for (int i = 0; i < side; ++i) {
            if (!holds(i)) continue;
            int j = i;
            while (j + 1 < side && holds(j + 1)) ++j;
            boxes.push_back({span.first - anchor, span.last - anchor, i - anchor, j - anchor});
            i = j;
        }
    }
    return boxes;
}

CleanUp::CleanUp(int open, int close)
    : open_boxes_(ellipse_boxes(open)), close_boxes_(ellipse_boxes(close)), reach_(std::max({open, close, 1})),
      gap_(reach_ / 64 + 1)
{}

void CleanUp::apply(const std::uint8_t* in, std::size_t in_step, std::uint8_t* out, std::size_t out_step, int width,
                    int height)
{
    if (width <= 0 || height <= 0) return;
    if (!active()) {
        if (in != out)
            for (int y = 0; y < height; ++y) std::copy(in + y * in_step, in + y * in_step + width, out + y * out_step);
        return;
    }
    if (width != width_ || height != height_) {
        width_ = width;
        height_ = height;
        words_ = words_for(width);
        stride_ = words_ + gap_;
        const std::size_t tail = reach_ / 64 + 2;
        const std::size_t plane = static_cast<std::size_t>(height + 2 * reach_) * stride_ + tail;
        for (auto* p : {&plane_, &other_, &column_, &row_}) p->assign(plane, 0);
    }
    for (int y = 0; y < height; ++y) pack_row(in + y * in_step, width, &plane_[word_of(y)]);
    if (!open_boxes_.empty()) {
        morph<true>(plane_, other_, open_boxes_);
        morph<false>(other_, plane_, open_boxes_);
    }
    if (!close_boxes_.empty()) {
        morph<false>(plane_, other_, close_boxes_);
        morph<true>(other_, plane_, close_boxes_);
    }
    for (int y = 0; y < height; ++y) unpack_row(&plane_[word_of(y)], width, out + y * out_step);
}

// Everything of a plane outside the frame's pixels takes the value that
// changes nothing.
template <bool Erode>
void CleanUp::neutralise(std::vector<std::uint64_t>& plane) const
{
    std::fill(plane.begin(), plane.begin() + word_of(0), kNeutral<Erode>);
    std::fill(plane.begin() + word_of(height_), plane.end(), kNeutral<Erode>);
    const std::uint64_t outside = width_ % 64 ? ~std::uint64_t{0} << (width_ % 64) : 0;
    for (int y = 0; y < height_; ++y) {
        std::uint64_t* row = &plane[word_of(y)];
        row[words_ - 1] = Erode ? row[words_ - 1] | outside : row[words_ - 1] & ~outside;
        std::fill(row + words_, row + stride_, kNeutral<Erode>);
    }
}

// dst = src eroded or dilated by the union of `boxes`, i.e. the AND (OR) of
// its erosions (dilations) by each box, and a box's is its column's then
// its row's. Long columns and rows are joined by doubling: after the pass
// for m, a word joins the next 2m rows (bits), and two overlapping windows
// of the largest m cover the box. Rows (bits) near a plane's end stay
// unjoined, but they lie in neutral rows (words), where joining changes
// nothing.
template <bool Erode>
void CleanUp::morph(std::vector<std::uint64_t>& src, std::vector<std::uint64_t>& dst, const std::vector<Box>& boxes)
{
    neutralise<Erode>(src);
    std::fill(dst.begin() + word_of(0), dst.begin() + word_of(height_), kNeutral<Erode>);
    // The row before the frame's first holds the gap its first pixels look
    // back into.
    const std::size_t first = word_of(0), last = word_of(height_), begin = first - gap_;
    for (const Box& b : boxes) box<Erode>(src, dst, b, begin, first, last);
}

// dst's words [first, last) joined with src eroded or dilated by one box.
// The box's column is joined from `begin`, the gap before the frame's first
// row, which that row's first pixels read as their left neighbours.
template <bool Erode>
void CleanUp::box(const std::vector<std::uint64_t>& src, std::vector<std::uint64_t>& dst, const Box& b,
                  std::size_t begin, std::size_t first, std::size_t last)
{
    const std::size_t size = src.size();
    std::uint64_t* r = row_.data();
    const int height = b.y1 - b.y0 + 1, width = b.x1 - b.x0 + 1;
    if (height <= kShortest) {
        kRowJoins<Erode>[height - 1](src.data(), r, begin, last, std::ptrdiff_t{b.y0} * stride_, stride_);
    } else {
        std::uint64_t* w = column_.data();
        for (std::size_t i = 0; i + stride_ < size; ++i) w[i] = join<Erode>(src[i], src[i + stride_]);
        int m = 2;
        for (; 2 * m <= height; m *= 2) {
            const std::size_t ahead = static_cast<std::size_t>(m) * stride_;
            for (std::size_t i = 0; i + ahead < size; ++i) w[i] = join<Erode>(w[i], w[i + ahead]);
        }
        const std::ptrdiff_t up = std::ptrdiff_t{b.y0} * stride_, down = std::ptrdiff_t{b.y1 - m + 1} * stride_;
        for (std::size_t i = begin; i < last; ++i) r[i] = join<Erode>(w[i + up], w[i + down]);
    }
    if (-b.x0 <= kShortest && b.x1 <= kShortest) {
        join_bits<Erode>(r, dst.data(), first, last, b.x0, b.x1);
        return;
    }
    // Words after `last` are never written here: they stay as neutral as
    // the doubling needs them.
    int n = 1;
    for (; 2 * n <= width; n *= 2) {
        const std::ptrdiff_t words = words_of(n);
        const int bits = bits_of(n);
        for (std::size_t i = begin; i < last; ++i) r[i] = join<Erode>(r[i], bits_at(r, i, words, bits));
    }
    const std::ptrdiff_t left_words = words_of(b.x0), right_words = words_of(b.x1 - n + 1);
    const int left_bits = bits_of(b.x0), right_bits = bits_of(b.x1 - n + 1);
    for (std::size_t i = first; i < last; ++i)
        dst[i] = join<Erode>(dst[i],
                             join<Erode>(bits_at(r, i, left_words, left_bits), bits_at(r, i, right_words, right_bits)));
}

}  // namespace nerva_pipeline
