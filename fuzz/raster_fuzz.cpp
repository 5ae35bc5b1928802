// The raster toolkit, run-length rendering and image files on images of every
// kind, origin and shape, any rectangle and rate, run-length images of any size.
// Checks: no access outside a buffer, no undefined arithmetic, results within
// each operation's codes, renders refused exactly for the sizes they cannot
// make, saved files of the header and the pixels their kind writes.
#include <fuzzer/FuzzedDataProvider.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz_check.h"
#include "nerva/nerva.h"

using namespace nerva;

namespace {

constexpr unsigned kMaxSide = 12;
std::string temp_base;
FILE* sink;  // /dev/null, for the file writers' pieces

bool is_code(int r, std::initializer_list<int> codes)
{
    return std::find(codes.begin(), codes.end(), r) != codes.end();
}

// Generic kinds' buffers (capacity 0) are the host's to free; negative kinds
// with capacity 0 hold no pixels and nothing to free.
void release(image* img)
{
    if (img && img->type > 0 && img->capacity == 0) std::free(img->data), img->data = nullptr;
    destroy_image(img);
}

int32_t any_coordinate(FuzzedDataProvider& in)
{
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return in.ConsumeIntegral<int32_t>();
    case 1: return in.PickValueInArray({INT32_MIN, INT32_MIN + 1, -1, INT32_MAX - 1, INT32_MAX});
    default: return in.ConsumeIntegralInRange(-20, 20);
    }
}

// What a host must remember to honour initialize_image's 0 x 0 set-up, which
// forgets (does not free) the buffer: operations re-initialise their
// destinations, so a 0 x 0 source passes this on to them.
struct buffer_before {
    image* img;
    unsigned char* data = img && (img->capacity != 0 || img->type > 0) ? img->data : nullptr;  // owned, if any
    void free_if_forgotten() const
    {
        if (data && !img->data && img->width == 0 && img->height == 0) std::free(data);
    }
};

image* any_image(FuzzedDataProvider& in)
{
    const unsigned w = in.ConsumeIntegralInRange(0u, kMaxSide), h = in.ConsumeIntegralInRange(0u, kMaxSide);
    image* img = nullptr;
    if (in.ConsumeIntegralInRange(0, 4) == 0) {
        const image_type kind = in.PickValueInArray({GREY_IMG, COLOR_IMG_3BYTES, COLOR_IMG_4BYTES});
        const size_t pixel = kind == GREY_IMG ? 1 : kind == COLOR_IMG_3BYTES ? 3 : 4;
        if (w == 0 || h == 0) return nullptr;
        auto* buffer = static_cast<unsigned char*>(std::calloc(size_t{w} * h, pixel));
        img = image_data_encapsulate(buffer, static_cast<int>(h), static_cast<int>(w), nullptr, kind);
        CHECK(img);
    } else {
        img = make_image(static_cast<image_type>(in.ConsumeIntegralInRange(-8, 5)), w, h);
        if (!img) return nullptr;
        if (in.ConsumeIntegralInRange(0, 3) == 0) {
            // Re-initialised: the record may keep its buffer and shape.
            const buffer_before kept{img};
            const unsigned w2 = in.ConsumeIntegralInRange(0u, kMaxSide), h2 = in.ConsumeIntegralInRange(0u, kMaxSide);
            const int r = initialize_image(img, static_cast<image_type>(in.ConsumeIntegralInRange(-8, 5)), w2, h2);
            CHECK(is_code(r, {-1, 0, 1}));
            if (r == 0) kept.free_if_forgotten();
            if (r < 0) return release(img), nullptr;
        }
    }
    const size_t held = img->data ? (img->capacity ? size_t{img->capacity} : size_t{img->width} * img->height) *
                                        static_cast<size_t>(img->bytes_per_pixel)
                                  : 0;
    const std::vector<uint8_t> pixels = in.ConsumeBytes<uint8_t>(held);
    if (!pixels.empty()) std::memcpy(img->data, pixels.data(), pixels.size());
    if (in.ConsumeBool()) {
        img->x_origin = any_coordinate(in);
        img->y_origin = any_coordinate(in);
    }
    return img;
}

rectangle any_rectangle(FuzzedDataProvider& in)
{
    rectangle r{any_coordinate(in), any_coordinate(in), any_coordinate(in), any_coordinate(in), 0, 0};
    // Sizes matter only to COPY_CROP, which allocates them: small, negative,
    // or too many pixels for an image record; never a legal multi-gigabyte one.
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: r.width = in.PickValueInArray({INT32_MIN, -1, -100}), r.height = in.ConsumeIntegralInRange(-2, 20); break;
    case 1: r.width = r.height = in.PickValueInArray({100000, INT32_MAX}); break;
    default: r.width = in.ConsumeIntegralInRange(-3, 20); r.height = in.ConsumeIntegralInRange(-3, 20);
    }
    return r;
}

float any_rate(FuzzedDataProvider& in)
{
    if (in.ConsumeBool())
        return in.PickValueInArray({std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                                    std::numeric_limits<float>::quiet_NaN(), 1e30f, -1e30f, 0.0f, 1.0f, 0.01f});
    const uint32_t bits = in.ConsumeIntegral<uint32_t>();
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// save_image's file: the header, then three bytes a pixel for colour kinds,
// one for grey and float, none for the kinds without a data writer.
void check_saved_file(image* img)
{
    const std::string path = temp_base + ".pnm";
    const int r = save_image(img, path.c_str());
    CHECK(is_code(r, {0, -1}));
    if (r != 0) return;
    const bool colour = img->type == COLOR_IMG_3BYTES || img->type == COLOR_IMG_4BYTES;
    const bool grey = img->type == GREY_IMG || img->type == FLOAT_IMG;
    const char kind = colour ? '6' : grey || img->type == INT_IMG ? '5' : '0';
    const std::string header =
        std::string("P") + kind + "\n" + std::to_string(img->width) + " " + std::to_string(img->height) + " 255\n";
    struct stat st;
    CHECK(stat(path.c_str(), &st) == 0);
    CHECK(st.st_size == static_cast<off_t>(header.size() + size_t{img->width} * img->height * (colour ? 3 : grey)));
}

// Runs over the toolkit's operations on up to three images.
void image_operation(FuzzedDataProvider& in, image* a, image* b, image* c)
{
    rectangle r = any_rectangle(in);
    const float rate = any_rate(in);
    const int t = in.ConsumeIntegral<int>();
    const unsigned u = static_cast<unsigned>(t);
    const auto ok = [](int code) { return code == 0 || code == -1; };
    switch (in.ConsumeIntegralInRange(0, 25)) {
    case 0: CHECK(ok(clear_image_area(a, &r))); break;
    case 1: CHECK(ok(clear_image(a))); break;
    case 2: CHECK(ok(grey_thresholding(a, u, &r, b))); break;
    case 3: CHECK(ok(float_thresholding(a, rate, &r, b))); break;
    case 4: CHECK(ok(int_thresholding(a, u, &r, b))); break;
    case 5: {
        const band_t bands = static_cast<band_t>(in.ConsumeIntegralInRange(0, 7));
        const int mode = in.ConsumeIntegralInRange(-1, 3);
        const int res = color_thresholding(a, u, in.ConsumeIntegral<unsigned>(), u >> 8, &r, bands, mode, b);
        CHECK(mode >= 0 && mode <= 2 ? ok(res) : res == -2);
        break;
    }
    case 6: CHECK(ok(update(a, b, rate, &r))); break;
    case 7: CHECK(ok(grey_thresholded_update(a, b, rate, t, &r))); break;
    case 8: CHECK(ok(color_thresholded_update(a, b, rate, t, in.ConsumeIntegral<int>(), t >> 8, &r))); break;
    case 9: CHECK(ok(abs_difference(a, b, &r, c))); break;
    case 10: CHECK(ok(sign_difference(a, b, &r, c))); break;
    case 11: {
        image* grey = convert_to_grey(a, &r);
        if (grey != a) release(grey);
        break;
    }
    case 12:
    case 13: {
        const auto convert = in.PickValueInArray({convert_to_4bytes, convert_to_1byte});
        image* out = convert(a, in.ConsumeBool() ? &r : nullptr, in.ConsumeBool() ? b : nullptr);
        if (out && out != b) release(out);
        break;
    }
    case 14: CHECK(ok(show_chgmt(a, b, &r))); break;
    case 15: CHECK(ok(_color_show_chgmt(a, b, &r, in.ConsumeIntegralInRange(-1, 40), int(u % 42) - 1))); break;
    case 16: {
        const copy_type_t how = static_cast<copy_type_t>(in.ConsumeIntegralInRange(0, 2));
        const int res = copy_image_content(a, &r, b, how);
        CHECK(how == COPY_CROP && (r.width < 0 || r.height < 0) ? res == -1 : ok(res));
        break;
    }
    case 17: CHECK(ok(draw_rectangle(&r, a))); break;
    case 18: CHECK(ok(draw_color_rectangle(&r, a, t, t >> 8, t >> 16))); break;
    case 19: CHECK(ok(bb_draw_color_line(r.xmin, r.xmax, r.ymin, static_cast<line_type>(t & 1), a, 1, 2, 3))); break;
    case 20: CHECK(ok(bb_draw_color_line_diag(r.xmin, r.ymin, r.xmax, r.ymax, a, 1, 2, 3))); break;
    case 21: {
        int hi = 7, lo = 7;
        check_RGB_channels_extension(a, &hi, &lo, t);
        CHECK((hi == -1 && lo == -1) || (hi >= 0 && hi <= 255 && lo >= 0 && lo <= 255));
        break;
    }
    case 22:
        CHECK(is_code(copy_to_bg(a, b, &r), {0, -1, -2, -3, -4}));
        CHECK(is_code(copy_from_bg(a, b, &r), {0, -1, -2, -3, -4}));
        break;
    case 23: CHECK(save_gradient(a, b, temp_base.c_str()) == (b ? 0 : -1)); break;
    case 24:
        CHECK(
            ok(in.PickValueInArray({_write_header, _write_color_data, _write_grey_data, _write_float_data})(a, sink)));
        break;
    default: check_saved_file(a);
    }
}

// A run-length image sized anywhere, with at most a few lines of runs
// anywhere (its lines may be fewer than its height, as after RLEimage_free).
struct any_rle {
    std::vector<std::shared_ptr<segment>> runs;
    std::shared_ptr<RLEimage> rle = RLEimage_new();

    explicit any_rle(FuzzedDataProvider& in)
    {
        // Negative, past the image record's 2^32 - 1 pixels (no render can be made), or small.
        static const std::pair<int32_t, int32_t> odd_sizes[] = {{INT32_MIN, 2}, {-1, 0},          {0, INT32_MIN},
                                                                {3, -1},        {100000, 100000}, {INT32_MAX, 3},
                                                                {65536, 65536}, {3, INT32_MAX}};
        std::pair<int32_t, int32_t> size{in.ConsumeIntegralInRange(0, 40), in.ConsumeIntegralInRange(0, 10)};
        if (in.ConsumeBool()) size = in.PickValueInArray(odd_sizes);
        std::tie(rle->width, rle->height) = size;
        const int lines = in.ConsumeIntegralInRange(0, 10);
        rle->lines.resize(static_cast<size_t>(lines));
        runs.resize(40);  // four runs at most on each of at most ten lines
        size_t used = 0;
        const auto x = [&] { return in.ConsumeBool() ? any_coordinate(in) : in.ConsumeIntegralInRange(-2, 42); };
        for (auto& line : rle->lines) {
            const int n = in.ConsumeIntegralInRange(0, 4);
            line = std::make_shared<RLEline>(RLEline{n, 0, &runs[used]});
            for (int k = 0; k < n; ++k) runs[used++] = std::make_shared<segment>(segment{x(), x(), nullptr});
        }
    }

    bool renderable() const
    {
        return rle->width >= 0 && rle->height >= 0 && int64_t{rle->width} * rle->height <= int64_t{UINT32_MAX};
    }
};

void rle_operation(FuzzedDataProvider& in, image* given)
{
    any_rle r(in);
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: {
        image* out = RLEimage_to_binaire(r.rle, given);
        CHECK(given ? out == given : static_cast<bool>(out) == r.renderable());
        if (!given) release(out);
        break;
    }
    case 1:
        if (given) RLEimage_clear_binaire(r.rle, given);
        break;
    case 2:
        // The raw buffer is the caller's, width * height bytes.
        if (r.rle->width > 0 && r.rle->width <= 40 && r.rle->height > 0 && r.rle->height <= 10) {
            std::vector<unsigned char> raw(size_t(r.rle->width) * size_t(r.rle->height), 0);
            RLEimage_to_binary_raw_gray(r.rle, raw.data());
        }
        break;
    default: {
        blob_ptr head, tail;
        for (int n = in.ConsumeIntegralInRange(0, 3); n > 0; --n) {
            blob_ptr b = blob_new();
            init_rectangle(&b->bbox, any_coordinate(in), any_coordinate(in), in.ConsumeIntegralInRange(-2, 50),
                           in.ConsumeIntegralInRange(-2, 50));
            if (tail) tail->next = b;
            else head = b;
            tail = b;
        }
        const int res = RLEimage_save_binaire(r.rle, (temp_base + "-rle.ppm").c_str(), head);
        CHECK(r.renderable() ? is_code(res, {0, -1}) : res == -1);
    }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    temp_base = "/tmp/nerva-fuzz-raster-" + std::to_string(getpid());
    sink = std::fopen("/dev/null", "wb");
    silence_library_messages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    image* a = any_image(in);
    image* b = any_image(in);
    image* c = any_image(in);
    if (in.ConsumeIntegralInRange(0, 3) == 0) rle_operation(in, in.ConsumeBool() ? a : nullptr);
    else if (a) {
        const buffer_before kept[] = {{b}, {c}};
        image_operation(in, a, b, c);
        for (const buffer_before& k : kept) k.free_if_forgotten();
    }
    for (image* img : {a, b, c}) release(img);
    return 0;
}
