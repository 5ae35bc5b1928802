#pragma once

// Small numeric helpers shared by the library and its hosts.
namespace nerva {
namespace math {

// Clamps to [0, 1] (the name is the interface's, not a description).
double ceilOrFloor(double v);

// |a - b| <= 1e-10.
bool areEqual(double a, double b);

// Unnormalised Gaussian weight exp(-(value - centre)^2 / (2 spread^2)).
double gaussian(const double& centre, const double& spread, const double& value);

// Nearest integer, exact halves going toward zero: 2.5 -> 2, -2.5 -> -2.
int roundInt(double x);

double max(double a, double b);
double min(double a, double b);
int max(int a, int b);
int min(int a, int b);

}  // namespace math
}  // namespace nerva
