#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>

#include "image_test_support.h"

using namespace image_test;

namespace {

std::string file_bytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(SaveImage, ColourDecodesWithRedGreenBlueOnDisk)
{
    owned keep;
    image* img = keep.make(COLOR_IMG_3BYTES, 3, 2, {10, 20, 30, 40, 50, 60, 70, 80, 90,
                                                    100, 110, 120, 130, 140, 150, 160, 170, 180});
    const std::string path = temp_path("colour.ppm");
    ASSERT_EQ(save_image(img, path.c_str()), 0);
    EXPECT_EQ(file_bytes(path).substr(0, 14), std::string("P6\n3 2 255\n\x1e\x14\x0a", 14));  // 30 20 10

    cv::Mat decoded = cv::imread(path, cv::IMREAD_UNCHANGED);  // blue, green, red like the record
    ASSERT_EQ(decoded.type(), CV_8UC3);
    ASSERT_EQ(decoded.size(), cv::Size(3, 2));
    EXPECT_EQ(bytes_t(decoded.data, decoded.data + 18), bytes(img, 18));

    unsigned char* four = static_cast<unsigned char*>(std::malloc(8));
    const unsigned char pixels[8] = {1, 2, 3, 99, 4, 5, 6, 99};
    std::memcpy(four, pixels, 8);
    ASSERT_EQ(save_image(keep(image_data_encapsulate(four, 1, 2, nullptr, COLOR_IMG_4BYTES)), path.c_str()), 0);
    decoded = cv::imread(path, cv::IMREAD_UNCHANGED);
    EXPECT_EQ(bytes_t(decoded.data, decoded.data + 6),
              (bytes_t{1, 2, 3, 4, 5, 6}));  // spare bytes skipped
}

TEST(SaveImage, GreyAndWrappingFloats)
{
    owned keep;
    image* grey = keep.make(GREY_IMG, 4, 2, {0, 30, 60, 90, 120, 150, 180, 210});
    const std::string path = temp_path("grey.pgm");
    ASSERT_EQ(save_image(grey, path.c_str()), 0);
    cv::Mat g = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(g.type(), CV_8UC1);
    ASSERT_EQ(g.size(), cv::Size(4, 2));
    EXPECT_EQ(bytes_t(g.data, g.data + 8), bytes(grey, 8));

    image* f = keep.make(FLOAT_IMG, 3, 1);
    put_all<float>(f, {300.7f, -1.0f, 12.9f});
    ASSERT_EQ(save_image(f, path.c_str()), 0);
    g = cv::imread(path, cv::IMREAD_UNCHANGED);
    EXPECT_EQ(bytes_t(g.data, g.data + 3), (bytes_t{44, 255, 12}));
}

TEST(SaveImage, HeaderOnlyKindsAndFailures)
{
    owned keep;
    const std::string path = temp_path("header.ppm");
    ASSERT_EQ(save_image(keep.make(BG_IMG, 3, 2), path.c_str()), 0);
    EXPECT_EQ(file_bytes(path), "P0\n3 2 255\n");
    ASSERT_EQ(save_image(keep.make(INT_IMG, 2, 2), path.c_str()), 0);
    EXPECT_EQ(file_bytes(path), "P5\n2 2 255\n");

    image* img = keep.make(GREY_IMG, 2, 2);
    const std::string missing = temp_path("no/such/dir/x.pgm");
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_image(img, missing.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error opening " + missing + "\n");
    // Bytes that never reach the disk are a failure, not silently lost.
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_image(img, "/dev/full"), -1);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Error writing in /dev/full"), std::string::npos);
}
