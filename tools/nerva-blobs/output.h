#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core.hpp>

#include "json_line.h"
#include "segmenter.h"

// JSON Lines: one object per frame, written as soon as the frame is done, so
// that whatever has been written stays valid if the run stops.
namespace nerva_blobs {

using LineExtras = nerva_pipeline::LineExtras;

class JsonLinesWriter {
public:
    // Empty path: standard output. RuntimeError when the file cannot be created.
    explicit JsonLinesWriter(const std::string& path);
    ~JsonLinesWriter();
    JsonLinesWriter(const JsonLinesWriter&) = delete;
    JsonLinesWriter& operator=(const JsonLinesWriter&) = delete;

    // RuntimeError when the line cannot be written (disk full, closed pipe);
    // a file is then cut back to its last complete line. Returns the line
    // without its newline, valid until the next call.
    const std::string& write(long frame, const std::vector<Blob>& blobs, const LineExtras& extras);

private:
    std::string name_;
    std::string line_;  // kept: lines cost no allocation once it has grown
    int fd_ = -1;
    bool owned_ = false;
};

// Encodes `picture` in the format `path` names (.png, .jpg) and writes it in
// full; RuntimeError naming the path otherwise, and no cut file is left.
// (OpenCV's imwrite does not check that the file was closed cleanly.)
void write_image_file(const std::string& path, const cv::Mat& picture);

}  // namespace nerva_blobs
