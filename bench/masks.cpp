#include "masks.h"

#include <algorithm>
#include <cstdint>
#include <random>

#include <opencv2/imgcodecs.hpp>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>
#include <opencv2/videoio.hpp>

#include "foreground.h"

std::vector<cv::Mat> vtest_masks(const std::string& path, int stride)
{
    std::vector<cv::Mat> out;
    cv::VideoCapture video(path, cv::CAP_FFMPEG);
    if (!video.isOpened()) return out;
    cv::Mat frame;
    std::unique_ptr<nerva_blobs::Foreground> fg;
    for (int i = 0; video.read(frame); ++i) {
        if (!fg) fg = nerva_blobs::make_foreground(nerva_blobs::Options{}, frame.size(), cv::Rect({}, frame.size()));
        const cv::Mat& mask = fg->apply(frame, cv::Mat());
        if (i % stride == 0) out.push_back(mask.clone());
    }
    return out;
}

std::vector<cv::Mat> scaled(const std::vector<cv::Mat>& masks, cv::Size size)
{
    std::vector<cv::Mat> out;
    for (const cv::Mat& m : masks) {
        cv::Mat s;
        cv::resize(m, s, size, 0, 0, cv::INTER_NEAREST);
        out.push_back(s);
    }
    return out;
}

std::vector<cv::Mat> blobby_masks(cv::Size size, double fraction, int count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<cv::Mat> out;
    const double target = fraction * size.area();
    const int scale = std::max(4, std::min(size.width, size.height) / 24);
    for (int k = 0; k < count; ++k) {
        cv::Mat m(size, CV_8UC1, cv::Scalar(0));
        while (cv::countNonZero(m) < target) {
            for (int i = 0; i < 16; ++i) {
                const cv::Point c(static_cast<int>(rng() % size.width), static_cast<int>(rng() % size.height));
                const cv::Size axes(1 + static_cast<int>(rng() % scale), 1 + static_cast<int>(rng() % scale));
                cv::ellipse(m, c, axes, static_cast<double>(rng() % 180), 0, 360, cv::Scalar(255), cv::FILLED);
            }
        }
        out.push_back(m);
    }
    return out;
}

std::vector<cv::Mat> salt_masks(cv::Size size, double density, int count, unsigned seed)
{
    std::vector<cv::Mat> out;
    for (int k = 0; k < count; ++k) {
        cv::theRNG().state = seed + static_cast<unsigned>(k);
        cv::Mat noise(size, CV_32F);
        cv::randu(noise, 0.0, 1.0);
        out.push_back(noise < density);
    }
    return out;
}

namespace {

// Foreground of a background subtractor over a video, shadows (127) dropped.
std::vector<cv::Mat> subtracted_masks(const std::string& path, cv::BackgroundSubtractor& subtractor, int stride,
                                      int max_frames)
{
    std::vector<cv::Mat> out;
    cv::VideoCapture video(path, cv::CAP_FFMPEG);
    if (!video.isOpened()) return out;
    cv::Mat frame, fg;
    for (int i = 0; video.read(frame) && (max_frames <= 0 || i < max_frames); ++i) {
        subtractor.apply(frame, fg);
        if (i % stride == 0) out.push_back(fg == 255);
    }
    return out;
}

}  // namespace

std::vector<cv::Mat> mog2_masks(const std::string& path, int stride, int max_frames)
{
    return subtracted_masks(path, *cv::createBackgroundSubtractorMOG2(), stride, max_frames);
}

std::vector<cv::Mat> knn_masks(const std::string& path, int stride, int max_frames)
{
    return subtracted_masks(path, *cv::createBackgroundSubtractorKNN(), stride, max_frames);
}

std::vector<cv::Mat> texture_masks(const std::vector<std::string>& paths, cv::Size size)
{
    std::vector<cv::Mat> out;
    for (const std::string& p : paths) {
        cv::Mat grey = cv::imread(p, cv::IMREAD_GRAYSCALE);
        if (grey.empty()) continue;
        cv::resize(grey, grey, size, 0, 0, cv::INTER_LINEAR);
        cv::Mat m;
        cv::adaptiveThreshold(grey, m, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 15, 2);
        out.push_back(m);
    }
    return out;
}

cv::Mat comb_mask(cv::Size size, int stripe_rows)
{
    cv::Mat m(size, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < size.height; ++y) {
        uint8_t* row = m.ptr<uint8_t>(y);
        if ((y + 1) % (stripe_rows + 1) == 0) std::fill_n(row, size.width, uint8_t{255});
        else
            for (int x = 0; x < size.width; x += 2) row[x] = 255;
    }
    return m;
}
