#include <cstdio>
#include <cstring>
#include <vector>

#include "nerva/image/image.h"
#include "nerva/image/internal/image_pixels.h"
#include "nerva/internal/report.h"

namespace nerva {

using namespace detail;

namespace {

bool write_all(const std::vector<unsigned char>& bytes, FILE* file)
{
    return bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

// Pixels are written a row at a time; a row holds `pixel` bytes per pixel of
// which the last read one must still lie in the buffer.
bool row_fits(const image* img, size_t pixel_step, size_t pixel_bytes)
{
    const size_t pixels = size_t{img->width} * img->height;
    if (pixels == 0) return true;
    return img->data && (pixels - 1) * pixel_step + pixel_bytes <= buffer_bytes(img);
}

}  // namespace

int _write_header(image* img, FILE* file)
{
    char magic;
    switch (img->type) {
    case COLOR_IMG_3BYTES:
    case COLOR_IMG_4BYTES: magic = '6'; break;
    case GREY_IMG:
    case FLOAT_IMG:
    case INT_IMG: magic = '5'; break;
    default: magic = '0';
    }
    if (std::fprintf(file, "P%c\n", magic) < 0) return -1;
    // The sizes are unsigned: a width past 2^31 - 1 is written as it is, never
    // as a negative number.
    if (std::fprintf(file, "%u %u %d\n", img->width, img->height, 255) < 0) return -1;
    return 0;
}

int _write_color_data(image* img, FILE* file)
{
    const size_t step = img->type == COLOR_IMG_4BYTES ? 4 : 3;
    if (!row_fits(img, step, 3)) return -1;
    std::vector<unsigned char> row(size_t{img->width} * 3);
    for (size_t y = 0; y < img->height; ++y) {
        const unsigned char* p = img->data + y * img->width * step;
        for (size_t x = 0; x < img->width; ++x, p += step) {
            row[3 * x] = p[2];  // red, green, blue on disk
            row[3 * x + 1] = p[1];
            row[3 * x + 2] = p[0];
        }
        if (!write_all(row, file)) return -1;
    }
    return 0;
}

int _write_grey_data(image* img, FILE* file)
{
    if (!row_fits(img, 1, 1)) return -1;
    std::vector<unsigned char> row(img->width);
    for (size_t y = 0; y < img->height; ++y) {
        if (!row.empty()) std::memcpy(row.data(), img->data + y * img->width, row.size());
        if (!write_all(row, file)) return -1;
    }
    return 0;
}

int _write_float_data(image* img, FILE* file)
{
    if (!row_fits(img, 4, 4)) return -1;
    std::vector<unsigned char> row(img->width);
    for (size_t y = 0; y < img->height; ++y) {
        const unsigned char* p = img->data + y * img->width * 4;
        for (size_t x = 0; x < img->width; ++x, p += 4) {
            float v;
            std::memcpy(&v, p, sizeof v);
            row[x] = low_byte_of(v);  // wraps: 300.7 is written as 44
        }
        if (!write_all(row, file)) return -1;
    }
    return 0;
}

int save_image(image* img, const char* path)
{
    if (!img) return -1;
    FILE* file = path ? std::fopen(path, "wb") : nullptr;
    if (!file) {
        detail::report(MESSAGES_STDERR, "Error opening %s\n", path ? path : "(null)");
        return -1;
    }
    int result = 0;
    if (_write_header(img, file) < 0) {
        detail::report(MESSAGES_STDERR, "Error writing in %s\n", path);
        result = -1;
    } else if (is_color_kind(img->type)) {
        if (_write_color_data(img, file) < 0) {
            detail::report(MESSAGES_STDERR, "Error writing in %s", path);
            result = -1;
        }
    } else if (img->type == GREY_IMG) {
        if (_write_grey_data(img, file) < 0) {
            detail::report(MESSAGES_STDERR, "Error writing in %s", path);
            result = -1;
        }
    } else if (img->type == FLOAT_IMG) {
        if (_write_float_data(img, file) < 0) {
            detail::report(MESSAGES_STDERR, "Error wrinting in %s", path);
            result = -1;
        }
    }
    // Buffered bytes only reach the disk here, so a full disk shows up at close.
    if (std::fclose(file) != 0 && result == 0) {
        detail::report(MESSAGES_STDERR, "Error writing in %s\n", path);
        result = -1;
    }
    return result;
}

}  // namespace nerva
