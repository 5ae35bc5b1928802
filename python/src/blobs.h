#pragma once

#include <cstdint>
#include <vector>

#include "nerva/blob/RLEblob.h"
#include "nerva/segmentation/blob_shape.h"

// The blobs of one frame, copied out of the segmenter's pool column by column
// so that they outlive the next frame. Filled without the GIL; Python sees
// the columns as read-only numpy arrays that keep this object alive.
namespace nerva_python {

struct Blobs {
    std::vector<int32_t> ident;
    std::vector<int32_t> bbox;  // xmin, ymin, xmax, ymax per blob, inclusive
    std::vector<int32_t> npix;
    std::vector<int32_t> center;   // xc, yc: the truncated means the C++ record holds
    std::vector<double> centroid;  // exact means of the pixel columns and rows
    // Kept regions beyond the blob pool's capacity: their blobs were lost.
    int32_t dropped = 0;

    // Shape measures, filled only when the segmenter was asked for them.
    bool has_measures = false;
    std::vector<double> moments;  // mu20, mu11, mu02 per blob
    std::vector<double> orientation, major_axis, minor_axis, eccentricity, perimeter, extent;
    std::vector<int64_t> boundary_edges;
    std::vector<int32_t> track;  // set by a Tracker: each blob's track, 0 for none; empty before

    size_t size() const { return ident.size(); }
    void reserve(size_t n);
    void clear();
    void append(const nerva::RLEblob& b);
    // NaN measures (and boundary_edges -1) for a blob without a readable region.
    void append_shape(const nerva::blob_shape* shape);
};

}  // namespace nerva_python
