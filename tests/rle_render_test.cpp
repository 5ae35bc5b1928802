#include <gtest/gtest.h>

#include <cstring>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// A run-length image built by hand: runs live in a pool, lines point into it.
struct hand_rle {
    std::vector<std::shared_ptr<segment>> pool;
    std::shared_ptr<RLEimage> rle;

    hand_rle(int width, int height) : pool(32), rle(RLEimage_initialize(nullptr, width, height)) {}

    // Gives row y the runs [first, last] ... (left to right).
    void row(int y, std::vector<std::pair<int, int>> runs)
    {
        const size_t k = used;
        for (auto [first, last] : runs) {
            pool[used] = segment_new();
            pool[used]->x_start = first;
            pool[used]->x_end = last;
            ++used;
        }
        rle->lines[y]->nb_segs = static_cast<int32_t>(runs.size());
        rle->lines[y]->segs = &pool[k];
    }
    size_t used = 0;
};

bool all_bytes(const image* img, size_t from, size_t to, unsigned char value)
{
    for (size_t i = from; i <= to; ++i)
        if (img->data[i] != value) return false;
    return true;
}

}  // namespace

TEST(RLERender, RunsBecomeWhitePixels)
{
    hand_rle h(10, 3);
    h.row(0, {{3, 5}});
    h.row(2, {{0, 0}, {9, 9}});
    image* img = RLEimage_to_binaire(h.rle, nullptr);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->type, COLOR_IMG_3BYTES);
    EXPECT_EQ(img->width, 10u);
    EXPECT_TRUE(all_bytes(img, 9, 17, 255));
    EXPECT_TRUE(all_bytes(img, 0, 8, 0));
    EXPECT_TRUE(all_bytes(img, 18, 59, 0));
    EXPECT_TRUE(all_bytes(img, 60, 62, 255));  // one-column run: one pixel
    EXPECT_TRUE(all_bytes(img, 63, 86, 0));
    EXPECT_TRUE(all_bytes(img, 87, 89, 255));

    // A given image is cleared first.
    h.row(0, {{0, 1}});
    h.row(2, {});
    image* again = RLEimage_to_binaire(h.rle, img);
    EXPECT_EQ(again, img);
    EXPECT_TRUE(all_bytes(img, 0, 5, 255));
    EXPECT_TRUE(all_bytes(img, 6, 89, 0));

    RLEimage_clear_binaire(h.rle, img);
    EXPECT_TRUE(all_bytes(img, 0, 89, 0));
    destroy_image(img);

    EXPECT_EQ(RLEimage_to_binaire(nullptr, nullptr), nullptr);
}

TEST(RLERender, EmptyAndOutOfImageRuns)
{
    hand_rle none(4, 0);
    image* img = RLEimage_to_binaire(none.rle, nullptr);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(img->data, nullptr);
    destroy_image(img);

    hand_rle h(4, 2);
    h.row(0, {{2, 3}});
    image* dirty = make_image(COLOR_IMG_3BYTES, 4, 2);
    std::memset(dirty->data, 7, 24);
    hand_rle zero_rows(4, 0);
    RLEimage_to_binaire(zero_rows.rle, dirty);
    EXPECT_TRUE(all_bytes(dirty, 0, 23, 0));  // cleared even with nothing to paint

    // Runs past the image's edge and an image smaller than the run-length one.
    h.row(1, {{-5, 0}, {3, 40}});
    image* small = make_image(COLOR_IMG_3BYTES, 3, 1);
    RLEimage_to_binaire(h.rle, small);
    EXPECT_TRUE(all_bytes(small, 0, 5, 0));
    EXPECT_TRUE(all_bytes(small, 6, 8, 255));
    destroy_image(small);

    // After RLEimage_free the height stays but there are no lines to read.
    RLEimage_free(h.rle);
    ASSERT_EQ(h.rle->height, 2);
    RLEimage_to_binaire(h.rle, dirty);
    EXPECT_TRUE(all_bytes(dirty, 0, 23, 0));
    destroy_image(dirty);
}

TEST(RLERender, RawGreyBufferIsNeverCleared)
{
    hand_rle h(10, 2);
    h.row(0, {{3, 5}});
    h.row(1, {{8, 12}});
    std::vector<unsigned char> raw(20, 0);
    raw[0] = 9;
    RLEimage_to_binary_raw_gray(h.rle, raw.data());
    std::vector<unsigned char> expected(20, 0);
    expected[0] = 9;
    for (int i : {3, 4, 5, 18, 19}) expected[i] = 255;  // the second run is cut at the row's end
    EXPECT_EQ(raw, expected);
}

TEST(RLERenderDeathTest, RawGreyWithoutBufferEndsTheProcess)
{
    hand_rle h(10, 2);
    EXPECT_EXIT(RLEimage_to_binary_raw_gray(h.rle, nullptr), testing::ExitedWithCode(1),
                "FATAL ERROR: RLEimage::RLEimage_to_binaire_raw_gray.\n Memory space for binary raw data MUST be "
                "allocated BEFORE calling this function. \n");
}

TEST(RLERender, SavedPictureShowsRunsAndBlueBoxes)
{
    hand_rle h(6, 4);
    h.row(1, {{1, 2}});
    h.row(2, {{1, 2}});
    blob_ptr first = blob_new();
    init_rectangle(&first->bbox, 0, 0, 4, 4);  // box around the runs
    blob_ptr second = blob_new();
    init_rectangle(&second->bbox, 5, 3, 1, 1);
    first->next = second;

    const std::string path = testing::TempDir() + "nerva_rle_boxes.ppm";
    ASSERT_EQ(RLEimage_save_binaire(h.rle, path.c_str(), first), 0);
    cv::Mat saved = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(saved.type(), CV_8UC3);
    ASSERT_EQ(saved.cols, 6);
    ASSERT_EQ(saved.rows, 4);
    const cv::Vec3b white(255, 255, 255), black(0, 0, 0), blue(255, 0, 0);  // imread order: b, g, r
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            const bool run = (y == 1 || y == 2) && (x == 1 || x == 2);
            const bool outline = (x <= 3 && (y == 0 || y == 3)) || ((x == 0 || x == 3) && y <= 3) || (x == 5 && y == 3);
            EXPECT_EQ(saved.at<cv::Vec3b>(y, x), run ? white : outline ? blue : black) << x << "," << y;
        }
    }

    // Without blobs only the runs are saved.
    ASSERT_EQ(RLEimage_save_binaire(h.rle, path.c_str(), nullptr), 0);
    saved = cv::imread(path, cv::IMREAD_UNCHANGED);
    EXPECT_EQ(saved.at<cv::Vec3b>(0, 0), black);
    EXPECT_EQ(saved.at<cv::Vec3b>(1, 1), white);
}

TEST(RLERender, SaveFailuresAreReported)
{
    hand_rle h(6, 4);
    blob_ptr outside = blob_new();
    init_rectangle(&outside->bbox, 0, 0, 7, 1);  // xmax == width
    const std::string path = testing::TempDir() + "nerva_rle_fail.ppm";
    testing::internal::CaptureStderr();
    EXPECT_EQ(RLEimage_save_binaire(h.rle, path.c_str(), outside), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "RLEimage_save_binaire(): drawing rectangles on image failed.\n");

    const std::string bad = testing::TempDir() + "no/such/dir.ppm";
    testing::internal::CaptureStderr();
    EXPECT_EQ(RLEimage_save_binaire(h.rle, bad.c_str(), nullptr), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error opening " + bad + "\nRLEimage_save_binaire(): saving image file " + bad + " failed\n");
}
