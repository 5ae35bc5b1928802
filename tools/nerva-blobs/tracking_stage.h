#pragma once

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "nerva/tracking/tracker.h"
#include "options.h"
#include "segmenter.h"
#include "summary.h"

// --track and what hangs on it: the library's tracker over each frame's
// blobs, the counting lines and zones, the tracks and events of each JSON
// line, the MOT Challenge and CSV exports, and the drawing of tracks, trails
// and lines with their counts.
namespace nerva_blobs {

class TrackingStage {
public:
    TrackingStage(const Options& options, cv::Size frame_size, double fps);

    // One frame's blobs; `time` in seconds. Returns the time it took, in ms.
    double update(const std::vector<Blob>& blobs, long frame, double time);

    // The confirmed track of each blob of the last frame, 0 for none.
    const std::vector<int>& blob_tracks() const { return blob_tracks_; }
    // "tracks", "events" and, with lines or zones, "counts" of the last frame.
    const std::string& json() const { return json_; }

    // Boxes with identities, short trails, lines and zones with their counts.
    void draw(cv::Mat picture) const;
    void print_summary(std::FILE* to) const;

private:
    void write_exports(const std::vector<Blob>& blobs, long frame, double time);

    nerva::MV_tracker tracker_;
    double fps_;
    std::vector<int> blob_tracks_;
    std::vector<nerva::track_detection> dets_;
    std::string json_;
    std::ofstream mot_, csv_;
    std::string mot_path_, csv_path_;
    Sample time_;
    int identities_ = 0;
};

}  // namespace nerva_blobs
