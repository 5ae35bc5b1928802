#pragma once

#include "nerva/blob/RLEblob.h"

// Decisions later stages take on blobs: overlap of their boxes, inclusion,
// occlusion from above or below, object class, and cutting a blob in two.
// Everything works on bbox (inclusive bounds), type and occlusion; blob
// pointers must not be empty.
namespace nerva {

// Intersection area over the smaller stored box area (a's on a tie).
double compute_overlap_ratio_blob(blob_ptr a, blob_ptr b);
// rectangle_intersect_ratio_strict on the two boxes, quirks included.
double compute_overlap_ratio_blob_strict(blob_ptr a, blob_ptr b);
// Intersection area over b's box area: a ratio, not a yes/no answer.
double is_blob1_overlap_blob2(blob_ptr a, blob_ptr b);

// (x, y) lies in b's box, bounds included. The pixels are not consulted.
bool isPixBelongsToBlob(blob_ptr b, int x, int y);
// a's box lies inside b's, bounds included (a box lies inside itself).
bool is_blob1_inside_blob2(blob_ptr a, blob_ptr b);
// The four bounds are equal; the stored sizes are not compared.
bool same2DBlob(blob_ptr a, blob_ptr b);

// The occlusion predicates match the exact value, not single bits: any
// combination other than the listed ones is false. The object flags cross
// over on purpose: object-bottom counts as occlusion from the top, object-top
// and object-sit as occlusion from the bottom; hosts rely on that.
// 0x1-0xA camera-border values (not 0x3), the four object sides, object sit.
bool isBlobOcculted(blob_ptr b);
// Camera top, top-left, top-right, and object bottom.
bool isBlobTopOcculted(blob_ptr b);
// Camera bottom, bottom-left, bottom-right, object top and object sit.
bool isBlobBottomOcculted(blob_ptr b);

// CROWD, PERSON_GROUP, A_GROUP, PERSON, FACE, PERSON_BENDING; not CHILD nor
// the two- and three-person types.
bool isBlobHuman(blob_ptr b);
// VEHICLE, CAR, TRUCK, MOTORCYCLE; not PARKED_VEHICLE nor CARGO-VEHICLE.
bool isBlobAVehicle(blob_ptr b);
// Human, vehicle, or the context object.
bool isBlobARealObject(blob_ptr b);

// Cuts b at column x (xmin < x < xmax, strict): b ends at x and the returned
// copy_blob copy (no probability lists, no buffer) starts at x + 1. Only
// those two bounds change; sizes, counts, sums and the copy's links stay as
// they were: the copy names b's neighbours, which do not name it, so it is
// in no list until the caller links it. Empty result and b untouched when x
// is not strictly inside.
blob_ptr vertical_split_blob(blob_ptr b, int x);
// The same along rows: b ends at row y, the returned lower part starts at y + 1.
blob_ptr horizontal_split_blob(blob_ptr b, int y);

// Which sides of an object are visible from a cell of a 3x3 grid numbered 0-8
// row by row from the top left. flags[0] is 0 in the right column, flags[1]
// in the top row, flags[2] in the left column, flags[3] in the bottom row,
// and 1 elsewhere. Positions outside 0-8 get the flags of position 1.
void set_in_height_given_position(int position, int flags[4]);

}  // namespace nerva
