#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

std::string temp_path(const std::string& name) { return testing::TempDir() + "nerva_files_" + name; }

std::string file_bytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

TEST(SaveImage, ColourIsWrittenRedGreenBlueAndDecodes)
{
    image* img = make_image(COLOR_IMG_3BYTES, 3, 2);
    for (int i = 0; i < 18; ++i) img->data[i] = static_cast<unsigned char>(10 * (i + 1));
    const std::string path = temp_path("colour.ppm");
    ASSERT_EQ(save_image(img, path.c_str()), 0);

    const std::string bytes = file_bytes(path);
    EXPECT_EQ(bytes.rfind("P6\n3 2 255\n", 0), 0u);
    // Stored 10, 20, 30 (blue, green, red) is written 30, 20, 10.
    EXPECT_EQ(static_cast<unsigned char>(bytes[11]), 30);
    EXPECT_EQ(static_cast<unsigned char>(bytes[13]), 10);

    cv::Mat decoded = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(decoded.type(), CV_8UC3);
    ASSERT_EQ(decoded.cols, 3);
    ASSERT_EQ(decoded.rows, 2);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            for (int c = 0; c < 3; ++c)  // imread gives blue, green, red like the record
                EXPECT_EQ(decoded.at<cv::Vec3b>(y, x)[c], img->data[(y * 3 + x) * 3 + c]);
    destroy_image(img);
}

TEST(SaveImage, FourBytePixelsSkipTheSpareByte)
{
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(8));
    const unsigned char pixels[8] = {1, 2, 3, 99, 4, 5, 6, 99};
    std::memcpy(buffer, pixels, 8);
    image* img = image_data_encapsulate(buffer, 1, 2, nullptr, COLOR_IMG_4BYTES);
    const std::string path = temp_path("four.ppm");
    ASSERT_EQ(save_image(img, path.c_str()), 0);
    cv::Mat decoded = cv::imread(path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(decoded.type(), CV_8UC3);
    EXPECT_EQ(decoded.at<cv::Vec3b>(0, 0), cv::Vec3b(1, 2, 3));
    EXPECT_EQ(decoded.at<cv::Vec3b>(0, 1), cv::Vec3b(4, 5, 6));
    destroy_image(img);
}

TEST(SaveImage, GreyAndFloatAreP5AndFloatsWrap)
{
    image* grey = make_image(GREY_IMG, 4, 2);
    for (int i = 0; i < 8; ++i) grey->data[i] = static_cast<unsigned char>(i * 30);
    const std::string grey_path = temp_path("grey.pgm");
    ASSERT_EQ(save_image(grey, grey_path.c_str()), 0);
    cv::Mat g = cv::imread(grey_path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(g.type(), CV_8UC1);
    ASSERT_EQ(g.cols, 4);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(g.at<unsigned char>(i / 4, i % 4), i * 30);
    destroy_image(grey);

    image* f = make_image(FLOAT_IMG, 3, 1);
    const float values[3] = {300.7f, -1.0f, 12.9f};
    std::memcpy(f->data, values, sizeof values);
    const std::string float_path = temp_path("float.pgm");
    ASSERT_EQ(save_image(f, float_path.c_str()), 0);
    cv::Mat fd = cv::imread(float_path, cv::IMREAD_UNCHANGED);
    ASSERT_EQ(fd.type(), CV_8UC1);
    EXPECT_EQ(fd.at<unsigned char>(0, 0), 44);
    EXPECT_EQ(fd.at<unsigned char>(0, 1), 255);
    EXPECT_EQ(fd.at<unsigned char>(0, 2), 12);
    destroy_image(f);
}

TEST(SaveImage, OtherKindsGetTheHeaderOnly)
{
    image* bg = make_image(BG_IMG, 3, 2);
    const std::string path = temp_path("bg.ppm");
    ASSERT_EQ(save_image(bg, path.c_str()), 0);
    EXPECT_EQ(file_bytes(path), "P0\n3 2 255\n");
    destroy_image(bg);

    image* ints = make_image(INT_IMG, 2, 2);
    ASSERT_EQ(save_image(ints, path.c_str()), 0);
    EXPECT_EQ(file_bytes(path), "P5\n2 2 255\n");
    destroy_image(ints);
}

TEST(SaveImage, FailuresReturnMinusOneWithTheirMessage)
{
    EXPECT_EQ(save_image(nullptr, "unused"), -1);

    image* img = make_image(GREY_IMG, 2, 2);
    const std::string missing = testing::TempDir() + "no/such/dir/x.pgm";
    testing::internal::CaptureStderr();
    EXPECT_EQ(save_image(img, missing.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error opening " + missing + "\n");

    // Writes that cannot reach the disk are reported, not silently lost.
    if (FILE* full = std::fopen("/dev/full", "wb")) {
        std::fclose(full);
        testing::internal::CaptureStderr();
        EXPECT_EQ(save_image(img, "/dev/full"), -1);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("Error writing in /dev/full"), std::string::npos);
    }
    destroy_image(img);
}
