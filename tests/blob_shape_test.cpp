// Shape measures of a blob from its region's runs: moments, axes and
// orientation of the equivalent ellipse, boundary length, extent. The
// perimeters expected are scikit-image's regionprops perimeters of the same
// shapes.
#include <cmath>

#include <gtest/gtest.h>

#include "segmenter_test_support.h"

namespace {

using namespace segmenter_test;

// The shape of each blob of one frame of `rows`.
std::vector<blob_shape> shapes_of(const std::vector<std::string>& rows)
{
    const cv::Mat mask = mask_from(rows);
    segm_ptr s = segmenter_for(mask);
    std::vector<blob_shape> shapes;
    for (std::shared_ptr<RLEblob> b = RLEsegm_segmentKAP(mask, s); b; b = b->next) {
        blob_shape shape{};
        EXPECT_EQ(RLEsegm_blob_shape(b, s, &shape), 0);
        shapes.push_back(shape);
    }
    return shapes;
}

TEST(BlobShape, RectangleMomentsAreThoseOfUniformColumnsAndRows)
{
    const blob_shape m = shapes_of({".....", ".###.", ".###.", "....."})[0];
    EXPECT_EQ(m.npix, 6);
    EXPECT_DOUBLE_EQ(m.mu20, 2.0 / 3);  // (3^2 - 1) / 12
    EXPECT_DOUBLE_EQ(m.mu02, 0.25);     // (2^2 - 1) / 12
    EXPECT_DOUBLE_EQ(m.mu11, 0.0);
    EXPECT_DOUBLE_EQ(m.orientation, 0.0);
    EXPECT_DOUBLE_EQ(m.major_axis, 4 * std::sqrt(2.0 / 3));
    EXPECT_DOUBLE_EQ(m.minor_axis, 2.0);
    EXPECT_DOUBLE_EQ(m.perimeter, 6.0);
    EXPECT_EQ(m.boundary_edges, 10);
    EXPECT_DOUBLE_EQ(m.extent, 1.0);
}

TEST(BlobShape, ALineHasNoWidthAndEccentricityOne)
{
    const blob_shape m = shapes_of({"#", "#", "#", "#"})[0];
    EXPECT_DOUBLE_EQ(m.minor_axis, 0.0);
    EXPECT_DOUBLE_EQ(m.eccentricity, 1.0);
    EXPECT_DOUBLE_EQ(m.orientation, M_PI / 2);
    EXPECT_DOUBLE_EQ(m.perimeter, 2.0);  // the two inner pixels; the ends weigh nothing
}

TEST(BlobShape, PerimeterWeighsDiagonalStepsAndCountsHoles)
{
    const blob_shape ring = shapes_of({"#####", "#...#", "#####"})[0];
    EXPECT_DOUBLE_EQ(ring.perimeter, 12.0);
    EXPECT_EQ(ring.boundary_edges, 16 + 8);
    EXPECT_DOUBLE_EQ(ring.extent, 12.0 / 15);
    EXPECT_DOUBLE_EQ(shapes_of({"##..", ".##.", "..##"})[0].perimeter, 5 + std::sqrt(2.0));
    // Cut corners: four diagonal steps between straight runs.
    EXPECT_DOUBLE_EQ(shapes_of({".###.", "#####", "#####", ".###."})[0].perimeter, 6 + 4 * std::sqrt(2.0));
    EXPECT_DOUBLE_EQ(shapes_of({"#"})[0].perimeter, 0.0);
}

TEST(BlobShape, RunsOfAnotherBlobBetweenItsOwnAreLeftOut)
{
    // The U's two arms share rows with the blob inside it.
    const std::vector<blob_shape> shapes = shapes_of({"#...#", "#.#.#", "#...#", "#####"});
    ASSERT_EQ(shapes.size(), 2u);
    EXPECT_EQ(shapes[0].npix, 11);
    EXPECT_DOUBLE_EQ(shapes[0].perimeter, 9.0);
    EXPECT_EQ(shapes[0].boundary_edges, 24);
    EXPECT_EQ(shapes[1].npix, 1);
}

TEST(BlobShape, BlobsNotOfTheLastFrameAreRefused)
{
    const cv::Mat mask = mask_from({"#.", ".."});
    segm_ptr s = segmenter_for(mask);
    blob_shape shape{};
    shape.npix = -7;
    EXPECT_EQ(RLEsegm_blob_shape(blob_new(), s, &shape), -1);  // no region
    EXPECT_EQ(RLEsegm_blob_shape(nullptr, s, &shape), -1);
    std::shared_ptr<RLEblob> b = RLEsegm_segmentKAP(mask, s);
    EXPECT_EQ(RLEsegm_blob_shape(b, nullptr, &shape), -1);
    EXPECT_EQ(RLEsegm_blob_shape(b, s, nullptr), -1);
    EXPECT_EQ(shape.npix, -7);
}

}  // namespace
