#include "real_masks.h"

#include <algorithm>
#include <cstdint>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

std::vector<cv::Mat> grey_pictures(const std::vector<std::string>& paths)
{
    std::vector<cv::Mat> out;
    for (const std::string& p : paths) {
        cv::Mat grey = cv::imread(p, cv::IMREAD_GRAYSCALE);
        if (!grey.empty()) out.push_back(grey);
    }
    return out;
}

}  // namespace

std::vector<cv::Mat> document_masks(const std::vector<std::string>& paths)
{
    std::vector<cv::Mat> out;
    for (const cv::Mat& grey : grey_pictures(paths)) {
        cv::Mat m;
        cv::adaptiveThreshold(grey, m, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY_INV, 25, 15);
        out.push_back(m);
    }
    return out;
}

std::vector<cv::Mat> vessel_masks(const std::vector<std::string>& paths)
{
    std::vector<cv::Mat> out;
    for (const std::string& p : paths) {
        cv::Mat colour = cv::imread(p, cv::IMREAD_COLOR);
        if (colour.empty()) continue;
        cv::Mat green, hat, m;
        cv::extractChannel(colour, green, 1);  // vessels contrast best in green
        const int side = std::max(7, std::min(green.rows, green.cols) / 90 | 1);
        cv::morphologyEx(green, hat, cv::MORPH_BLACKHAT,
                         cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(side, side)));
        cv::threshold(hat, m, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
        out.push_back(m);
    }
    return out;
}

std::vector<cv::Mat> otsu_masks(const std::vector<std::string>& paths)
{
    std::vector<cv::Mat> out;
    for (const cv::Mat& grey : grey_pictures(paths)) {
        cv::Mat m;
        cv::threshold(grey, m, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
        out.push_back(m);
    }
    return out;
}

std::vector<cv::Mat> silhouette_masks(const std::vector<Silhouette>& pictures)
{
    std::vector<cv::Mat> out;
    for (const Silhouette& s : pictures) {
        cv::Mat picture = cv::imread(s.path, s.channel < 0 ? cv::IMREAD_GRAYSCALE : cv::IMREAD_UNCHANGED);
        if (picture.empty() || s.channel >= picture.channels()) continue;
        cv::Mat plane, m;
        if (s.channel < 0) plane = picture;
        else cv::extractChannel(picture, plane, s.channel);
        cv::threshold(plane, m, s.level - 1, 255, s.dark_foreground ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY);
        out.push_back(m);
    }
    return out;
}

long count_runs(const cv::Mat& mask)
{
    long runs = 0;
    for (int y = 0; y < mask.rows; ++y) {
        const uint8_t* row = mask.ptr<uint8_t>(y);
        bool inside = false;
        for (int x = 0; x < mask.cols; ++x) {
            const bool on = row[x] != 0;
            runs += on && !inside;
            inside = on;
        }
    }
    return runs;
}
