// Writes images of every kind, made or re-initialised the ways a host can
// (make_image, initialize_image to another kind or size, wrapping a buffer),
// with fuzzer pixels and moved origins, through save_image and its pieces.
// Checks: no read outside the buffer, the status, and the file's size (header
// plus the pixels its kind writes).
#include <fuzzer/FuzzedDataProvider.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "nerva/nerva.h"

using namespace nerva;

namespace {

std::string temp_path;

image_type any_kind(FuzzedDataProvider& in) { return static_cast<image_type>(in.ConsumeIntegralInRange(-8, 6)); }

// destroy_image leaves unowned buffers (generic kinds, capacity 0) to the
// caller; a negative kind with capacity 0 holds no pixels and nothing to free.
void release(image* img)
{
    if (img->data && img->capacity == 0 && img->type > 0) {
        std::free(img->data);
        img->data = nullptr;
    }
    destroy_image(img);
}

image* make_any_image(FuzzedDataProvider& in, size_t& allocated)
{
    const unsigned w = in.ConsumeIntegralInRange(0u, 12u), h = in.ConsumeIntegralInRange(0u, 12u);
    if (in.ConsumeIntegralInRange(0, 3) == 0) {
        // A wrapped buffer: the only way to a COLOR_IMG_4BYTES record.
        const image_type kind = in.PickValueInArray({GREY_IMG, COLOR_IMG_3BYTES, COLOR_IMG_4BYTES});
        const size_t pixel = kind == GREY_IMG ? 1 : kind == COLOR_IMG_3BYTES ? 3 : 4;
        if (w == 0 || h == 0) return nullptr;
        auto* buffer = static_cast<unsigned char*>(std::calloc(size_t{w} * h, pixel));
        image* img = image_data_encapsulate(buffer, static_cast<int>(h), static_cast<int>(w), nullptr, kind);
        CHECK(img);
        allocated = size_t{w} * h * pixel;
        return img;
    }
    image_type kind = any_kind(in);
    image* img = make_image(kind, w, h);
    if (!img) return nullptr;
    allocated = img->data ? size_t{w} * h * static_cast<size_t>(img->bytes_per_pixel) : 0;
    if (in.ConsumeBool()) {
        // Re-initialised: same buffer under another kind or size, or a fresh set-up.
        const unsigned w2 = in.ConsumeIntegralInRange(0u, 12u), h2 = in.ConsumeIntegralInRange(0u, 12u);
        unsigned char* before = img->data;
        const bool owned = img->capacity != 0 || img->type > 0;
        const int r = initialize_image(img, any_kind(in), w2, h2);
        if (r == 1) allocated = size_t{w2} * h2 * static_cast<size_t>(img->bytes_per_pixel);
        else if (img->data != before) allocated = 0;
        if (r != 1 && before && !img->data && w2 == 0 && h2 == 0 && owned) std::free(before);  // forgotten, by design
        if (r < 0) {
            release(img);
            return nullptr;
        }
    }
    return img;
}

long file_size(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    temp_path = "/tmp/nerva-fuzz-save-" + std::to_string(getpid()) + ".pnm";
    silence_library_messages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    size_t allocated = 0;
    image* img = make_any_image(in, allocated);
    if (!img) return 0;
    const size_t held = img->data ? allocated : 0;
    if (held) {
        const std::vector<uint8_t> pixels = in.ConsumeBytes<uint8_t>(held);
        if (!pixels.empty()) std::memcpy(img->data, pixels.data(), pixels.size());
    }
    if (in.ConsumeBool()) {  // a host may place the image in a larger frame
        img->x_origin = in.ConsumeIntegralInRange(-5, 5);
        img->y_origin = in.ConsumeIntegralInRange(-5, 5);
    }

    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: {
        const int r = save_image(img, temp_path.c_str());
        CHECK(r == 0 || r == -1);
        if (r == 0) {
            const std::string header =
                std::string("P") +
                (img->type == COLOR_IMG_3BYTES || img->type == COLOR_IMG_4BYTES            ? '6'
                 : img->type == GREY_IMG || img->type == FLOAT_IMG || img->type == INT_IMG ? '5'
                                                                                           : '0') +
                "\n" + std::to_string(img->width) + " " + std::to_string(img->height) + " 255\n";
            const long pixels = static_cast<long>(img->width) * img->height;
            const long body = img->type == COLOR_IMG_3BYTES || img->type == COLOR_IMG_4BYTES ? 3 * pixels
                              : img->type == GREY_IMG || img->type == FLOAT_IMG              ? pixels
                                                                                             : 0;
            CHECK(file_size(temp_path) == static_cast<long>(header.size()) + body);
        }
        break;
    }
    case 1: CHECK(save_image(img, "/nonexistent-dir/nerva/out.pgm") == -1); break;
    default: {
        // The pieces, each with any kind of image.
        FILE* sink = std::fopen("/dev/null", "wb");
        CHECK(sink);
        const int r =
            in.PickValueInArray({_write_header, _write_color_data, _write_grey_data, _write_float_data})(img, sink);
        CHECK(r == 0 || r == -1);
        std::fclose(sink);
    }
    }
    release(img);
    return 0;
}
