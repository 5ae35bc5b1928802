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

// The rectangle clipped to the image's frame extent: columns x_origin ..
// x_origin + width - 1, rows likewise (0 .. width - 1 with the usual origins).
// Empty for an image without pixels.
inline pixel_span clip_span(const image* img, const rectangle* r)
{
    pixel_span s{max64(r->xmin, img->x_origin), min64(r->xmax, last_column(img)), max64(r->ymin, img->y_origin),
                 min64(r->ymax, last_row(img))};
    if (!img->data) s.x1 = s.x0 - 1;
    return s;
}

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

// Whether every pixel of the span lies in the image's frame extent.
inline bool covers(const image* img, const pixel_span& s)
{
    return s.empty() || (contains(img, s.x0, s.y0) && contains(img, s.x1, s.y1));
}

// Element index of frame pixel (x, y); multiply by the pixel size for bytes.
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

// Low byte of a value truncated toward zero: values wrap, they are not clamped.
inline unsigned char low_byte_of(double v) { return static_cast<unsigned char>(static_cast<uint64_t>(truncate_to_int64(v)) & 0xFF); }

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
