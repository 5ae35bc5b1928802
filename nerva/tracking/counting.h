#pragma once

#include <cstdint>

// Counting lines and zones: the geometry that decides when a moving point
// crosses a line or lies in a polygon, usable on any trajectory (the
// tracker's, or ground truth's when checking the counts).
namespace nerva {

constexpr int TRACKER_MAX_LINES = 16;
constexpr int TRACKER_MAX_ZONES = 16;
constexpr int TRACKER_NAME_LENGTH = 32;  // with the terminating zero
constexpr int ZONE_MAX_POINTS = 16;

// Directions of a crossing, seen on the screen (y downwards) looking from
// the line's first point to its second: "in" goes from the left-hand side
// to the right-hand side, "out" the other way.
constexpr int LINE_IN = 1;
constexpr int LINE_OUT = -1;

struct count_line {
    char name[TRACKER_NAME_LENGTH];
    double x1, y1, x2, y2;
    double hysteresis;  // half-width of the band around the line where a side is not decided
    int64_t count_in, count_out;
};

struct count_zone {
    char name[TRACKER_NAME_LENGTH];
    int32_t npoints;
    double x[ZONE_MAX_POINTS], y[ZONE_MAX_POINTS];
    int32_t inside;  // tracks in the zone now
    int64_t entries, exits;
};

// Side of the point: +1 right-hand, -1 left-hand, 0 within the hysteresis
// band of the infinite line.
int line_side(const count_line& line, double x, double y);

// One step of a trajectory. `side` is the last decided side (0 before any)
// and is updated. A crossing is a change of decided side at a point whose
// projection falls on the segment between the line's two points; it returns
// LINE_IN or LINE_OUT, else 0. Jitter inside the band changes nothing, so a
// point that wobbles on the line counts once.
int line_step(const count_line& line, int8_t& side, double x, double y);

// Even-odd rule on the polygon's outline.
bool zone_contains(const count_zone& zone, double x, double y);

}  // namespace nerva
