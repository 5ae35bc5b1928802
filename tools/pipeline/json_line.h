#pragma once

#include <optional>
#include <string>
#include <vector>

// One frame's JSON line, as nerva-blobs writes it and Python's json_line
// returns it. Field order is part of the format: new fields go at the end.
namespace nerva_pipeline {

// A blob's shape (with --measures / measures=True): central second moments
// per pixel, the major axis's angle from the x axis (positive towards +y),
// the axes of the ellipse of the same moments, eccentricity, the perimeter
// as scikit-image's regionprops estimates it, npix over the box's area and
// the boundary's pixel edges (nerva/segmentation/blob_shape.h).
struct ShapeRecord {
    double mu20 = 0, mu11 = 0, mu02 = 0;
    double orientation = 0, major_axis = 0, minor_axis = 0, eccentricity = 0;
    double perimeter = 0;
    double extent = 0;
    long long boundary_edges = 0;
};

struct BlobRecord {
    int id = 0;
    int xmin = 0, ymin = 0, xmax = 0, ymax = 0;  // inclusive
    int width = 0, height = 0;
    int npix = 0;
    int xc = 0, yc = 0;
    std::optional<ShapeRecord> shape;
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
    std::string wall;  // when a live frame arrived, UTC, ISO 8601; empty for files
    // With tracking: each blob's track (0: none), written as the blob's
    // "track", and a JSON object whose members end the line.
    const std::vector<int>* blob_tracks = nullptr;
    std::string tracking;
};

// The line with its newline, written over `out`: a stream that keeps `out`
// from frame to frame writes its lines without allocating once `out` has
// grown to the longest.
void json_line(std::string& out, long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras);
std::string json_line(long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras);

}  // namespace nerva_pipeline
