#include "nerva/image/image.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

// The other kind's pixels fit in the buffer already held: the record takes
// the new kind and size in place.
bool reuse_for_other_kind(image* img, image_type type, unsigned width, unsigned height)
{
    const int64_t pixel = kind_pixel_bytes(type);
    if (pixel == 0) return false;
    // The exact product: a 32-bit one could wrap to a small value and let a
    // too-small buffer pass for a huge size.
    const uint64_t wanted = uint64_t{width} * height * static_cast<uint64_t>(pixel);
    const uint64_t held = uint64_t{img->capacity} * static_cast<uint64_t>(img->bytes_per_pixel);
    if (wanted == 0 || wanted > held) return false;
    img->type = type;
    img->width = width;
    img->height = height;
    img->bytes_per_pixel = pixel;
    img->capacity = static_cast<uint32_t>(held / static_cast<uint64_t>(pixel));
    return true;
}

// The buffer of a negative kind with one side 0: no pixel, capacity 0, and
// shared, so that records which never free a capacity-0 buffer leak nothing.
unsigned char empty_pixels[1];

void release_buffer(image* img)
{
    if (img->data != empty_pixels) std::free(img->data);
    img->data = nullptr;
    img->capacity = 0;
}

char* copy_string(const char* s)
{
    const size_t n = std::strlen(s) + 1;
    char* c = static_cast<char*>(std::malloc(n));
    if (c) std::memcpy(c, s, n);
    return c;
}

}  // namespace

int initialize_image(image* img, image_type type, unsigned width, unsigned height)
{
    if (!img) return -1;
    if (type == COLOR_IMG_4BYTES) type = COLOR_IMG_3BYTES;

    // Same kind and room enough: the record is left exactly as it is, its
    // recorded size included. Hosts re-initialise every frame and rely on it.
    if (type == img->type && img->data && uint64_t{img->capacity} >= uint64_t{width} * height) return 0;

    if (type != img->type && img->type != 0 && img->data && reuse_for_other_kind(img, type, width, height)) return 0;

    img->type = type;
    img->width = width;
    img->height = height;
    img->x_origin = 0;
    img->y_origin = 0;
    img->name = nullptr;  // forgotten, not freed: the caller may still hold it
    if (width == 0 && height == 0) {
        img->capacity = 0;
        img->data = nullptr;  // likewise forgotten
        return 0;
    }
    release_buffer(img);
    const int64_t pixel = kind_pixel_bytes(type);
    if (pixel == 0) return -1;
    const uint64_t pixels = uint64_t{width} * height;
    if (pixels > UINT32_MAX) return -1;  // capacity could not record it
    img->bytes_per_pixel = pixel;
    if (pixels == 0 && type < 0) {
        // One side 0: a set-up like any other (result 1), over no pixels.
        img->data = empty_pixels;
        return 1;
    }
    // A generic kind's buffer is handed over unowned (capacity 0), so the
    // host frees it: it gets a real allocation even for no pixels.
    img->data =
        static_cast<unsigned char*>(std::calloc(pixels ? static_cast<size_t>(pixels) : 1, static_cast<size_t>(pixel)));
    if (!img->data) return -1;
    if (type < 0) img->capacity = static_cast<uint32_t>(pixels);
    return 1;
}

image* make_image(image_type type, unsigned width, unsigned height)
{
    image* img = static_cast<image*>(std::calloc(1, sizeof(image)));
    if (!img) return nullptr;
    if (initialize_image(img, type, width, height) < 0) {
        destroy_image(img);
        return nullptr;
    }
    return img;
}

int destroy_image(image* img)
{
    if (!img) return -1;
    const bool known_kind = img->type > 0 || (img->type >= COLOR_IMG_4BYTES && img->type <= COLOR_IMG_3BYTES);
    if (known_kind && img->capacity != 0) release_buffer(img);
    img->data = nullptr;
    img->capacity = 0;
    std::free(img->name);
    std::free(img);
    return 0;
}

int clear_image(image* img)
{
    if (!img || !img->data) return -1;
    // capacity counts the pixels of a buffer the record owns; a buffer it
    // does not own (capacity 0) is not the record's to clear.
    std::memset(img->data, 0, size_t{img->capacity} * static_cast<size_t>(img->bytes_per_pixel));
    return 0;
}

image* copy_whole_image(image* src)
{
    if (!src) return nullptr;
    image* copy = make_image(src->type, src->width, src->height);
    if (!copy) return nullptr;

    const size_t pixels = size_t{src->width} * src->height;
    size_t bytes = 0;
    switch (src->type) {
    case COLOR_IMG_3BYTES: bytes = 3 * pixels; break;
    case COLOR_IMG_4BYTES:
    case FLOAT_IMG: bytes = 4 * pixels; break;
    default: detail::report_errno("This type of image is not handled by copy_whole_image\n"); detail::fatal_exit(0);
    }
    if (src->type == COLOR_IMG_4BYTES && copy->capacity) {
        // make_image set the copy up with 3-byte pixels; it must still hold
        // every byte of the source.
        unsigned char* wide = static_cast<unsigned char*>(std::calloc(pixels, 4));
        if (!wide) {
            destroy_image(copy);
            return nullptr;
        }
        std::free(copy->data);
        copy->data = wide;
    }
    if (bytes && src->data && copy->data) std::memcpy(copy->data, src->data, bytes);
    if (src->name) {
        copy->name = copy_string(src->name);
        if (!copy->name) {
            destroy_image(copy);
            return nullptr;
        }
    }
    return copy;
}

int copy_image_content(image* src, rectangle* rect, image* dst, copy_type_t how)
{
    if (!src || !rect || !dst || (how != COPY_IN_PLACE && how != COPY_CROP)) return -1;
    // A negative size would be read as a size of about four billion.
    if (how == COPY_CROP && (rect->width < 0 || rect->height < 0)) return -1;
    const unsigned width = how == COPY_CROP ? static_cast<unsigned>(rect->width) : src->width;
    const unsigned height = how == COPY_CROP ? static_cast<unsigned>(rect->height) : src->height;
    if (initialize_image(dst, src->type, width, height) < 0) return -1;

    if (rect->xmin == 0 && rect->ymin == 0 && int64_t{rect->width} == src->width &&
        int64_t{rect->height} == src->height) {
        const size_t held = buffer_bytes(src), room = buffer_bytes(dst);
        if (src->capacity && dst->data && src->data) std::memmove(dst->data, src->data, held < room ? held : room);
        return 0;
    }

    const pixel_span from = clip_span(src, rect);
    if (from.empty()) return 0;
    const int64_t dx = how == COPY_CROP ? -from.x0 : 0;
    const int64_t dy = how == COPY_CROP ? -from.y0 : 0;

    int64_t pixel;
    switch (src->type) {
    case COLOR_IMG_3BYTES:
    case COLOR_IMG_4BYTES: pixel = 3; break;
    case SIGNED_COLOR_IMG:
    case FLOAT_IMG:
    case INT_IMG: pixel = 4; break;
    case GREY_IMG: pixel = 1; break;
    default: pixel = src->bytes_per_pixel;
    }
    if (pixel <= 0) return 0;
    for (int64_t y = from.y0; y <= from.y1; ++y) {
        const row_walk s = walk_from(src, from.x0, y, pixel, pixel, pixel);
        const row_walk d = walk_from(dst, from.x0 + dx, y + dy, pixel, pixel, pixel);
        const step_range r = steps_inside(from.columns(), s, d);
        if (r.first <= r.last)
            std::memmove(d.at(r.first), s.at(r.first), static_cast<size_t>((r.last - r.first + 1) * pixel));
    }
    return 0;
}

image* image_data_encapsulate(unsigned char* data, int rows, int columns, image* img, image_type type)
{
    if (rows <= 0 || columns <= 0 || !data) return nullptr;
    int64_t pixel;
    switch (type) {
    case GREY_IMG: pixel = 1; break;
    case COLOR_IMG_3BYTES: pixel = 3; break;
    case COLOR_IMG_4BYTES: pixel = 4; break;
    default:
        detail::report(MESSAGES_STDERR,
                       "image : image_data_encapsulate : ERROR!\nThis function doesn't support yet a type of image "
                       "different from GREY_IMG and COLOR_IMG_3BYTES. Sorry...\n");
        return nullptr;
    }
    const uint64_t pixels = uint64_t(rows) * uint64_t(columns);
    if (pixels > UINT32_MAX) return nullptr;
    if (!img) img = static_cast<image*>(std::calloc(1, sizeof(image)));
    if (!img) return nullptr;
    if (img->data == data) return img;

    if (img->data && img->capacity) std::free(img->data);
    img->type = type;
    img->data = data;
    img->bytes_per_pixel = pixel;
    img->height = static_cast<uint32_t>(rows);
    img->width = static_cast<uint32_t>(columns);
    img->x_origin = 0;
    img->y_origin = 0;
    img->reserved = 0;
    img->capacity = static_cast<uint32_t>(pixels);
    return img;
}

}  // namespace nerva
