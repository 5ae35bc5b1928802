// Holds the segmenter's exact mode (steps 1,1) against OpenCV's 4-connected
// labelling: every blob must be one component with the same pixel count,
// box and coordinate sums, and the counts must agree.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>
#include <set>

#include "nerva/segmentation/internal/segmenter_internal.h"
#include "segmenter_test_support.h"

using namespace segmenter_test;

namespace {

// OpenCV's 4-connected components of the part of a frame at `origin`, with
// each one's coordinate sums in frame coordinates.
struct Components {
    cv::Mat labels, stats;
    std::vector<double> sum_x, sum_y;
    cv::Point origin;
    int n;  // with the background, label 0

    Components(const cv::Mat& part, cv::Point at) : origin(at)
    {
        cv::Mat centroids;
        n = cv::connectedComponentsWithStats(part, labels, stats, centroids, 4, CV_32S);
        sum_x.assign(n, 0.0), sum_y.assign(n, 0.0);
        for (int y = 0; y < labels.rows; ++y)
            for (int x = 0; x < labels.cols; ++x) {
                sum_x[labels.at<int>(y, x)] += x + origin.x;
                sum_y[labels.at<int>(y, x)] += y + origin.y;
            }
    }
    // The component under the region's seed, expected to be the region
    // exactly, field by field; 0 when the seed is on the background.
    int expect_component_of(const region& r) const
    {
        const int label = labels.at<int>(r.y_min - origin.y, r.seed_x - origin.x);
        EXPECT_NE(label, 0) << "the region's seed is on the background";
        if (!label) return 0;
        const int* st = stats.ptr<int>(label);
        EXPECT_EQ(r.npix, st[cv::CC_STAT_AREA]);
        EXPECT_EQ(r.x_min - origin.x, st[cv::CC_STAT_LEFT]);
        EXPECT_EQ(r.y_min - origin.y, st[cv::CC_STAT_TOP]);
        EXPECT_EQ(r.x_max - r.x_min + 1, st[cv::CC_STAT_WIDTH]);
        EXPECT_EQ(r.y_max - r.y_min + 1, st[cv::CC_STAT_HEIGHT]);
        EXPECT_EQ(r.sum_x, sum_x[label]);
        EXPECT_EQ(r.sum_y, sum_y[label]);
        return label;
    }
};

// A blob carries its region's values.
void expect_blob_of(const RLEblob& b, const region& r)
{
    EXPECT_EQ(b.npix, r.npix);
    EXPECT_EQ(b.bbox.xmin, r.x_min);
    EXPECT_EQ(b.bbox.ymin, r.y_min);
    EXPECT_EQ(b.bbox.xmax, r.x_max);
    EXPECT_EQ(b.bbox.ymax, r.y_max);
    EXPECT_EQ(b.bbox.width, r.x_max - r.x_min + 1);
    EXPECT_EQ(b.bbox.height, r.y_max - r.y_min + 1);
    EXPECT_EQ(b.sumx, r.sum_x);
    EXPECT_EQ(b.sumy, r.sum_y);
    EXPECT_EQ(b.xc, static_cast<int>(r.sum_x / r.npix));
    EXPECT_EQ(b.yc, static_cast<int>(r.sum_y / r.npix));
}

// Segments `full` (within `roi` if given) and expects OpenCV's components of
// the region of interest; stops at the first region or blob that differs.
void expect_components(const cv::Mat& full, segm_ptr s, cv::Rect roi = {})
{
    if (roi.empty()) roi = cv::Rect(0, 0, full.cols, full.rows);
    RLEsegm_set_ROI(roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1, s);
    const CapturedMessages quiet;  // past 2000 components the pool-full message comes per extra blob
    const std::shared_ptr<RLEblob> head = RLEsegm_segmentKAP(full, s);
    const Components components(full(roi), roi.tl());
    const int n = components.n;

    std::set<int> seen;  // every surviving region is one component, exactly
    int survivors = 0;
    for (region* r = s->i2r->first.get(); r && head; r = r->next.get()) {
        if (r->absorber) continue;
        ++survivors;
        SCOPED_TRACE(::testing::Message() << "region at " << r->x_min << "," << r->y_min);
        const int label = components.expect_component_of(*r);
        EXPECT_TRUE(seen.insert(label).second) << "component " << label << " is another region's too";
        if (::testing::Test::HasFailure()) return;
    }
    ASSERT_EQ(survivors, n - 1);

    int count = 0;  // blobs carry their region's values, one per region up to the pool's 2000
    for (RLEblob* b = head.get(); b && count <= 2000; b = b->next.get(), ++count) {
        SCOPED_TRACE(::testing::Message() << "blob " << count);
        auto r = RLEsegm_get_region(b->fathers[0], s);
        ASSERT_NE(r, nullptr);
        ASSERT_EQ(r->absorber, nullptr);
        expect_blob_of(*b, *r);
        if (::testing::Test::HasFailure()) return;
    }
    ASSERT_EQ(count, std::min(n - 1, 2000));
    EXPECT_EQ(s->nb_blobs, n - 1) << "every append counted";
}

cv::Mat speckled(std::mt19937& rng, int w, int h, double density)
{
    cv::Mat m(h, w, CV_8UC1);
    std::bernoulli_distribution fg(density);
    std::uniform_int_distribution<int> value(1, 255);  // any non-zero byte is foreground
    for (auto it = m.begin<uchar>(); it != m.end<uchar>(); ++it) *it = fg(rng) ? static_cast<uchar>(value(rng)) : 0;
    return m;
}

cv::Mat blocky(std::mt19937& rng, int w, int h, double density)
{
    const int cell = 1 + static_cast<int>(rng() % 8);
    cv::Mat m;
    cv::resize(speckled(rng, (w + cell - 1) / cell, (h + cell - 1) / cell, density), m, cv::Size(), cell, cell,
               cv::INTER_NEAREST);
    return m(cv::Rect(0, 0, w, h)).clone();
}

// Rows of 1-pixel stripes closed by bars with a few gaps: many merges per
// row, holes closed left and right of regions absorbed in the same row.
cv::Mat combs(std::mt19937& rng, int w, int h)
{
    cv::Mat m(h, w, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < h; ++y) {
        const bool bar = rng() % 3 == 0;
        for (int x = 0; x < w; ++x)
            m.at<uchar>(y, x) = (bar ? rng() % 16 != 0 : (x + y / 4) % 2 == 0 && rng() % 8 != 0) ? 255 : 0;
    }
    return m;
}

int ident_of(const std::shared_ptr<region>& r) { return r ? r->ident : -1; }

// The same values, links (by ident) and lines in two regions.
void expect_same_region(const region& got, const region& want)
{
    EXPECT_EQ(got.npix, want.npix);
    EXPECT_EQ(got.nholes, want.nholes);
    EXPECT_EQ(got.x_min, want.x_min);
    EXPECT_EQ(got.x_max, want.x_max);
    EXPECT_EQ(got.y_min, want.y_min);
    EXPECT_EQ(got.y_max, want.y_max);
    EXPECT_EQ(got.seed_x, want.seed_x);
    EXPECT_EQ(got.sum_x, want.sum_x);
    EXPECT_EQ(got.sum_y, want.sum_y);
    EXPECT_EQ(ident_of(got.absorber), ident_of(want.absorber));
    EXPECT_EQ(ident_of(got.hole), ident_of(want.hole));
    EXPECT_EQ(ident_of(got.next), ident_of(want.next));
    ASSERT_EQ(got.reg_lines.size(), want.reg_lines.size());
    for (size_t k = 0; k < got.reg_lines.size(); ++k) {
        SCOPED_TRACE(::testing::Message() << "line " << k);
        EXPECT_EQ(got.reg_lines[k]->y, want.reg_lines[k]->y);
        EXPECT_EQ(got.reg_lines[k]->nb_segs, want.reg_lines[k]->nb_segs);
        EXPECT_EQ(got.reg_lines[k]->first_seg, want.reg_lines[k]->first_seg);
        if (::testing::Test::HasFailure()) return;
    }
}

}  // namespace

// Every third frame within a region of interest strictly inside the frame.
TEST(SegmentationDifferential, RandomMasksOfManySizesAndDensitiesAndRegionsOfInterest)
{
    std::mt19937 rng(12345);
    const double densities[] = {0.001, 0.01, 0.05, 0.2, 0.4, 0.55, 0.7};
    for (int size_case = 0; size_case < 60; ++size_case) {
        const int w = 1 + static_cast<int>(rng() % 64), h = 1 + static_cast<int>(rng() % 48);
        auto s = segmenter_for(w, h);  // reused over several frames
        for (int frame = 0; frame < 40; ++frame) {
            const double d = densities[rng() % 7];
            cv::Mat mask = (frame % 5 == 4) ? combs(rng, w, h)
                           : (frame % 2)    ? blocky(rng, w, h, d)
                                            : speckled(rng, w, h, d);
            cv::Rect roi;
            if (frame % 3 == 2 && w > 2 && h > 2) roi = cv::Rect(1 + rng() % (w - 2), 1 + rng() % (h - 2), 1, 1);
            if (!roi.empty()) {
                roi.width = 1 + rng() % (w - 1 - roi.x);
                roi.height = 1 + rng() % (h - 1 - roi.y);
            }
            SCOPED_TRACE(::testing::Message() << w << "x" << h << " frame " << frame << " density " << d);
            expect_components(mask, s, roi);
            if (HasFailure()) return;
        }
    }
}

// Past the default pools (50000 regions) and the 2000 blobs of a list.
TEST(SegmentationDifferential, PoolsGrowForACheckerboardAndServeLaterFrames)
{
    auto s = segmenter_for(330, 320);
    expect_components(cv::repeat(cv::Mat((cv::Mat_<uchar>(2, 2) << 0, 255, 255, 0)), 160, 165), s);
    if (HasFailure()) return;
    std::mt19937 rng(5);
    for (double d : {0.02, 0.7}) {
        SCOPED_TRACE(::testing::Message() << "d=" << d);
        expect_components(blocky(rng, 330, 320, d), s);
        if (HasFailure()) return;
    }
}

// A host stepping through the public img2regs functions and
// set_segs_in_regsKAP gets exactly the regions, links and region lines
// of the driver, with any steps and with a region of interest that moves
// from frame to frame (rows outside it keep older runs).
TEST(SegmentationDifferential, DriverMatchesThePublicLabellingSteps)
{
    std::mt19937 rng(4242);
    const std::pair<int, int> steps_tried[] = {{1, 1}, {4, 2}, {3, 1}, {1, 3}, {2, 2}};
    segm_ptr driver, steps;
    int w = 0, h = 0;
    for (int trial = 0; trial < 200; ++trial) {
        if (trial % 20 == 0) {  // a new frame size every 20 frames; state carries over frames
            w = 1 + static_cast<int>(rng() % 150);
            h = 1 + static_cast<int>(rng() % 30);
            driver = segmenter_for(w, h);
            steps = segmenter_for(w, h);
            const auto [sx, sy] = steps_tried[(trial / 20) % 5];
            for (auto s : {driver, steps}) RLEsegm_set_steps(s, sx, sy);
        }
        if (trial % 20 == 10)  // a host renumbering pool regions: merges follow the idents
            for (auto s : {driver, steps})
                for (size_t i = 0; i < s->reg_pool.size(); ++i) s->reg_pool[i]->ident = static_cast<int>(7 * i % 11);
        cv::Mat mask = (trial % 3 == 2) ? combs(rng, w, h)
                       : (trial % 2)    ? blocky(rng, w, h, 0.4)
                                        : speckled(rng, w, h, 0.3);
        const int x0 = static_cast<int>(rng() % w), y0 = static_cast<int>(rng() % h);
        const int x1 = x0 + static_cast<int>(rng() % (w - x0)), y1 = y0 + static_cast<int>(rng() % (h - y0));
        for (auto s : {driver, steps})
            if (trial % 4 == 0) RLEsegm_set_ROI(0, 0, w - 1, h - 1, s);
            else RLEsegm_set_ROI(x0, y0, x1, y1, s);
        RLEsegm_segmentKAP(mask, driver);

        RLEsegm_reset(steps);
        steps->rle_img = steps->RLEsegm_build_RLEimageKAP(mask);
        ASSERT_EQ(steps->nb_segs, driver->nb_segs);
        if (steps->nb_segs == 0) continue;
        img2regs_init(steps->i2r, steps);
        img2regs_exec(steps->i2r, steps->roi_ymax - steps->roi_ymin + 1, steps);
        img2regs_pass2(steps->i2r, steps);
        set_segs_in_regsKAP(steps, mask.rows);

        ASSERT_EQ(steps->nb_regs, driver->nb_regs) << "trial " << trial;
        for (int k = 0; k < steps->nb_segs; ++k)
            ASSERT_EQ(ident_of(steps->seg_pool[k]->owner), ident_of(driver->seg_pool[k]->owner));
        for (int i = 0; i < steps->nb_regs; ++i) {
            SCOPED_TRACE(::testing::Message() << "region " << i << " trial " << trial);
            expect_same_region(*steps->reg_pool[i], *driver->reg_pool[i]);
            if (HasFailure()) return;
        }
    }
}

// Every run kernel this CPU can run (the widest is the one in use) finds the
// runs a byte-by-byte scan finds, on rows of every length around the 64- and
// 256-byte chunks, from any start column.
TEST(SegmentationDifferential, EveryRunKernelThisCpuRunsFindsTheSameRuns)
{
    std::mt19937 rng(777);
    const auto kernels = nerva::detail::row_runs_kernels();
    for (int trial = 0; trial < 3000; ++trial) {
        const int width = 1 + static_cast<int>(rng() % 700);
        const int x0 = static_cast<int>(rng() % width);
        const double density = (trial % 4 == 0) ? 0.002 : (trial % 4 == 1) ? 0.5 : (trial % 4 == 2) ? 0.97 : 0.05;
        std::vector<uint8_t> row(static_cast<size_t>(width));
        std::bernoulli_distribution fg(density);
        for (auto& b : row) b = fg(rng) ? static_cast<uint8_t>(1 + rng() % 255) : 0;
        std::vector<int32_t> expected;
        const uint8_t* r = row.data();
        for (int x = x0; x < width; ++x)
            if (r[x] && (x == x0 || !r[x - 1])) expected.push_back(x);
            else if (!r[x] && x > x0 && r[x - 1]) expected.push_back(x - 1);
        if (expected.size() % 2) expected.push_back(width - 1);
        for (size_t k = 0; k < kernels.size(); ++k) {
            std::vector<int32_t> bounds(static_cast<size_t>(width - x0) + 6, -7);
            const int32_t n = kernels[k](row.data(), x0, width, bounds.data());
            bounds.resize(static_cast<size_t>(2 * n));
            ASSERT_EQ(bounds, expected) << "kernel " << k << " width " << width << " from " << x0;
        }
    }
}

// A row step above 1 never cuts a blob: what it finds is a whole component,
// and it finds every component crossing a read row (y a multiple of the step).
TEST(SegmentationDifferential, RowStepsFindWholeComponentsAndEveryOneOnAReadRow)
{
    std::mt19937 rng(2024);
    segm_ptr by_step[8];  // reused from frame to frame, at the largest size
    const int steps[] = {2, 3, 4, 7};
    for (int step : steps) by_step[step] = segmenter_for(64, 48, 1, step);
    for (int trial = 0; trial < 400; ++trial) {
        const int w = 2 + static_cast<int>(rng() % 63), h = 2 + static_cast<int>(rng() % 47);
        const int step = steps[trial % 4];
        const cv::Mat mask = trial % 2 ? blocky(rng, w, h, 0.05 + 0.1 * (trial % 5)) : speckled(rng, w, h, 0.1);
        const cv::Rect roi(rng() % (w / 2), rng() % (h / 2), w / 2, h / 2);
        const segm_ptr& s = by_step[step];
        RLEsegm_set_ROI(roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1, s);
        RLEsegm_segmentKAP(mask, s);
        const Components components(mask(roi), roi.tl());
        std::set<int> found;
        for (int i = 0; i < s->nb_regs; ++i) {
            const region& r = *s->reg_pool[i];
            if (r.absorber) continue;
            SCOPED_TRACE(::testing::Message() << "trial " << trial << ": region " << r.ident);
            const int label = components.expect_component_of(r);
            if (HasFailure()) return;
            ASSERT_EQ(found.count(label), 0u) << "component " << label << " found twice";
            found.insert(label);
        }
        const cv::Mat& labels = components.labels;
        for (int y = (step - roi.y % step) % step; y < labels.rows; y += step)  // the read rows
            for (int x = 0; x < labels.cols; ++x) {
                const int label = labels.at<int>(y, x);
                if (label) {
                    ASSERT_EQ(found.count(label), 1u) << "trial " << trial << ": missed at " << x << "," << y;
                }
            }
    }
}

// Initialising again takes the new frame as the region of interest and keeps
// the steps a host set.
TEST(SegmenterInitialisation, InitialisingAgainKeepsTheSteps)
{
    auto s = segmenter_for(8, 8, 2, 3);
    RLEsegm_init_privateKAP(s, 0, 19, 0, 9, 20, 10);
    EXPECT_EQ(s->step_x, 2);
    EXPECT_EQ(s->step_y, 3);
    EXPECT_EQ(s->roi_xmax, 19);
    EXPECT_EQ(s->roi_ymax, 9);
}
