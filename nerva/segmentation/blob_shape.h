#pragma once

#include <cstdint>
#include <memory>

#include "nerva/blob/RLEblob.h"
#include "nerva/segmentation/segmentationRLE.h"

// Shape measures of one blob of the segmenter's last frame, read from the
// runs of the region it came from in one pass. x is the column, y the row
// (downwards), as everywhere in the library.
//
// The perimeter is the length estimate scikit-image's regionprops gives
// (`perimeter`, 4-neighbourhood), so that the two compare number for number:
// the border pixels are the blob's pixels with a 4-neighbour outside the
// blob (around holes too, pixels of other blobs counting as outside); each
// gets the code 1 + 2 * (its 4-neighbours that are border pixels) + 10 *
// (its diagonal neighbours that are border pixels), and weighs 1 for codes
// 5, 7, 15, 17, 25 and 27, sqrt(2) for 21 and 33, (1 + sqrt(2)) / 2 for 13
// and 23, nothing otherwise. A lone pixel weighs 0, a w x h box (both
// sides at least 2) 2 (w + h) - 4. boundary_edges counts what the estimate
// approximates exactly: the pixel edges between the blob and everything
// else (4 for a lone pixel, 2 (w + h) for a box), additive over pieces.
namespace nerva {

struct blob_shape {
    int32_t npix;            // pixels of the runs read (the blob's own npix for an exact frame)
    double mu20;             // central second moments per pixel: mean of (x - xc)^2,
    double mu11;             // of (x - xc)(y - yc)
    double mu02;             // and of (y - yc)^2, with xc, yc the exact means
    double orientation;      // angle of the major axis from the x axis, radians in [-pi/2, pi/2],
                             // positive towards +y; 0 when the moments have no direction
    double major_axis;       // full lengths of the axes of the ellipse with the same second
    double minor_axis;       // moments: 4 * sqrt(eigenvalue)
    double eccentricity;     // sqrt(1 - minor eigenvalue / major eigenvalue), 0 for a point
    double perimeter;        // boundary length estimated from the border pixels (below)
    int64_t boundary_edges;  // pixel edges between the blob and the rest, around holes too
    double extent;           // npix / (box width * box height)
};

// Measures the blob that `s`'s last RLEsegm_segmentKAP returned (its region
// is fathers[0]). 0 on success; -1, with *shape untouched, for a null
// argument, a blob whose region is not a surviving region of that frame, or
// a region without any run. Valid until the next frame, as the blob is.
int RLEsegm_blob_shape(std::shared_ptr<RLEblob> blob, segm_ptr s, blob_shape* shape);

}  // namespace nerva
