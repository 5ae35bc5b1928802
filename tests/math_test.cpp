#include <gtest/gtest.h>

#include <cmath>

#include "nerva/nerva.h"

using namespace nerva::math;

// Halves go toward zero; NaN and out-of-range values are defined.
TEST(NumericHelpers, RoundIntTakesHalvesTowardZeroAndSaturates)
{
    const std::pair<double, int> cases[] = {{2.5, 2},  {2.6, 3},          {-2.5, -2},         {-2.6, -3},
                                            {-0.5, 0}, {std::nan(""), 0}, {1e300, INT32_MAX}, {-1e300, INT32_MIN}};
    for (auto [in, out] : cases) EXPECT_EQ(roundInt(in), out) << in;
}

TEST(NumericHelpers, CeilOrFloorClampsToZeroAndOne)
{
    for (auto [in, out] : {std::pair{1.0, 1.0}, {1.5, 1.0}, {-0.1, 0.0}, {0.3, 0.3}}) EXPECT_EQ(ceilOrFloor(in), out);
}

TEST(NumericHelpers, AreEqualToleratesATenBillionth)
{
    EXPECT_TRUE(areEqual(1.0, 1.0 + 1e-11));
    EXPECT_FALSE(areEqual(1.0, 1.0 + 1e-9));
}
