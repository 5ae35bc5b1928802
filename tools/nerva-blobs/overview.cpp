#include "overview.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

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

// A round step for about `ticks` ticks over 0..range: 1, 2 or 5 times a power of ten.
long tick_step(long range, int ticks)
{
    long step = 1;
    while (true) {
        for (long m : {1L, 2L, 5L})
            if (range / (step * m) <= ticks) return step * m;
        step *= 10;
    }
}

// Blobs per frame as a filled curve over a frame axis, with the count's axis
// on the left and the frames of the tiles marked; each column shows the
// largest count of the frames it covers, so that short bursts remain visible.
cv::Mat plot(const std::vector<int>& counts, long frames, long frames_per_count, const std::vector<long>& shown,
             int width, int height)
{
    cv::Mat img(height, width, CV_8UC3, cv::Scalar(32, 32, 32));
    if (counts.empty()) return img;
    const int left = 44, right = width - 12, top = 28, bottom = height - 30;
    const int peak = std::max(1, *std::max_element(counts.begin(), counts.end()));
    const cv::Scalar axis(200, 200, 200), curve(80, 200, 80), mark(255, 0, 255);
    const int span = right - left;
    for (int x = 0; x < span; ++x) {
        const size_t first = counts.size() * x / span;
        const size_t last = std::max(first + 1, counts.size() * (x + 1) / span);
        const int value = *std::max_element(counts.begin() + first, counts.begin() + last);
        const int y = bottom - (bottom - top) * value / peak;
        cv::line(img, cv::Point(left + x, bottom), cv::Point(left + x, y), curve);
    }
    const auto x_of = [&](long frame) {
        return left + static_cast<int>(static_cast<double>(span) * frame / std::max(frames, 1L));
    };
    for (long frame : shown) {  // the tiles' frames
        const int x = x_of(frame / frames_per_count * frames_per_count);
        cv::line(img, cv::Point(x, top), cv::Point(x, bottom), mark, 1);
        cv::drawMarker(img, cv::Point(x, top - 4), mark, cv::MARKER_TRIANGLE_DOWN, 8, 2);
    }
    cv::line(img, cv::Point(left, top), cv::Point(left, bottom), axis, 1);
    cv::line(img, cv::Point(left, bottom), cv::Point(right, bottom), axis, 1);
    const long count_step = tick_step(peak, 4);
    for (long v = 0; v <= peak; v += count_step) {
        const int y = bottom - static_cast<int>((bottom - top) * v / peak);
        cv::line(img, cv::Point(left - 4, y), cv::Point(left, y), axis, 1);
        cv::putText(img, std::to_string(v), cv::Point(6, y + 5), cv::FONT_HERSHEY_SIMPLEX, 0.4, axis, 1, cv::LINE_AA);
    }
    const long frame_step = tick_step(frames, 10);
    for (long f = 0; f <= frames; f += frame_step) {
        const int x = x_of(f);
        cv::line(img, cv::Point(x, bottom), cv::Point(x, bottom + 4), axis, 1);
        cv::putText(img, std::to_string(f), cv::Point(x - 8, bottom + 17), cv::FONT_HERSHEY_SIMPLEX, 0.4, axis, 1,
                    cv::LINE_AA);
    }
    caption(img,
            "blobs per frame (max " + std::to_string(peak) + ") over " + std::to_string(frames) +
                " frames; marks: the frames shown above",
            cv::Point(left, 17), 0.5);
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

void Overview::add(long frame, const cv::Mat& annotated, const cv::Mat& mask)
{
    Tile tile{frame, cv::Mat(), cv::Mat()};
    cv::resize(annotated, tile.picture, thumb_, 0, 0, cv::INTER_AREA);
    cv::resize(mask, tile.mask, cv::Size(thumb_.width * 2 / 5, thumb_.height * 2 / 5), 0, 0, cv::INTER_AREA);
    kept_.push_back(std::move(tile));
    if (kept_.size() < 2 * static_cast<size_t>(tiles)) return;
    // Keep the frames at even positions: they are the multiples of the new stride.
    std::vector<Tile> halved;
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
    std::vector<const Tile*> chosen;
    const size_t n = kept_.size();
    if (n <= static_cast<size_t>(tiles)) {
        for (const auto& k : kept_) chosen.push_back(&k);
    } else {
        for (int i = 0; i < tiles; ++i) chosen.push_back(&kept_[i * (n - 1) / (tiles - 1)]);
    }
    const int rows = static_cast<int>((chosen.size() + columns - 1) / columns);
    const int plot_height = 190, caption_height = 50;
    const int gap = 4;
    cv::Mat sheet(rows * (thumb_.height + gap) + plot_height + caption_height, columns * (thumb_.width + gap) - gap,
                  CV_8UC3, cv::Scalar(32, 32, 32));
    std::vector<long> shown;
    for (size_t i = 0; i < chosen.size(); ++i) {
        const int col = static_cast<int>(i) % columns, row = static_cast<int>(i) / columns;
        const cv::Rect place(col * (thumb_.width + gap), row * (thumb_.height + gap), thumb_.width, thumb_.height);
        chosen[i]->picture.copyTo(sheet(place));
        shown.push_back(chosen[i]->frame);
        if (i != chosen.size() / 2) continue;
        // The mask behind the boxes, white on black with a light frame, in
        // the tile's lower right corner.
        const cv::Mat& mask = chosen[i]->mask;
        const cv::Rect inset(place.x + place.width - mask.cols - 4, place.y + place.height - mask.rows - 4, mask.cols,
                             mask.rows);
        cv::cvtColor(mask, sheet(inset), cv::COLOR_GRAY2BGR);
        cv::rectangle(sheet, inset, cv::Scalar(255, 255, 255), 1);
        caption(sheet, "foreground mask", cv::Point(inset.x + 4, inset.y + 14), 0.4);
    }
    const int plot_top = rows * (thumb_.height + gap);
    plot(counts_, frames_, frames_per_count_, shown, sheet.cols, plot_height)
        .copyTo(sheet(cv::Rect(0, plot_top, sheet.cols, plot_height)));
    const int text_y = plot_top + plot_height + 18;
    caption(sheet,
            "Boxes with nobody inside are ghosts: the running-average background still holds someone who stood there "
            "or was in the first frame.",
            cv::Point(8, text_y), 0.45);
    caption(sheet,
            "A higher --learning-rate forgets them sooner (slow walkers then leave trails); --background mog2 shows "
            "fewer; --preset raw keeps every speck.",
            cv::Point(8, text_y + 20), 0.45);
    write_image_file(path_, sheet);
}

}  // namespace nerva_blobs
