#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "nerva/image/image.h"

// Pixel addressing and rectangle clipping shared by the image toolkit's
// sources. Not part of the public interface.
namespace nerva {
namespace detail {

inline bool is_color_kind(image_type t) { return t == COLOR_IMG_3BYTES || t == COLOR_IMG_4BYTES; }

// Bytes of one pixel of a kind as initialize_image lays it out; 0 for kinds
// that cannot be set up (0 and below -7). COLOR_IMG_4BYTES counts as 3.
inline int64_t kind_pixel_bytes(image_type t)
{
    if (t > 0) return t;
    switch (t) {
    case COLOR_IMG_3BYTES:
    case COLOR_IMG_4BYTES: return 3;
    case GREY_IMG: return 1;
    case SIGNED_COLOR_IMG:
    case FLOAT_IMG:
    case INT_IMG:
    case BG_IMG: return 4;
    default: return 0;
    }
}

// Inclusive frame-coordinate bounds of a walk over an image.
struct pixel_span {
    int64_t x0, x1, y0, y1;
    bool empty() const { return x0 > x1 || y0 > y1; }
    int64_t columns() const { return x1 - x0 + 1; }
};

inline int64_t last_column(const image* img) { return int64_t{img->x_origin} + img->width - 1; }
inline int64_t last_row(const image* img) { return int64_t{img->y_origin} + img->height - 1; }

inline int64_t max64(int64_t a, int64_t b) { return a > b ? a : b; }
inline int64_t min64(int64_t a, int64_t b) { return a < b ? a : b; }

// The rectangle clipped to the image's size: columns max(xmin, 0) ..
// min(xmax, width - 1), rows likewise. The bounds are frame coordinates and
// pixels are reached through the origins (element_index), so with origins
// other than 0 part of the span may lie outside the buffer: walks keep to
// the buffer with steps_inside.
inline pixel_span clip_span(const image* img, const rectangle* r)
{
    return pixel_span{max64(r->xmin, 0), min64(r->xmax, int64_t{img->width} - 1), max64(r->ymin, 0),
                      min64(r->ymax, int64_t{img->height} - 1)};
}

// The image's own pixels in frame coordinates; empty without a buffer.
inline pixel_span whole_span(const image* img)
{
    pixel_span s{img->x_origin, last_column(img), img->y_origin, last_row(img)};
    if (!img->data) s.x1 = s.x0 - 1;
    return s;
}

inline pixel_span intersect(const pixel_span& a, const pixel_span& b)
{
    return pixel_span{max64(a.x0, b.x0), min64(a.x1, b.x1), max64(a.y0, b.y0), min64(a.y1, b.y1)};
}

inline bool contains(const image* img, int64_t x, int64_t y)
{
    return img->data && x >= img->x_origin && x <= last_column(img) && y >= img->y_origin && y <= last_row(img);
}

// Element index of frame pixel (x, y); multiply by the pixel size for bytes.
// For a pixel known to lie in the image.
inline size_t pixel_index(const image* img, int64_t x, int64_t y)
{
    return static_cast<size_t>((y - img->y_origin) * int64_t{img->width} + (x - img->x_origin));
}

// Bytes the record's buffer is known to hold.
inline size_t buffer_bytes(const image* img)
{
    if (!img->data) return 0;
    if (img->capacity) return size_t{img->capacity} * static_cast<size_t>(img->bytes_per_pixel);
    return size_t{img->width} * img->height * static_cast<size_t>(img->bytes_per_pixel);
}

// Float truncated toward zero to 64 bits; NaN gives 0 and values beyond the
// range saturate, so the conversion is always defined.
inline int64_t truncate_to_int64(double v)
{
    if (std::isnan(v)) return 0;
    if (v >= 9223372036854775807.0) return INT64_MAX;
    if (v <= -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(v);
}

// Float truncated toward zero, modulo 2^64: the low bits of the exact
// integer part, whatever its size (every float of magnitude 2^64 or more is
// a multiple of 2^64, so its low bits are 0). Infinities and NaN give 0.
inline uint64_t truncate_wrapped(double v)
{
    if (!std::isfinite(v)) return 0;
    const double t = std::trunc(v);
    const double m = std::fmod(t, 18446744073709551616.0);  // exact, in (-2^64, 2^64)
    const uint64_t magnitude = std::fabs(m) >= 9223372036854775808.0
                                   ? uint64_t{1} << 63 | static_cast<uint64_t>(std::fabs(m) - 9223372036854775808.0)
                                   : static_cast<uint64_t>(std::fabs(m));
    return m < 0 ? ~magnitude + 1 : magnitude;
}

// Low byte of a value truncated toward zero: values wrap, they are not clamped.
inline unsigned char low_byte_of(double v)
{
    return static_cast<unsigned char>(static_cast<uint64_t>(truncate_to_int64(v)) & 0xFF);
}

// Signed 10-bit field of a packed word (bits shift .. shift + 9).
inline int32_t signed_field10(uint32_t word, int shift)
{
    int32_t f = static_cast<int32_t>((word >> shift) & 0x3FF);
    return f >= 512 ? f - 1024 : f;
}

inline uint32_t with_field10(uint32_t word, int shift, int32_t value)
{
    const uint32_t mask = 0x3FFu << shift;
    return (word & ~mask) | ((static_cast<uint32_t>(value) & 0x3FFu) << shift);
}

// ---- walks that keep to the buffer ----
// Operations walk frame coordinates through the addressing rule; with
// origins other than 0 (or a destination keeping another shape) a step may
// fall before or past the buffer. Such steps are skipped, the others are
// taken exactly where the addressing rule puts them.

// Element index of frame pixel (x, y), signed; saturated far outside any
// buffer when the row alone is out of reach.
inline int64_t element_index(const image* img, int64_t x, int64_t y)
{
    constexpr int64_t far = int64_t{1} << 60;
    const int64_t row = y - img->y_origin, width = img->width;
    if (width != 0 && (row > far / width || row < -far / width)) return row > 0 ? far : -far;
    return row * width + (x - img->x_origin);
}

// One row of a walk: step i touches `touched` bytes from byte
// start + i * stride of the image's buffer.
struct row_walk {
    unsigned char* data;
    int64_t size;  // bytes the buffer holds
    int64_t start, stride, touched;
    unsigned char* at(int64_t i) const { return data + start + i * stride; }
};

// The walk from frame pixel (x, y) at `multiplier` bytes per element index.
inline row_walk walk_from(const image* img, int64_t x, int64_t y, int64_t multiplier, int64_t stride, int64_t touched)
{
    constexpr int64_t far = int64_t{1} << 61;
    const int64_t index = element_index(img, x, y);
    const int64_t start = index > far / multiplier ? far : index < -far / multiplier ? -far : index * multiplier;
    return row_walk{img->data, static_cast<int64_t>(buffer_bytes(img)), start, stride, touched};
}

struct step_range {
    int64_t first, last;  // inclusive; empty when first > last
};

inline int64_t floor_div(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

inline void narrow_to(const row_walk& w, step_range& r)
{
    // start + i * stride >= 0 and start + i * stride + touched <= size
    r.first = max64(r.first, -floor_div(w.start, w.stride));
    r.last = min64(r.last, floor_div(w.size - w.touched - w.start, w.stride));
}

// Steps 0 .. count - 1 whose bytes lie inside every walk's buffer.
template <typename... Walks>
step_range steps_inside(int64_t count, const Walks&... walks)
{
    step_range r{0, count - 1};
    (narrow_to(walks, r), ...);
    return r;
}

// Unaligned reads and writes of multi-byte pixels.
template <typename T>
T load(const unsigned char* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <typename T>
void store(unsigned char* p, T v)
{
    std::memcpy(p, &v, sizeof v);
}

}  // namespace detail
}  // namespace nerva
