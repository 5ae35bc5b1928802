#pragma once

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

// One picture of a whole run: a contact sheet of annotated frames spread over
// the run, one of them with its foreground mask as an inset, above a plot of
// the number of blobs per frame (the frames shown marked on it) and a
// caption on reading the boxes. The length of the
// input need not be known: thumbnails are kept at a stride that doubles
// whenever too many are held, so memory stays bounded.
namespace nerva_blobs {

class Overview {
public:
    // Creates the file at once so that an unwritable path fails before the run.
    Overview(const std::string& path, cv::Size frame_size);

    // Frames are offered in order, from 0; only wanted ones need be drawn.
    bool wants(long frame) const { return frame % stride_ == 0; }
    // `mask`: the frame's foreground, shown small in a corner of the middle tile.
    void add(long frame, const cv::Mat& annotated, const cv::Mat& mask);
    void count(int blobs);
    void write() const;

private:
    static constexpr int columns = 4;
    static constexpr int tiles = 12;

    std::string path_;
    cv::Size thumb_;
    long stride_ = 1;
    struct Tile {
        long frame;
        cv::Mat picture, mask;
    };
    std::vector<Tile> kept_;
    // Blobs per frame, each entry the largest count of `frames_per_count_`
    // frames: on a run of months the plot keeps a bounded number of entries.
    static constexpr size_t max_counts = 1 << 16;
    std::vector<int> counts_;
    long frames_per_count_ = 1;
    long frames_ = 0;
};

}  // namespace nerva_blobs
