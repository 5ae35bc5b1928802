// Holds the segmenter's exact mode (steps 1,1) against OpenCV's 4-connected
// labelling: every blob must be one component with the same pixel count,
// box and coordinate sums, and the counts must agree.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// Frames with more than 2000 components print the pool-full message per extra blob.
std::shared_ptr<RLEblob> segment_quietly(const cv::Mat& mask, segm_ptr s)
{
    testing::internal::CaptureStderr();
    auto head = RLEsegm_segmentKAP(mask, s);
    testing::internal::GetCapturedStderr();
    return head;
}

segm_ptr make_segmenter(int width, int height)
{
    auto s = std::make_shared<MV_RLEsegm>();
    RLEsegm_init_privateKAP(s, 0, width - 1, 0, height - 1, width, height);
    RLEsegm_set_steps(s, 1, 1);
    return s;
}

// Segments `full` (within `roi` if given) and compares with OpenCV's
// components of the region of interest; returns "" or the first disagreement.
std::string differs(const cv::Mat& full, segm_ptr s, cv::Rect roi = {})
{
    if (roi.empty())
        roi = cv::Rect(0, 0, full.cols, full.rows);
    else
        RLEsegm_set_ROI(roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1, s);
    auto head = segment_quietly(full, s);
    const int ox = roi.x, oy = roi.y;
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(full(roi), labels, stats, centroids, 4, CV_32S);
    std::vector<double> sum_x(n, 0.0), sum_y(n, 0.0);
    for (int y = 0; y < labels.rows; ++y)
        for (int x = 0; x < labels.cols; ++x) {
            sum_x[labels.at<int>(y, x)] += x + ox;
            sum_y[labels.at<int>(y, x)] += y + oy;
        }

    std::set<int> seen;  // every surviving region is one component, exactly
    int survivors = 0;
    for (region* r = s->i2r->first.get(); r && head; r = r->next.get()) {
        if (r->absorber) continue;
        ++survivors;
        const int label = labels.at<int>(r->y_min - oy, r->seed_x - ox);
        if (label == 0 || !seen.insert(label).second) return "region seed on background or on a seen component";
        const int* st = stats.ptr<int>(label);
        const std::string where = " at (" + std::to_string(st[cv::CC_STAT_LEFT] + ox) + "," +
                                  std::to_string(st[cv::CC_STAT_TOP] + oy) + ")";
        if (r->npix != st[cv::CC_STAT_AREA] || r->x_min != st[cv::CC_STAT_LEFT] + ox ||
            r->y_min != st[cv::CC_STAT_TOP] + oy || r->x_max - r->x_min + 1 != st[cv::CC_STAT_WIDTH] ||
            r->y_max - r->y_min + 1 != st[cv::CC_STAT_HEIGHT] || r->sum_x != sum_x[label] || r->sum_y != sum_y[label])
            return "region differs from component" + where;
    }
    if (survivors != n - 1) return "count " + std::to_string(survivors) + " vs " + std::to_string(n - 1);

    int count = 0;  // blobs carry their region's values, one per region up to the pool's 2000
    for (RLEblob* b = head.get(); b && count <= 2000; b = b->next.get()) {
        ++count;
        auto r = RLEsegm_get_region(b->fathers[0], s);
        if (!r || r->absorber) return "blob without a surviving region";
        if (b->npix != r->npix || b->bbox.xmin != r->x_min || b->bbox.ymin != r->y_min || b->bbox.xmax != r->x_max ||
            b->bbox.ymax != r->y_max || b->bbox.width != r->x_max - r->x_min + 1 ||
            b->bbox.height != r->y_max - r->y_min + 1 || b->sumx != r->sum_x || b->sumy != r->sum_y ||
            b->xc != static_cast<int>(r->sum_x / r->npix) || b->yc != static_cast<int>(r->sum_y / r->npix))
            return "blob differs from its region";
    }
    if (count != std::min(n - 1, 2000)) return "blob count " + std::to_string(count);
    return s->nb_blobs == n - 1 ? "" : "appends counted";
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

cv::Mat checkerboard(int w, int h, int cell)
{
    cv::Mat m(h, w, CV_8UC1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m.at<uchar>(y, x) = ((x / cell + y / cell) % 2) ? 255 : 0;
    return m;
}

}  // namespace

TEST(SegmentationDifferential, RandomMasksSmallAndUpToFullHd)
{
    std::mt19937 rng(12345);
    const double densities[] = {0.001, 0.01, 0.05, 0.2, 0.4, 0.55, 0.7};
    for (int size_case = 0; size_case < 60; ++size_case) {
        const int w = 1 + static_cast<int>(rng() % 64), h = 1 + static_cast<int>(rng() % 48);
        auto s = make_segmenter(w, h);  // reused over several frames
        for (int frame = 0; frame < 40; ++frame) {
            const double d = densities[rng() % 7];
            cv::Mat mask = (frame % 2) ? blocky(rng, w, h, d) : speckled(rng, w, h, d);
            ASSERT_EQ(differs(mask, s), "") << w << "x" << h << " frame " << frame << " density " << d;
        }
    }
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(1920, 1080)}) {
        auto s = make_segmenter(size.width, size.height);
        for (double d : {0.001, 0.02, 0.3, 0.7})
            ASSERT_EQ(differs(blocky(rng, size.width, size.height, d), s), "") << size << " d=" << d;
    }
}

TEST(SegmentationDifferential, StructuredShapes)
{
    const int w = 200, h = 160;
    std::vector<cv::Mat> shapes(3, cv::Mat());
    for (auto& m : shapes) m = cv::Mat(h, w, CV_8UC1, cv::Scalar(0));
    cv::rectangle(shapes[0], {10, 10, 30, 40}, 255, -1);  // U, O and rings within rings
    cv::rectangle(shapes[0], {18, 10, 14, 30}, 0, -1);
    cv::rectangle(shapes[0], {60, 10, 40, 40}, 255, 3);
    for (int r = 5; r < 60; r += 6) cv::circle(shapes[0], {140, 90}, r, 255, 2);
    for (int x = 0; x < w; x += 3) cv::line(shapes[1], {x, 0}, {x, 60}, 255);  // combs, upward and downward
    for (int x = 1; x < w; x += 2) cv::line(shapes[1], {x, 100}, {x, h - 1}, 255);
    for (int y : {60, 100}) shapes[1].row(y).setTo(255);
    for (int y : {0, 50, h - 1}) shapes[2].row(y).setTo(255);  // full rows and columns on the borders
    for (int x : {3, w - 1}) shapes[2].col(x).setTo(255);
    shapes.push_back(checkerboard(w, h, 5));
    shapes.push_back(cv::Mat(h, w, CV_8UC1, cv::Scalar(1)));
    auto s = make_segmenter(w, h);
    for (size_t i = 0; i < shapes.size(); ++i) ASSERT_EQ(differs(shapes[i], s), "") << "shape " << i;
}

TEST(SegmentationDifferential, RegionOfInterestStrictlyInside)
{
    std::mt19937 rng(99);
    const int w = 300, h = 200;
    auto s = make_segmenter(w, h);
    for (int frame = 0; frame < 30; ++frame) {
        cv::Mat mask = blocky(rng, w, h, 0.3);
        const int x0 = static_cast<int>(rng() % 100), y0 = static_cast<int>(rng() % 80);
        const int x1 = x0 + 1 + static_cast<int>(rng() % (w - x0 - 1));
        const int y1 = y0 + 1 + static_cast<int>(rng() % (h - y0 - 1));
        ASSERT_EQ(differs(mask, s, cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1)), "") << "frame " << frame;
    }
}

TEST(SegmentationDifferential, PoolsGrowForAFullHdCheckerboard)
{
    const int w = 1920, h = 1080;
    auto s = make_segmenter(w, h);
    testing::internal::CaptureStderr();
    auto head = RLEsegm_segmentKAP(checkerboard(w, h, 1), s);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("too many blobs"), std::string::npos);
    EXPECT_EQ(s->nb_segs, w * h / 2);  // every run kept: the pools grew
    EXPECT_GE(s->seg_pool.size(), static_cast<size_t>(w * h / 2));
    EXPECT_EQ(s->nb_blobs, w * h / 2);
    int listed = 0;
    for (RLEblob* b = head.get(); b && listed <= 2000; b = b->next.get()) ++listed;
    EXPECT_EQ(listed, 2000);  // the list ends even past 2000 regions

    std::mt19937 rng(5);  // the grown pools serve later frames exactly
    ASSERT_EQ(differs(blocky(rng, w, h, 0.05), s), "");
}

// A host stepping through the public img2regs functions gets exactly the
// regions, links and state of the driver.
TEST(SegmentationDifferential, DriverMatchesThePublicLabellingSteps)
{
    std::mt19937 rng(4242);
    auto id = [](const std::shared_ptr<region>& r) { return r ? r->ident : -1; };
    segm_ptr driver, steps;
    int w = 0, h = 0;
    for (int trial = 0; trial < 300; ++trial) {
        if (trial % 30 == 0) {  // a new frame size every 30 frames; state carries over frames
            w = 1 + static_cast<int>(rng() % 40);
            h = 1 + static_cast<int>(rng() % 30);
            driver = make_segmenter(w, h);
            steps = make_segmenter(w, h);
        }
        cv::Mat mask = (trial % 2) ? blocky(rng, w, h, 0.4) : speckled(rng, w, h, 0.3);
        for (auto s : {driver, steps}) RLEsegm_set_ROI(0, trial % 3 < h ? trial % 3 : 0, w - 1, h - 1, s);
        segment_quietly(mask, driver);

        RLEsegm_reset(steps);
        steps->rle_img = steps->RLEsegm_build_RLEimageKAP(mask);
        ASSERT_EQ(steps->nb_segs, driver->nb_segs);
        if (steps->nb_segs == 0) continue;
        img2regs_init(steps->i2r, steps);
        img2regs_exec(steps->i2r, steps->roi_ymax - steps->roi_ymin + 1, steps);
        img2regs_pass2(steps->i2r, steps);

        ASSERT_EQ(steps->nb_regs, driver->nb_regs) << "trial " << trial;
        for (int k = 0; k < steps->nb_segs; ++k)
            ASSERT_EQ(id(steps->seg_pool[k]->owner), id(driver->seg_pool[k]->owner)) << "run " << k;
        for (int i = 0; i < steps->nb_regs; ++i) {
            const region &a = *steps->reg_pool[i], &b = *driver->reg_pool[i];
            ASSERT_TRUE(a.npix == b.npix && a.nholes == b.nholes && a.x_min == b.x_min && a.x_max == b.x_max &&
                        a.y_min == b.y_min && a.y_max == b.y_max && a.seed_x == b.seed_x && a.sum_x == b.sum_x &&
                        a.sum_y == b.sum_y && id(a.absorber) == id(b.absorber) && id(a.hole) == id(b.hole) &&
                        id(a.next) == id(b.next))
                << "region " << i << " trial " << trial;
        }
        const img2regs &a = *steps->i2r, &b = *driver->i2r;
        auto at = [](const std::shared_ptr<segment>& p, segm_ptr s) { return p ? p.get() - s->seg_pool[0].get() : -1; };
        auto runs = [](std::shared_ptr<segment>* p, segm_ptr s) { return p - s->seg_pool.data(); };
        EXPECT_TRUE(id(a.first) == id(b.first) && id(a.last) == id(b.last) && a.y == b.y &&
                    a.cur_count == b.cur_count && a.prev_count == b.prev_count && a.cur_idx == b.cur_idx &&
                    a.prev_idx == b.prev_idx && runs(a.cur_runs, steps) == runs(b.cur_runs, driver) &&
                    runs(a.prev_runs, steps) == runs(b.prev_runs, driver) &&
                    at(a.cur_seg, steps) == at(b.cur_seg, driver) && at(a.prev_seg, steps) == at(b.prev_seg, driver))
            << "trial " << trial;
    }
}
