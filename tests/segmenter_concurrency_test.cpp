// Segmenters side by side on threads share nothing.
#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <tuple>

#include "segmenter_test_support.h"

using namespace segmenter_test;

// make check-thread runs this under ThreadSanitizer.
TEST(SegmenterConcurrency, FourSegmentersOnFourThreadsMatchOneThread)
{
    using Record = std::tuple<int, int, int, int, int, int, int>;  // npix, box, centre
    std::mt19937 rng(9);
    std::vector<cv::Mat> masks(60);
    for (size_t i = 0; i < masks.size(); ++i) {
        masks[i].create(48, 64, CV_8UC1);
        for (auto& px : cv::Mat_<uchar>(masks[i])) px = rng() % 100 < 5 + 10u * (i % 9) ? 255 : 0;
    }
    const int steps[][2] = {{1, 1}, {4, 2}, {2, 3}, {1, 4}};  // exact and sampled alike
    auto run = [&](std::vector<std::vector<Record>>& out) {
        auto s = segmenter_for(64, 48);
        for (size_t i = 0; i < masks.size(); ++i) {
            RLEsegm_set_steps(s, steps[i % 4][0], steps[i % 4][1]);
            std::vector<Record> frame;
            for (RLEblob* b = RLEsegm_segmentKAP(masks[i], s).get(); b; b = b->next.get())
                frame.emplace_back(b->npix, b->bbox.xmin, b->bbox.ymin, b->bbox.xmax, b->bbox.ymax, b->xc, b->yc);
            out.push_back(std::move(frame));
        }
        RLEsegm_free_private(s);
    };
    std::vector<std::vector<Record>> alone;
    run(alone);
    std::vector<std::vector<std::vector<Record>>> together(4);
    std::vector<std::thread> threads;
    for (auto& out : together) threads.emplace_back(run, std::ref(out));
    for (auto& t : threads) t.join();
    for (const auto& out : together) EXPECT_EQ(out, alone);
}
