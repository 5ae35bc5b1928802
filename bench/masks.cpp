#include "masks.h"

#include <random>

#include <opencv2/imgproc.hpp>
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
        const cv::Mat& mask = fg->apply(frame);
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
