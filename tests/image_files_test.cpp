#include <gtest/gtest.h>

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

// The saved file decoded by OpenCV, which must find the given shape and element type.
bytes_t decoded(const std::string& path, int type, int w, int h)
{
    const cv::Mat m = cv::imread(path, cv::IMREAD_UNCHANGED);
    EXPECT_EQ(m.type(), type) << path;
    EXPECT_EQ(m.size(), cv::Size(w, h)) << path;
    return m.type() == type ? bytes_t(m.data, m.data + m.total() * m.elemSize()) : bytes_t{};
}

}  // namespace

TEST(SaveImage, ColourGreyAndFloatRoundTrip)
{
    owned keep;
    image* img = keep.make(COLOR_IMG_3BYTES, 3, 2,
                           {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 130, 140, 150, 160, 170, 180});
    const std::string ppm = temp_path("colour.ppm"), pgm = temp_path("grey.pgm");
    ASSERT_EQ(save_image(img, ppm.c_str()), 0);
    EXPECT_EQ(file_bytes(ppm).substr(0, 14), std::string("P6\n3 2 255\n\x1e\x14\x0a", 14));  // red first on disk
    EXPECT_EQ(decoded(ppm, CV_8UC3, 3, 2), bytes(img, 18));  // blue, green, red like the record

    image* grey = keep.make(GREY_IMG, 4, 2, {0, 30, 60, 90, 120, 150, 180, 210});
    ASSERT_EQ(save_image(grey, pgm.c_str()), 0);
    EXPECT_EQ(decoded(pgm, CV_8UC1, 4, 2), bytes(grey, 8));
    image* f = keep.make(FLOAT_IMG, 3, 1);
    put_all<float>(f, {300.7f, -1.0f, 12.9f});  // wraps like a byte
    ASSERT_EQ(save_image(f, pgm.c_str()), 0);
    EXPECT_EQ(decoded(pgm, CV_8UC1, 3, 1), (bytes_t{44, 255, 12}));
}

TEST(SaveImage, FailuresToOpenOrWriteAreReported)
{
    owned keep;
    image* img = keep.make(GREY_IMG, 2, 2);
    const std::string missing = temp_path("no/such/dir/x.pgm");
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_image(img, missing.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error opening " + missing + "\n");
    // Bytes that never reach the disk are a failure, not silently lost.
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_image(img, "/dev/full"), -1);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Error writing in /dev/full"), std::string::npos);
    testing::internal::CaptureStderr();  // the float writer's message is spelt its own way, no newline
    EXPECT_EQ(save_image(keep.make(FLOAT_IMG, 100, 100), "/dev/full"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error wrinting in /dev/full");
}

TEST(SaveGradient, WritesTheFourFilesUnderTheirNames)
{
    owned keep;
    image* gx = keep.make(FLOAT_IMG, 3, 3);
    image* gy = keep.make(FLOAT_IMG, 3, 3);
    put<float>(gx, 4, 3.0f);  // the one inner pixel
    put<float>(gy, 4, -4.0f);
    const std::string base = temp_path("grad");
    const auto centre = [&](const char* name) { return file_bytes(base + name).at(11 + 4); };
    ASSERT_EQ(save_gradient(gx, gy, base.c_str()), 0);
    EXPECT_EQ(file_bytes(base + "_gradx..ppm"), std::string("P5\n3 3 255\n\0\0\0\0\x06\0\0\0\0", 20));
    EXPECT_EQ(centre("_grado.ppm"), 89);  // (atan2(-4, 3) + pi) / 2pi * 255
}
