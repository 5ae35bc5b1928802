#pragma once

#include <optional>
#include <string>
#include <vector>

// One frame's JSON line, as nerva-blobs writes it and Python's json_line
// returns it. Field order is part of the format: new fields go at the end.
namespace nerva_pipeline {

struct BlobRecord {
    int id = 0;
    int xmin = 0, ymin = 0, xmax = 0, ymax = 0;  // inclusive
    int width = 0, height = 0;
    int npix = 0;
    int xc = 0, yc = 0;
};

// What a line says after the blobs. `time` in seconds, absent for a line of
// blobs only; `dropped`: frames lost since the previous line; `outage_s` > 0
// on the first line after a live source came back, with the attempts it
// took; `components` >= 0 when the frame held more blobs than the pool and
// the list was cut: the number of blobs it held.
struct LineExtras {
    std::optional<double> time;
    long dropped = 0;
    double outage_s = 0.0;
    int outage_attempts = 0;
    long components = -1;
};

// The line with its newline.
std::string json_line(long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras);

}  // namespace nerva_pipeline
