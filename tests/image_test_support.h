#pragma once

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "nerva/nerva.h"

// Helpers shared by the image toolkit's tests.
namespace image_test {

using namespace nerva;
using bytes_t = std::vector<unsigned char>;

inline rectangle box(int x, int y, int w, int h)
{
    rectangle r;
    init_rectangle(&r, x, y, w, h);
    return r;
}
inline rectangle bounds(int xmin, int ymin, int xmax, int ymax) { return {xmin, ymin, xmax, ymax, 0, 0}; }

inline bytes_t bytes(const image* img, size_t n) { return {img->data, img->data + n}; }

template <typename T>
T at(const image* img, size_t i)
{
    T v;
    std::memcpy(&v, img->data + i * sizeof v, sizeof v);
    return v;
}
template <typename T>
void put(image* img, size_t i, T v)
{
    std::memcpy(img->data + i * sizeof v, &v, sizeof v);
}

template <typename T>
void put_all(image* img, std::initializer_list<T> values)
{
    size_t i = 0;
    for (T v : values) put(img, i++, v);
}

// SIGNED_COLOR_IMG / BG_IMG word from its three 10-bit fields.
inline uint32_t pack(int f0, int f1, int f2)
{
    return (uint32_t(f0) & 0x3FF) | ((uint32_t(f1) & 0x3FF) << 10) | ((uint32_t(f2) & 0x3FF) << 20);
}

// Makes images (optionally filled with leading bytes) and destroys them, and
// any image handed to it, when the test ends.
struct owned {
    std::vector<image*> all;
    image* operator()(image* img)
    {
        all.push_back(img);
        return img;
    }
    image* make(image_type kind, unsigned w, unsigned h, const bytes_t& first = {})
    {
        image* img = (*this)(make_image(kind, w, h));
        if (!first.empty()) std::memcpy(img->data, first.data(), first.size());
        return img;
    }
    ~owned()
    {
        for (image* img : all) destroy_image(img);
    }
};

inline std::string temp_path(const std::string& name) { return testing::TempDir() + "nerva_" + name; }

}  // namespace image_test
