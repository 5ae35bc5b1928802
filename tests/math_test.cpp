#include <gtest/gtest.h>

#include <cmath>

#include "nerva/nerva.h"

using namespace nerva::math;

TEST(RoundInt, HalvesGoTowardZero)
{
    EXPECT_EQ(roundInt(2.5), 2);
    EXPECT_EQ(roundInt(2.6), 3);
    EXPECT_EQ(roundInt(-2.5), -2);
    EXPECT_EQ(roundInt(-2.6), -3);
    EXPECT_EQ(roundInt(0.5), 0);
    EXPECT_EQ(roundInt(-0.5), 0);
    EXPECT_EQ(roundInt(1.5), 1);
    EXPECT_EQ(roundInt(1.4999), 1);
    EXPECT_EQ(roundInt(0.0), 0);
}

TEST(RoundInt, OutOfRangeIsDefined)
{
    EXPECT_EQ(roundInt(std::nan("")), 0);
    EXPECT_EQ(roundInt(1e300), 2147483647);
    EXPECT_EQ(roundInt(-1e300), -2147483647 - 1);
}

TEST(NumericHelpers, ClampEqualityGaussianMinMax)
{
    EXPECT_EQ(ceilOrFloor(1.0), 1.0);
    EXPECT_EQ(ceilOrFloor(1.5), 1.0);
    EXPECT_EQ(ceilOrFloor(-0.1), 0.0);
    EXPECT_EQ(ceilOrFloor(0.3), 0.3);

    EXPECT_TRUE(areEqual(1.0, 1.0 + 1e-11));
    EXPECT_FALSE(areEqual(1.0, 1.0 + 1e-9));

    EXPECT_DOUBLE_EQ(gaussian(0, 1, 0), 1.0);
    EXPECT_DOUBLE_EQ(gaussian(3.0, 2.0, 5.0), std::exp(-0.5));
    EXPECT_DOUBLE_EQ(gaussian(3.0, 2.0, 1.0), std::exp(-0.5));

    EXPECT_EQ(max(2, -3), 2);
    EXPECT_EQ(min(2, -3), -3);
    EXPECT_EQ(max(2.5, 2.25), 2.5);
    EXPECT_EQ(min(2.5, 2.25), 2.25);
}
