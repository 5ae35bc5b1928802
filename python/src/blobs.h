#pragma once

#include <cstdint>
#include <vector>

#include "nerva/blob/RLEblob.h"

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
    std::vector<int32_t> track;    // set by a Tracker: each blob's track, 0 for none; empty before

    size_t size() const { return ident.size(); }
    void reserve(size_t n);
    void clear();
    void append(const nerva::RLEblob& b);
};

}  // namespace nerva_python
