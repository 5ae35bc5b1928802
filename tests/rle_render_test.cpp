#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "image_test_support.h"

using namespace image_test;

namespace {

// A run-length image built by hand: runs live in a pool, lines point into it.
struct hand_rle {
    std::vector<std::shared_ptr<segment>> pool = std::vector<std::shared_ptr<segment>>(32);
    size_t used = 0;
    std::shared_ptr<RLEimage> rle;

    hand_rle(int width, int height) : rle(RLEimage_initialize(nullptr, width, height)) {}
    void row(int y, const std::vector<std::pair<int, int>>& runs)  // (first, last), left to right
    {
        rle->lines[y]->nb_segs = static_cast<int32_t>(runs.size());
        rle->lines[y]->segs = &pool[used];
        for (auto [first, last] : runs) pool[used++] = std::make_shared<segment>(segment{last, first, nullptr});
    }
};

bytes_t white_bytes(size_t n, std::vector<std::pair<size_t, size_t>> ranges)
{
    bytes_t v(n, 0);
    for (auto [from, to] : ranges) std::fill(v.begin() + from, v.begin() + to + 1, 255);
    return v;
}

}  // namespace

TEST(RLERender, RunsPaintWhiteAndARepaintClearsFirst)
{
    owned keep;
    hand_rle h(10, 3);
    h.row(0, {{3, 5}});
    h.row(2, {{0, 0}, {9, 9}});
    image* img = keep(RLEimage_to_binaire(h.rle, nullptr));
    ASSERT_EQ(img->type, COLOR_IMG_3BYTES);
    EXPECT_EQ(bytes(img, 90), white_bytes(90, {{9, 17}, {60, 62}, {87, 89}}));  // one-column runs: one pixel
    h.row(0, {{0, 1}});
    h.row(2, {});
    EXPECT_EQ(RLEimage_to_binaire(h.rle, img), img);  // cleared first
    EXPECT_EQ(bytes(img, 90), white_bytes(90, {{0, 5}}));
    RLEimage_clear_binaire(h.rle, img);
    EXPECT_EQ(bytes(img, 90), white_bytes(90, {}));
}

// The raw grey form clips at the row's end and never clears the buffer.
TEST(RLERenderDeathTest, RawGreyClipsAtTheRowsEndAndNeedsABuffer)
{
    hand_rle g(10, 2);
    g.row(0, {{3, 5}});
    g.row(1, {{8, 12}});
    bytes_t raw(20, 0), expected = white_bytes(20, {{3, 5}, {18, 19}});
    raw[0] = expected[0] = 9;
    RLEimage_to_binary_raw_gray(g.rle, raw.data());
    EXPECT_EQ(raw, expected);
    EXPECT_EXIT(RLEimage_to_binary_raw_gray(g.rle, nullptr), testing::ExitedWithCode(1),
                "FATAL ERROR: RLEimage::RLEimage_to_binaire_raw_gray.\n Memory space for binary raw data MUST be");
}

TEST(RLERender, SavedPictureShowsRunsAndBlueBoxes)
{
    hand_rle h(6, 4);
    h.row(1, {{1, 2}});
    h.row(2, {{1, 2}});
    blob_ptr first = blob_new(), second = blob_new();
    init_rectangle(&first->bbox, 0, 0, 4, 4);
    init_rectangle(&second->bbox, 5, 3, 1, 1);
    first->next = second;
    const std::string path = temp_path("rle_boxes.ppm");
    ASSERT_EQ(RLEimage_save_binaire(h.rle, path.c_str(), first), 0);
    const cv::Mat saved = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(saved.type(), CV_8UC3);
    ASSERT_EQ(saved.size(), cv::Size(6, 4));
    const cv::Vec3b white(255, 255, 255), black(0, 0, 0), blue(255, 0, 0);  // imread order: b, g, r
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) {
            const bool run = (y == 1 || y == 2) && (x == 1 || x == 2);
            const bool outline = (x <= 3 && (y == 0 || y == 3 || x == 0 || x == 3)) || (x == 5 && y == 3);
            EXPECT_EQ(saved.at<cv::Vec3b>(y, x), run ? white : outline ? blue : black) << x << "," << y;
        }

    init_rectangle(&second->bbox, 0, 0, 7, 1);  // xmax == width: cannot be drawn
    testing::internal::CaptureStderr();
    EXPECT_EQ(RLEimage_save_binaire(h.rle, path.c_str(), first), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "RLEimage_save_binaire(): drawing rectangles on image failed.\n");
}
