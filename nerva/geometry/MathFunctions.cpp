#include "nerva/geometry/MathFunctions.h"

#include <cmath>

namespace nerva {
namespace math {

double ceilOrFloor(double v)
{
    if (v > 1.0) return 1.0;
    if (v < 0.0) return 0.0;
    return v;
}

bool areEqual(double a, double b) { return std::fabs(a - b) <= 1e-10; }

double gaussian(const double& centre, const double& spread, const double& value)
{
    const double d = value - centre;
    return std::exp(-(d * d) / (2.0 * spread * spread));
}

// Halves go toward zero on both sides; NaN takes the non-positive branch.
// Values outside int's range saturate instead of being undefined.
int roundInt(double x)
{
    double r;
    if (x > 0) {
        const double f = std::floor(x);
        r = (x - f > 0.5) ? std::ceil(x) : f;
    } else {
        const double c = std::ceil(x);
        r = (c - x > 0.5) ? std::floor(x) : c;
    }
    if (!(r == r)) return 0;
    if (r >= 2147483647.0) return 2147483647;
    if (r <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int>(r);
}

double max(double a, double b) { return a > b ? a : b; }
double min(double a, double b) { return a < b ? a : b; }
int max(int a, int b) { return a > b ? a : b; }
int min(int a, int b) { return a < b ? a : b; }

}  // namespace math
}  // namespace nerva
