#pragma once

#include <string>

#include "nerva/tracking/tracker.h"

// The tracking part of a JSON line, as nerva-blobs writes it and Python's
// json_line returns it: "tracks", "events" and, with lines or zones,
// "counts" of the tracker's last frame.
namespace nerva_pipeline {

// To `digits` decimals, dividing last so that the JSON and the exports
// show the short number.
double rounded(double v, int digits);

// A JSON object; `fps` > 0 adds each zone exit's dwell in seconds.
std::string tracking_json(const nerva::MV_tracker& tracker, double fps);

}  // namespace nerva_pipeline
