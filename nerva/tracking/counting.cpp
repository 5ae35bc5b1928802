#include "nerva/tracking/counting.h"

#include <cmath>

namespace nerva {

int line_side(const count_line& line, double x, double y)
{
    const double dx = line.x2 - line.x1, dy = line.y2 - line.y1;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (length <= 0) return 0;
    // With y downwards a positive cross product lies to the right of the
    // direction of travel.
    const double distance = (dx * (y - line.y1) - dy * (x - line.x1)) / length;
    if (distance > line.hysteresis) return 1;
    if (distance < -line.hysteresis) return -1;
    return 0;
}

int line_step(const count_line& line, int8_t& side, double x, double y)
{
    const int now = line_side(line, x, y);
    if (now == 0) return 0;
    const int before = side;
    side = static_cast<int8_t>(now);
    if (before == 0 || before == now) return 0;
    const double dx = line.x2 - line.x1, dy = line.y2 - line.y1;
    const double t = ((x - line.x1) * dx + (y - line.y1) * dy) / (dx * dx + dy * dy);
    if (t < 0 || t > 1) return 0;
    return now > 0 ? LINE_IN : LINE_OUT;
}

bool zone_contains(const count_zone& zone, double x, double y)
{
    bool inside = false;
    for (int i = 0, j = zone.npoints - 1; i < zone.npoints; j = i++) {
        const double xi = zone.x[i], yi = zone.y[i], xj = zone.x[j], yj = zone.y[j];
        if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi) inside = !inside;
    }
    return inside;
}

}  // namespace nerva
