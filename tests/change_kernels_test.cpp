#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "image_test_support.h"
#include "nerva/image/internal/change_kernels.h"

using namespace image_test;
using nerva::detail::ChangeKernels;

namespace {

// The running average as written: B - C to float, times k in single
// precision, truncated toward zero; the sum's low byte. Wrapping is done on
// the exact integer part, in double, independently of the kernels' int32
// shortcut.
uint8_t reference_average(uint8_t b, uint8_t c, float k)
{
    const float v = static_cast<float>(b - c) * k;
    if (!std::isfinite(v)) return c;
    const double low = std::fmod(std::trunc(static_cast<double>(v)), 256.0);
    return static_cast<uint8_t>((c + static_cast<int>(low) + 256) & 0xFF);
}

const float kRates[] = {0.0f,
                        1.0f,
                        0.05f,
                        0.5f,
                        1e-30f,
                        1e-45f,
                        -0.7f,
                        -3e9f,
                        2.5f,
                        1e30f,
                        -1e30f,
                        std::numeric_limits<float>::infinity(),
                        std::numeric_limits<float>::quiet_NaN()};

struct Rows {
    std::vector<uint8_t> b, c, out;
};

// Rows of random bytes, some close to each other so that thresholds split
// them; the kernels get them from an odd offset.
Rows random_rows(std::mt19937& rng, size_t n)
{
    Rows r{std::vector<uint8_t>(n + 3), std::vector<uint8_t>(n + 3), std::vector<uint8_t>(n + 3, 77)};
    for (size_t i = 0; i < n + 3; ++i) {
        r.b[i] = static_cast<uint8_t>(rng());
        r.c[i] = rng() % 2 ? static_cast<uint8_t>(r.b[i] + rng() % 9 - 4) : static_cast<uint8_t>(rng());
    }
    return r;
}

}  // namespace

// Every kernel set this CPU runs (the first is the one in use) against the
// formula, at every rate and threshold that has an edge, on rows of every
// length around the vector widths.
TEST(ChangeKernels, EveryKernelSetThisCpuRunsGivesTheScalarFormulasBytes)
{
    std::mt19937 rng(4242);
    const std::vector<ChangeKernels>& sets = nerva::detail::change_kernels();
    ASSERT_FALSE(sets.empty());
    for (int trial = 0; trial < 600; ++trial) {
        const size_t n = trial < 100 ? static_cast<size_t>(trial) : 1 + rng() % 900;
        const float k = 1.0f - kRates[trial % std::size(kRates)];
        const int signed_threshold = trial % 7 == 0 ? -3 : trial % 7 == 1 ? 0 : trial % 7 == 2 ? 256 : rng() % 12;
        const unsigned threshold = trial % 5 == 0 ? 0u : trial % 5 == 1 ? 255u : trial % 5 == 2 ? 256u : rng() % 40;
        const Rows in = random_rows(rng, n);

        std::vector<uint8_t> averaged = in.b, learned = in.b, differences = in.out, changed = in.out;
        for (size_t i = 1; i <= n; ++i) {
            const int d = std::abs(in.b[i] - in.c[i]);
            averaged[i] = reference_average(in.b[i], in.c[i], k);
            if (d < signed_threshold) learned[i] = averaged[i];
            differences[i] = static_cast<uint8_t>(d);
            changed[i] = static_cast<unsigned>(d) >= threshold ? 255 : 0;
        }
        const auto n64 = static_cast<int64_t>(n);
        for (const ChangeKernels& set : sets) {
            SCOPED_TRACE(std::string(set.name) + " n " + std::to_string(n) + " k " + std::to_string(k));
            Rows got = in;
            set.average(got.b.data() + 1, got.c.data() + 1, n64, k);
            EXPECT_EQ(got.b, averaged);

            got = in;
            set.average_close(got.b.data() + 1, got.c.data() + 1, n64, k, signed_threshold);
            EXPECT_EQ(got.b, learned) << "threshold " << signed_threshold;

            got = in;
            set.abs_diff(got.b.data() + 1, got.c.data() + 1, got.out.data() + 1, n64);
            EXPECT_EQ(got.out, differences);

            got = in;
            set.at_least(differences.data() + 1, got.out.data() + 1, n64, threshold);
            EXPECT_EQ(got.out, changed) << "threshold " << threshold;

            got = in;
            set.detect(got.b.data() + 1, got.c.data() + 1, got.out.data() + 1, n64, k, threshold);
            EXPECT_EQ(got.out, changed) << "threshold " << threshold;
            EXPECT_EQ(got.b, averaged);
        }
    }
}

namespace {

image* random_image(owned& keep, std::mt19937& rng, image_type kind, unsigned w, unsigned h)
{
    image* img = keep.make(kind, w, h);
    for (size_t i = 0; i < size_t{w} * h * img->bytes_per_pixel; ++i) img->data[i] = static_cast<uint8_t>(rng());
    return img;
}

image* copy_of(owned& keep, const image* img)
{
    image* c = keep.make(img->type, img->width, img->height);
    std::memcpy(c->data, img->data, size_t{img->width} * img->height * img->bytes_per_pixel);
    return c;
}

bytes_t all_bytes(const image* img) { return bytes(img, size_t{img->width} * img->height * img->bytes_per_pixel); }

// Calls visit(first byte) for each step of a row walk of a rectangle clipped
// to a w x h image: `pixel` bytes per element index, `stride` bytes per
// step, every step's `touched` bytes inside the buffer.
template <typename Visit>
void walk(const rectangle& r, int w, int h, int pixel, int stride, int touched, Visit visit)
{
    const int size = w * h * pixel;
    for (int y = std::max(r.ymin, 0); y <= std::min(r.ymax, h - 1); ++y)
        for (int x = std::max(r.xmin, 0), i = 0; x <= std::min(r.xmax, w - 1); ++x, ++i) {
            const int at = (y * w + std::max(r.xmin, 0)) * pixel + i * stride;
            if (at + touched <= size) visit(at);
        }
}

}  // namespace

// The operations hand whole rows to the kernels; they must still give what
// a pixel-by-pixel walk gives: odd widths, rectangles partly outside, the
// colour kinds' pixel and one-byte strides.
TEST(ChangeKernels, OperationsGiveWhatAPixelByPixelWalkGives)
{
    std::mt19937 rng(99);
    for (int trial = 0; trial < 200; ++trial) {
        owned keep;
        const int w = 1 + static_cast<int>(rng() % 97), h = 1 + static_cast<int>(rng() % 9);
        rectangle r = bounds(static_cast<int>(rng() % (w + 4)) - 3, static_cast<int>(rng() % (h + 2)) - 1, 0, 0);
        r.xmax = r.xmin + static_cast<int>(rng() % (w + 4));
        r.ymax = r.ymin + static_cast<int>(rng() % (h + 2));
        const float rate = kRates[trial % std::size(kRates)], k = 1.0f - rate;
        const int t = static_cast<int>(rng() % 30), tg = trial % 3 ? 256 : 3, tb = trial % 4 ? 9 : 0;
        SCOPED_TRACE("trial " + std::to_string(trial));

        for (image_type kind : {GREY_IMG, COLOR_IMG_3BYTES}) {
            const int pixel = kind == GREY_IMG ? 1 : 3;
            image *bg = random_image(keep, rng, kind, w, h), *cur = random_image(keep, rng, kind, w, h);
            for (int i = 0; i < w * h * pixel; i += 2) cur->data[i] = static_cast<uint8_t>(bg->data[i] + rng() % 7 - 3);
            bytes_t want = all_bytes(bg);
            walk(r, w, h, pixel, pixel, pixel, [&](int at) {
                for (int j = 0; j < pixel; ++j) want[at + j] = reference_average(want[at + j], cur->data[at + j], k);
            });
            image* averaged = copy_of(keep, bg);
            ASSERT_EQ(update(averaged, cur, rate, &r), 0);
            EXPECT_EQ(all_bytes(averaged), want) << "update, kind " << kind;

            want = all_bytes(bg);
            const int thresholds[3] = {t, tg, tb};  // bytes 2, 1, 0
            walk(r, w, h, pixel, 1, pixel, [&](int at) {
                for (int j = pixel - 1; j >= 0; --j)
                    if (std::abs(want[at + j] - cur->data[at + j]) < thresholds[pixel == 1 ? 0 : 2 - j])
                        want[at + j] = reference_average(want[at + j], cur->data[at + j], k);
            });
            image* learned = copy_of(keep, bg);
            ASSERT_EQ(kind == GREY_IMG ? grey_thresholded_update(learned, cur, rate, t, &r)
                                       : color_thresholded_update(learned, cur, rate, t, tg, tb, &r),
                      0);
            EXPECT_EQ(all_bytes(learned), want) << "thresholded update, kind " << kind;

            image* out = random_image(keep, rng, kind, w, h);
            want = all_bytes(out);
            walk(r, w, h, pixel, 1, pixel, [&](int at) {
                for (int j = 0; j < pixel; ++j)
                    want[at + j] = static_cast<uint8_t>(std::abs(bg->data[at + j] - cur->data[at + j]));
            });
            ASSERT_EQ(abs_difference(bg, cur, &r, out), 0);
            EXPECT_EQ(all_bytes(out), want) << "abs_difference, kind " << kind;
        }

        image *grey = random_image(keep, rng, GREY_IMG, w, h), *mask = random_image(keep, rng, GREY_IMG, w, h);
        const unsigned threshold = trial % 5 == 0 ? 0u : trial % 5 == 1 ? 256u : rng() % 256;
        bytes_t want = all_bytes(mask);
        walk(r, w, h, 1, 1, 1, [&](int at) { want[at] = grey->data[at] >= threshold ? 255 : 0; });
        ASSERT_EQ(grey_thresholding(grey, threshold, &r, mask), 0);
        EXPECT_EQ(all_bytes(mask), want) << "grey_thresholding " << threshold;
    }
}

// Its kernel is held to the formula above and its rows to the row-by-row
// path's; here, the inputs detect_changes refuses.
TEST(ChangeKernels, DetectChangesRefusesAColourImageAndUnequalSizes)
{
    owned keep;
    image* colour = keep.make(COLOR_IMG_3BYTES, 4, 4);
    rectangle all = box(0, 0, 4, 4);
    EXPECT_EQ(detect_changes(colour, colour, 0.1f, 10, &all, keep.make(GREY_IMG, 4, 4)), -1);
    EXPECT_EQ(
        detect_changes(keep.make(GREY_IMG, 4, 4), keep.make(GREY_IMG, 4, 5), 0.1f, 10, &all, keep.make(GREY_IMG, 4, 4)),
        -1);
}
