#include "nerva/blob/blob_geometry.h"

#include <cmath>
#include <cstdint>

#include "nerva/geometry/internal/wrap_arith.h"

namespace nerva {

namespace {

int box_area(const rectangle& r) { return wrap_mul(r.width, r.height); }

// Integer difference taken in 64 bits so extreme bounds cannot overflow.
bool within_half(int32_t a, int32_t b) { return std::fabs(static_cast<double>(static_cast<int64_t>(a) - b)) <= 0.5; }

}  // namespace

double compute_overlap_ratio_blob(blob_ptr a, blob_ptr b)
{
    if (box_area(a->bbox) > box_area(b->bbox)) return rectangle_intersect_ratio(&b->bbox, &a->bbox);
    return rectangle_intersect_ratio(&a->bbox, &b->bbox);
}

double compute_overlap_ratio_blob_strict(blob_ptr a, blob_ptr b)
{
    return rectangle_intersect_ratio_strict(&a->bbox, &b->bbox);
}

double is_blob1_overlap_blob2(blob_ptr a, blob_ptr b) { return rectangle_intersect_ratio(&b->bbox, &a->bbox); }

bool isPixBelongsToBlob(blob_ptr b, int x, int y)
{
    const rectangle& r = b->bbox;
    return r.xmin <= x && x <= r.xmax && r.ymin <= y && y <= r.ymax;
}

bool is_blob1_inside_blob2(blob_ptr a, blob_ptr b)
{
    const rectangle& in = a->bbox;
    const rectangle& out = b->bbox;
    return in.ymax <= out.ymax && in.ymin >= out.ymin && in.xmax <= out.xmax && in.xmin >= out.xmin;
}

bool same2DBlob(blob_ptr a, blob_ptr b)
{
    const rectangle& p = a->bbox;
    const rectangle& q = b->bbox;
    return within_half(p.xmin, q.xmin) && within_half(p.xmax, q.xmax) && within_half(p.ymin, q.ymin) &&
           within_half(p.ymax, q.ymax);
}

bool isBlobOcculted(blob_ptr b)
{
    switch (b->occlusion) {
    case MM_CAM_OCCL_BOTTOM:
    case MM_CAM_OCCL_TOP:
    case MM_CAM_OCCL_LEFT:
    case MM_CAM_OCCL_BOTTOM_LEFT:
    case MM_CAM_OCCL_TOP_LEFT:
    case MM_CAM_OCCL_RIGHT:
    case MM_CAM_OCCL_BOTTOM_RIGHT:
    case MM_CAM_OCCL_TOP_RIGHT:
    case MM_OBJECT_BOTTOM:
    case MM_OBJECT_TOP:
    case MM_OBJECT_LEFT:
    case MM_OBJECT_RIGHT:
    case MM_OBJECT_SIT: return true;
    default: return false;
    }
}

bool isBlobTopOcculted(blob_ptr b)
{
    switch (b->occlusion) {
    case MM_CAM_OCCL_TOP:
    case MM_CAM_OCCL_TOP_LEFT:
    case MM_CAM_OCCL_TOP_RIGHT:
    case MM_OBJECT_BOTTOM:  // crossed over: see the header
        return true;
    default: return false;
    }
}

bool isBlobBottomOcculted(blob_ptr b)
{
    switch (b->occlusion) {
    case MM_CAM_OCCL_BOTTOM:
    case MM_CAM_OCCL_BOTTOM_LEFT:
    case MM_CAM_OCCL_BOTTOM_RIGHT:
    case MM_OBJECT_TOP:  // crossed over, as object-sit
    case MM_OBJECT_SIT: return true;
    default: return false;
    }
}

bool isBlobHuman(blob_ptr b)
{
    switch (b->type) {
    case CROWD:
    case PERSON_GROUP:
    case A_GROUP:
    case PERSON:
    case FACE:
    case PERSON_BENDING: return true;
    default: return false;
    }
}

bool isBlobAVehicle(blob_ptr b)
{
    switch (b->type) {
    case VEHICLE:
    case CAR:
    case TRUCK:
    case MOTORCYCLE: return true;
    default: return false;
    }
}

bool isBlobARealObject(blob_ptr b) { return isBlobHuman(b) || isBlobAVehicle(b) || b->type == CONTEXT_OBJECT; }

blob_ptr vertical_split_blob(blob_ptr b, int x)
{
    if (!(b->bbox.xmin < x && x < b->bbox.xmax)) return nullptr;
    blob_ptr right = copy_blob(b);
    b->bbox.xmax = x;
    right->bbox.xmin = x + 1;
    return right;
}

blob_ptr horizontal_split_blob(blob_ptr b, int y)
{
    if (!(b->bbox.ymin < y && y < b->bbox.ymax)) return nullptr;
    blob_ptr lower = copy_blob(b);
    b->bbox.ymax = y;
    lower->bbox.ymin = y + 1;
    return lower;
}

void set_in_height_given_position(int position, int flags[4])
{
    static const int table[9][4] = {
        {1, 0, 0, 1}, {1, 0, 1, 1}, {0, 0, 1, 1},  // top row
        {1, 1, 0, 1}, {1, 1, 1, 1}, {0, 1, 1, 1},  // middle row
        {1, 1, 0, 0}, {1, 1, 1, 0}, {0, 1, 1, 0},  // bottom row
    };
    const int row = position >= 0 && position < 9 ? position : 1;
    for (int i = 0; i < 4; ++i) flags[i] = table[row][i];
}

}  // namespace nerva
