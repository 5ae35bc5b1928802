#include "overview.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "errors.h"
#include "output.h"

namespace nerva_blobs {
namespace {

void caption(cv::Mat& img, const std::string& text, cv::Point at, double scale)
{
    cv::putText(img, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 3, cv::LINE_AA);
    cv::putText(img, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
}

// Blobs per frame as a filled curve; each column shows the largest count of
// the frames it covers, so that short bursts remain visible.
cv::Mat plot(const std::vector<int>& counts, long frames, int width, int height)
{
    cv::Mat img(height, width, CV_8UC3, cv::Scalar(32, 32, 32));
    if (counts.empty()) return img;
    const int top = 24, bottom = height - 6;
    const int peak = std::max(1, *std::max_element(counts.begin(), counts.end()));
    for (int x = 0; x < width; ++x) {
        const size_t first = counts.size() * x / width;
        const size_t last = std::max(first + 1, counts.size() * (x + 1) / width);
        const int value = *std::max_element(counts.begin() + first, counts.begin() + last);
        const int y = bottom - (bottom - top) * value / peak;
        cv::line(img, cv::Point(x, bottom), cv::Point(x, y), cv::Scalar(80, 200, 80));
    }
    caption(img, "blobs per frame, " + std::to_string(frames) + " frames (max " + std::to_string(peak) + ")",
            cv::Point(6, 17), 0.5);
    return img;
}

}  // namespace

Overview::Overview(const std::string& path, cv::Size frame_size) : path_(path)
{
    std::ofstream probe(path, std::ios::binary);
    if (!probe) throw RuntimeError("cannot write '" + path + "': " + std::strerror(errno));
    const int width = std::min(frame_size.width, 384);
    thumb_ = cv::Size(width, std::max(1, frame_size.height * width / frame_size.width));
}

void Overview::add(long frame, const cv::Mat& annotated)
{
    cv::Mat small;
    cv::resize(annotated, small, thumb_, 0, 0, cv::INTER_AREA);
    kept_.emplace_back(frame, std::move(small));
    if (kept_.size() < 2 * static_cast<size_t>(tiles)) return;
    // Keep the frames at even positions: they are the multiples of the new stride.
    std::vector<std::pair<long, cv::Mat>> halved;
    for (size_t i = 0; i < kept_.size(); i += 2) halved.push_back(std::move(kept_[i]));
    kept_ = std::move(halved);
    stride_ *= 2;
}

void Overview::count(int blobs)
{
    if (frames_++ % frames_per_count_ == 0) counts_.push_back(blobs);
    else counts_.back() = std::max(counts_.back(), blobs);
    if (counts_.size() < max_counts) return;
    // Pairs merge into their larger count: the plot shows maxima anyway.
    for (size_t i = 0; i < counts_.size() / 2; ++i) counts_[i] = std::max(counts_[2 * i], counts_[2 * i + 1]);
    counts_.resize(counts_.size() / 2);
    frames_per_count_ *= 2;
}

void Overview::write() const
{
    std::vector<const std::pair<long, cv::Mat>*> chosen;
    const size_t n = kept_.size();
    if (n <= static_cast<size_t>(tiles)) {
        for (const auto& k : kept_) chosen.push_back(&k);
    } else {
        for (int i = 0; i < tiles; ++i) chosen.push_back(&kept_[i * (n - 1) / (tiles - 1)]);
    }
    const int rows = static_cast<int>((chosen.size() + columns - 1) / columns);
    const int plot_height = 140;
    const int gap = 4;
    cv::Mat sheet(rows * (thumb_.height + gap) + plot_height, columns * (thumb_.width + gap) - gap, CV_8UC3,
                  cv::Scalar(32, 32, 32));
    for (size_t i = 0; i < chosen.size(); ++i) {
        const int col = static_cast<int>(i) % columns, row = static_cast<int>(i) / columns;
        chosen[i]->second.copyTo(
            sheet(cv::Rect(col * (thumb_.width + gap), row * (thumb_.height + gap), thumb_.width, thumb_.height)));
    }
    plot(counts_, frames_, sheet.cols, plot_height)
        .copyTo(sheet(cv::Rect(0, sheet.rows - plot_height, sheet.cols, plot_height)));
    write_image_file(path_, sheet);
}

}  // namespace nerva_blobs
