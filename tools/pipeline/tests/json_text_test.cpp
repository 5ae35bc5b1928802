#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "json_line.h"
#include "json_text.h"

namespace {

long allocations = 0;

}  // namespace

// Counts every allocation the test binary makes.
void* operator new(std::size_t size)
{
    ++allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using nerva_pipeline::append_json;

std::string number(double v)
{
    std::string out;
    append_json(out, v);
    return out;
}

TEST(JsonText, NumbersKeepAPointOrAnExponentSoTheyReadBackAsFloats)
{
    EXPECT_EQ(number(3.0), "3.0");
    EXPECT_EQ(number(12.5), "12.5");
    EXPECT_EQ(number(0.0001), "0.0001");
    EXPECT_EQ(number(0.00001), "1e-05");
    EXPECT_EQ(number(1e14), "100000000000000.0");
    EXPECT_EQ(number(1e15), "1e+15");
    EXPECT_EQ(number(-0.0), "-0.0");
}

TEST(JsonText, ValuesJsonCannotWriteAreNull)
{
    EXPECT_EQ(number(std::numeric_limits<double>::quiet_NaN()), "null");
    EXPECT_EQ(number(std::numeric_limits<double>::infinity()), "null");
}

// The shortest digits: a rounded time is written as it was rounded, not
// with the binary value's tail.
TEST(JsonText, RoundedValuesAreWrittenShort) { EXPECT_EQ(number(0.372752), "0.372752"); }

TEST(JsonText, EveryFiniteDoubleReadsBackExactly)
{
    std::mt19937_64 bits(7);
    int differing = 0;
    for (int i = 0; i < 200000; ++i) {
        double v;
        const uint64_t b = bits();
        std::memcpy(&v, &b, sizeof v);
        if (!std::isfinite(v)) continue;
        differing += std::strtod(number(v).c_str(), nullptr) != v;
    }
    EXPECT_EQ(differing, 0);
}

TEST(JsonText, StringsEscapeQuotesBackslashesAndControlsAndKeepUtf8)
{
    std::string out;
    append_json(out, std::string_view("a\"b\\c\n\x01 \xc3\xa9"));
    EXPECT_EQ(out, "\"a\\\"b\\\\c\\n\\u0001 \xc3\xa9\"");
}

TEST(JsonLine, AKeptStringWritesTheNextLinesWithoutAllocating)
{
    std::vector<nerva_pipeline::BlobRecord> blobs(3);
    blobs[1].shape = nerva_pipeline::ShapeRecord{};
    const std::vector<int> tracks = {4, 0, 9};
    nerva_pipeline::LineExtras extras;
    extras.time = 1.5;
    extras.blob_tracks = &tracks;
    std::string line;
    nerva_pipeline::json_line(line, 1, blobs, extras);
    const long before = allocations;
    nerva_pipeline::json_line(line, 2, blobs, extras);
    EXPECT_EQ(allocations, before);
}

TEST(JsonLine, FieldsInTheirOrderWithTracksAndTheTrackingPartLast)
{
    std::vector<nerva_pipeline::BlobRecord> blobs(1);
    blobs[0] = {7, 1, 2, 3, 4, 3, 3, 9, 2, 3, std::nullopt};
    const std::vector<int> tracks = {0};
    nerva_pipeline::LineExtras extras;
    extras.time = 0.1 + 0.2;
    extras.dropped = 2;
    extras.components = 5000;
    extras.blob_tracks = &tracks;
    extras.tracking = "{\"tracks\":[]}";
    EXPECT_EQ(nerva_pipeline::json_line(3, blobs, extras),
              "{\"frame\":3,\"blobs\":[{\"id\":7,\"bbox\":[1,2,3,4],\"width\":3,\"height\":3,\"npix\":9,\"xc\":2,"
              "\"yc\":3,\"track\":null}],\"time\":0.3,\"dropped\":2,\"truncated\":true,\"components\":5000,"
              "\"tracks\":[]}\n");
}

}  // namespace
