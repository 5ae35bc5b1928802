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

// Segments quietly: frames with more than 2000 components print the
// pool-full message once per extra blob.
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

// Compares the blob list of `mask` (ROI at offset ox, oy) with OpenCV's
// components of `mask`; returns an empty string or the first disagreement.
std::string compare_with_opencv(const cv::Mat& mask, segm_ptr s, std::shared_ptr<RLEblob> head, int ox = 0,
                                int oy = 0)
{
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 4, CV_32S);
    std::vector<double> sum_x(n, 0.0), sum_y(n, 0.0);
    for (int y = 0; y < labels.rows; ++y)
        for (int x = 0; x < labels.cols; ++x) {
            const int l = labels.at<int>(y, x);
            sum_x[l] += x + ox;
            sum_y[l] += y + oy;
        }

    // Every surviving region is one component, exactly.
    std::set<int> seen;
    int survivors = 0;
    for (region* r = s->i2r->first.get(); r && head; r = r->next.get()) {
        if (r->absorber) continue;
        ++survivors;
        const int label = labels.at<int>(r->y_min - oy, r->seed_x - ox);
        if (label == 0) return "region seed on background";
        if (!seen.insert(label).second) return "two regions for one component";
        const int* st = stats.ptr<int>(label);
        const std::string where = " of component at (" + std::to_string(st[cv::CC_STAT_LEFT] + ox) + "," +
                                  std::to_string(st[cv::CC_STAT_TOP] + oy) + ")";
        if (r->npix != st[cv::CC_STAT_AREA]) return "pixel count" + where;
        if (r->x_min != st[cv::CC_STAT_LEFT] + ox || r->y_min != st[cv::CC_STAT_TOP] + oy ||
            r->x_max - r->x_min + 1 != st[cv::CC_STAT_WIDTH] || r->y_max - r->y_min + 1 != st[cv::CC_STAT_HEIGHT])
            return "box" + where;
        if (r->sum_x != sum_x[label] || r->sum_y != sum_y[label]) return "coordinate sums" + where;
    }
    if (survivors != n - 1) return "count " + std::to_string(survivors) + " vs " + std::to_string(n - 1);

    // Blobs carry their region's values, one per region up to the pool's 2000.
    int count = 0;
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
    const int expected_blobs = n - 1 < 2000 ? n - 1 : 2000;
    if (count != expected_blobs) return "blob count " + std::to_string(count);
    if (s->nb_blobs != n - 1) return "appends counted";
    return "";
}

cv::Mat speckled(std::mt19937& rng, int w, int h, double density)
{
    cv::Mat m(h, w, CV_8UC1);
    std::bernoulli_distribution fg(density);
    std::uniform_int_distribution<int> value(1, 255);  // any non-zero byte is foreground
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) m.at<uchar>(y, x) = fg(rng) ? static_cast<uchar>(value(rng)) : 0;
    return m;
}

cv::Mat blocky(std::mt19937& rng, int w, int h, double density)
{
    const int cell = 1 + static_cast<int>(rng() % 8);
    cv::Mat coarse = speckled(rng, (w + cell - 1) / cell, (h + cell - 1) / cell, density);
    cv::Mat m;
    cv::resize(coarse, m, cv::Size(), cell, cell, cv::INTER_NEAREST);
    return m(cv::Rect(0, 0, w, h)).clone();
}

}  // namespace

TEST(SegmentationDifferential, ThousandsOfSmallRandomMasks)
{
    std::mt19937 rng(12345);
    const double densities[] = {0.001, 0.01, 0.05, 0.2, 0.4, 0.55, 0.7};
    int checked = 0;
    for (int size_case = 0; size_case < 60; ++size_case) {
        const int w = 1 + static_cast<int>(rng() % 64), h = 1 + static_cast<int>(rng() % 48);
        auto s = make_segmenter(w, h);  // reused over several frames
        for (int frame = 0; frame < 40; ++frame) {
            const double d = densities[rng() % 7];
            cv::Mat mask = (frame % 2) ? blocky(rng, w, h, d) : speckled(rng, w, h, d);
            auto head = segment_quietly(mask, s);
            const std::string diff = compare_with_opencv(mask, s, head);
            ASSERT_EQ(diff, "") << w << "x" << h << " frame " << frame << " density " << d;
            ++checked;
        }
    }
    EXPECT_EQ(checked, 2400);
}

TEST(SegmentationDifferential, LargeFramesUpToFullHd)
{
    std::mt19937 rng(777);
    const cv::Size sizes[] = {{640, 480}, {1280, 720}, {1920, 1080}};
    for (const cv::Size& size : sizes) {
        auto s = make_segmenter(size.width, size.height);
        for (double d : {0.001, 0.02, 0.3, 0.7}) {
            cv::Mat mask = blocky(rng, size.width, size.height, d);
            ASSERT_EQ(compare_with_opencv(mask, s, segment_quietly(mask, s)), "") << size << " d=" << d;
        }
    }
}

TEST(SegmentationDifferential, StructuredShapes)
{
    const int w = 200, h = 160;
    std::vector<cv::Mat> shapes;
    auto blank = [&] { return cv::Mat(h, w, CV_8UC1, cv::Scalar(0)); };
    {  // U, O and rings within rings
        cv::Mat m = blank();
        cv::rectangle(m, {10, 10, 30, 40}, 255, -1);
        cv::rectangle(m, {18, 10, 14, 30}, 0, -1);
        cv::rectangle(m, {60, 10, 40, 40}, 255, 3);
        for (int r = 5; r < 60; r += 6) cv::circle(m, {140, 90}, r, 255, 2);
        shapes.push_back(m);
    }
    {  // spiral
        cv::Mat m = blank();
        int x0 = 20, y0 = 20, x1 = w - 21, y1 = h - 21;
        while (x0 < x1 && y0 < y1) {
            cv::line(m, {x0, y0}, {x1, y0}, 255);
            cv::line(m, {x1, y0}, {x1, y1}, 255);
            cv::line(m, {x1, y1}, {x0, y1}, 255);
            cv::line(m, {x0, y1}, {x0, y0 + 4}, 255);
            x0 += 4;
            y0 += 4;
            x1 -= 4;
            y1 -= 4;
        }
        shapes.push_back(m);
    }
    {  // combs, upward and downward
        cv::Mat m = blank();
        for (int x = 0; x < w; x += 3) cv::line(m, {x, 0}, {x, 60}, 255);
        cv::line(m, {0, 60}, {w - 1, 60}, 255);
        for (int x = 1; x < w; x += 2) cv::line(m, {x, 100}, {x, h - 1}, 255);
        cv::line(m, {0, 100}, {w - 1, 100}, 255);
        shapes.push_back(m);
    }
    {  // checkerboards of pixels and of cells
        cv::Mat m = blank();
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) m.at<uchar>(y, x) = ((x + y) % 2) ? 255 : 0;
        shapes.push_back(m);
        cv::Mat c = blank();
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) c.at<uchar>(y, x) = ((x / 5 + y / 5) % 2) ? 255 : 0;
        shapes.push_back(c);
    }
    {  // full rows, full columns, border-touching shapes, a full frame
        cv::Mat m = blank();
        m.row(0).setTo(255);
        m.row(h - 1).setTo(255);
        m.col(w - 1).setTo(255);
        m.row(50).setTo(255);
        m.col(3).setTo(255);
        shapes.push_back(m);
        cv::Mat f(h, w, CV_8UC1, cv::Scalar(1));
        shapes.push_back(f);
    }
    auto s = make_segmenter(w, h);
    for (size_t i = 0; i < shapes.size(); ++i)
        ASSERT_EQ(compare_with_opencv(shapes[i], s, segment_quietly(shapes[i], s)), "") << "shape " << i;
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
        RLEsegm_set_ROI(x0, y0, x1, y1, s);
        auto head = segment_quietly(mask, s);
        cv::Mat crop = mask(cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1)).clone();
        ASSERT_EQ(compare_with_opencv(crop, s, head, x0, y0), "") << "frame " << frame;
    }
}

TEST(SegmentationDifferential, PoolsGrowForAFullHdCheckerboard)
{
    const int w = 1920, h = 1080;
    cv::Mat mask(h, w, CV_8UC1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) mask.at<uchar>(y, x) = ((x + y) % 2) ? 255 : 0;
    auto s = make_segmenter(w, h);
    testing::internal::CaptureStderr();
    auto head = RLEsegm_segmentKAP(mask, s);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(s->nb_segs, w * h / 2);  // every run kept: the pools grew
    EXPECT_GE(s->seg_pool.size(), static_cast<size_t>(w * h / 2));
    EXPECT_NE(err.find("too many blobs"), std::string::npos);
    int listed = 0;
    for (RLEblob* b = head.get(); b && listed <= 2000; b = b->next.get()) ++listed;
    EXPECT_EQ(listed, 2000);  // the list ends even past 2000 regions
    EXPECT_EQ(s->nb_blobs, w * h / 2);

    // The grown pools serve later frames, and results stay exact.
    std::mt19937 rng(5);
    cv::Mat next = blocky(rng, w, h, 0.05);
    ASSERT_EQ(compare_with_opencv(next, s, segment_quietly(next, s)), "");
}

// The driver labels on plain indices; a host stepping through the public
// img2regs functions must get exactly the same regions, links and state.
TEST(SegmentationDifferential, DriverMatchesThePublicLabellingSteps)
{
    std::mt19937 rng(4242);
    auto ident = [](const std::shared_ptr<region>& r) { return r ? r->ident : -1; };
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
            ASSERT_EQ(ident(steps->seg_pool[k]->owner), ident(driver->seg_pool[k]->owner)) << "run " << k;
        for (int i = 0; i < steps->nb_regs; ++i) {
            const region &a = *steps->reg_pool[i], &b = *driver->reg_pool[i];
            ASSERT_TRUE(a.npix == b.npix && a.nholes == b.nholes && a.x_min == b.x_min && a.x_max == b.x_max &&
                        a.y_min == b.y_min && a.y_max == b.y_max && a.seed_x == b.seed_x && a.sum_x == b.sum_x &&
                        a.sum_y == b.sum_y)
                << "region " << i << " trial " << trial;
            ASSERT_EQ(ident(a.absorber), ident(b.absorber)) << "region " << i;
            ASSERT_EQ(ident(a.hole), ident(b.hole)) << "region " << i;
            ASSERT_EQ(ident(a.next), ident(b.next)) << "region " << i;
        }
        const img2regs &a = *steps->i2r, &b = *driver->i2r;
        EXPECT_EQ(ident(a.first), ident(b.first));
        EXPECT_EQ(ident(a.last), ident(b.last));
        EXPECT_TRUE(a.y == b.y && a.cur_count == b.cur_count && a.prev_count == b.prev_count &&
                    a.cur_idx == b.cur_idx && a.prev_idx == b.prev_idx);
        EXPECT_EQ(a.cur_runs - steps->seg_pool.data(), b.cur_runs - driver->seg_pool.data());
        EXPECT_EQ(a.prev_runs - steps->seg_pool.data(), b.prev_runs - driver->seg_pool.data());
        EXPECT_EQ(a.cur_seg ? a.cur_seg.get() - steps->seg_pool[0].get() : -1,
                  b.cur_seg ? b.cur_seg.get() - driver->seg_pool[0].get() : -1);
        EXPECT_EQ(a.prev_seg ? a.prev_seg.get() - steps->seg_pool[0].get() : -1,
                  b.prev_seg ? b.prev_seg.get() - driver->seg_pool[0].get() : -1);
    }
}
