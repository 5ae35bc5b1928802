#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "nerva/image/image_draw.h"
#include "nerva/image/internal/image_pixels.h"

namespace nerva {

using namespace detail;

namespace {

float float_at(const image* img, int64_t x, int64_t y)
{
    float v;
    std::memcpy(&v, img->data + pixel_index(img, x + img->x_origin, y + img->y_origin) * 4, sizeof v);
    return v;
}

void set_float(image* img, int64_t x, int64_t y, double v)
{
    const float f = static_cast<float>(v);
    std::memcpy(img->data + pixel_index(img, x, y) * 4, &f, sizeof f);
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
    if (!gx || !gy || !base || gx->type != FLOAT_IMG || gy->type != FLOAT_IMG || !gx->data || !gy->data) return -1;
    const double pi = 3.14159265358979323846;
    image* out[4] = {};
    for (image*& o : out) o = make_image(FLOAT_IMG, gx->width, gx->height);

    if (out[0] && out[1] && out[2] && out[3] && out[0]->data) {
        // Rows follow gx, columns gy, as hosts have it; both are kept inside
        // the two images.
        const int64_t rows = min64(gx->height, gy->height), columns = min64(gx->width, gy->width);
        for (int64_t y = 1; y <= rows - 2; ++y) {
            for (int64_t x = 1; x <= columns - 2; ++x) {
                const float u = float_at(gx, x, y), v = float_at(gy, x, y);
                set_float(out[0], x, y, 2.0f * std::fabs(u));
                set_float(out[1], x, y, 2.0f * std::fabs(v));
                set_float(out[2], x, y, std::sqrt(double(u) * u + double(v) * v) * 1.4142135623730951);
                set_float(out[3], x, y, (std::atan2(double(v), double(u)) + pi) / (2 * pi) * 255);
            }
        }
        // "%s_%s.%s" with ".ppm" gives two dots for the x gradient; hosts
        // look for that name.
        save_image(out[0], file_name("%s_%s.%s", base, "gradx", ".ppm").c_str());
        save_image(out[1], file_name("%s_%s%s", base, "grady", ".ppm").c_str());
        save_image(out[2], file_name("%s_%s%s", base, "gradm", ".ppm").c_str());
        save_image(out[3], file_name("%s_%s%s", base, "grado", ".ppm").c_str());
    }
    for (image* o : out) destroy_image(o);
    return 0;
}

}  // namespace nerva
