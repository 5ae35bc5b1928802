#include <gtest/gtest.h>

#include <cstring>

#include "nerva/nerva.h"

using namespace nerva;

TEST(Stamps, InitialiserZeroesTheCameraAndUnsetsTheTime)
{
    JpegHeader h;
    std::memset(&h, 0x5a, sizeof(h));
    init_JpegHeader_st(&h);
    for (int64_t v : h.cam.values) EXPECT_EQ(v, 0);
    for (int32_t v : h.cam.small_values) EXPECT_EQ(v, 0);
    for (int64_t v : h.time.values) EXPECT_EQ(static_cast<uint64_t>(v), UINT64_MAX);  // unset
}

TEST(Stamps, BooleanTextIsFalseOnlyForFalseOrAZeroPrefix)
{
    for (const char* s : {"false", "FALSE", "falsehood", "0", "0.5", "000"}) EXPECT_FALSE(atob(s)) << s;
    for (const char* s : {"", "1", "fals", "fAlse", "no", " false", "-0", "10"})
        EXPECT_TRUE(atob(s)) << '"' << s << '"';
}
