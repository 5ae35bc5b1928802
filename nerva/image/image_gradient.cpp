#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "nerva/image/image_draw.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

// Float at buffer column x, row y, when its four bytes lie in the buffer.
bool float_at(const image* img, int64_t x, int64_t y, float& v)
{
    const row_walk w = walk_from(img, x + img->x_origin, y + img->y_origin, 4, 4, 4);
    const step_range r = steps_inside(1, w);
    if (r.first > r.last) return false;
    std::memcpy(&v, w.at(0), sizeof v);
    return true;
}

void set_float(image* img, int64_t x, int64_t y, double v)
{
    const float f = static_cast<float>(v);
    const row_walk w = walk_from(img, x, y, 4, 4, 4);
    const step_range r = steps_inside(1, w);
    if (r.first <= r.last) std::memcpy(w.at(0), &f, sizeof f);
}

std::string file_name(const char* format, const char* base, const char* what, const char* extension)
{
    const int n = std::snprintf(nullptr, 0, format, base, what, extension);
    std::string name(static_cast<size_t>(n > 0 ? n : 0), '\0');
    std::snprintf(&name[0], name.size() + 1, format, base, what, extension);
    return name;
}

}  // namespace

int save_gradient(image* gx, image* gy, const char* base)
{
    if (!gx || !gy || !base) return -1;
    const double pi = 3.14159265358979323846;
    image* out[4] = {};
    for (image*& o : out) o = make_image(FLOAT_IMG, gx->width, gx->height);

    if (out[0] && out[1] && out[2] && out[3]) {
        // Rows follow gx, columns gy. Both are read as floats whatever their
        // kind; a pixel either image does not hold is left 0.
        // (A column beyond either buffer's pixel count names no pixel of it.)
        const int64_t held =
            static_cast<int64_t>(buffer_bytes(gx) < buffer_bytes(gy) ? buffer_bytes(gx) : buffer_bytes(gy)) / 4;
        const int64_t rows = gx->width ? gx->height : 0, columns = min64(gy->width, held + 1);
        for (int64_t y = 1; y <= rows - 2; ++y) {
            for (int64_t x = 1; x <= columns - 2; ++x) {
                float u, v;
                if (!float_at(gx, x, y, u) || !float_at(gy, x, y, v)) continue;
                set_float(out[0], x, y, 2.0f * std::fabs(u));
                set_float(out[1], x, y, 2.0f * std::fabs(v));
                set_float(out[2], x, y, std::sqrt(double(u) * u + double(v) * v) * 1.4142135623730951);
                set_float(out[3], x, y, (std::atan2(double(v), double(u)) + pi) / (2 * pi) * 255);
            }
        }
    }
    // "%s_%s.%s" with ".ppm" gives two dots for the x gradient; hosts look
    // for that name. An image that could not be made is not saved.
    save_image(out[0], file_name("%s_%s.%s", base, "gradx", ".ppm").c_str());
    save_image(out[1], file_name("%s_%s%s", base, "grady", ".ppm").c_str());
    save_image(out[2], file_name("%s_%s%s", base, "gradm", ".ppm").c_str());
    save_image(out[3], file_name("%s_%s%s", base, "grado", ".ppm").c_str());
    for (image* o : out) destroy_image(o);
    return 0;
}

}  // namespace nerva
