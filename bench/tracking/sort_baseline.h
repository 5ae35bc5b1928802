#pragma once

#include <vector>

#include "mot_eval.h"

// The usual SORT tracker, for comparison on the same detections: one
// constant-velocity Kalman filter per track over (centre, area, aspect
// ratio), detections assigned by the Hungarian method on IoU (at least
// iou_threshold), a track reported once it has min_hits consecutive matches
// (or during the first min_hits frames) and dropped after max_age frames
// without one. Only tracks matched in the frame are reported.
struct SortParams {
    double iou_threshold = 0.3;
    int min_hits = 3;
    int max_age = 5;
};

// detections[k]: frame k+1's boxes (id ignored). Returns MOT rows.
std::vector<MotBox> run_sort(const std::vector<std::vector<MotBox>>& detections, const SortParams& params = {});
