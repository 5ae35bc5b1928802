// The segmenter's behaviours that a host depends on beyond plain labelling:
// sampling quirks, hole counting, merge survivors, the blob pool and its
// trimming, statistics, subregion measures and refusals.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "segmenter_test_support.h"

using namespace segmenter_test;

namespace {

using Runs = std::vector<std::pair<int, int>>;

std::vector<RLEblob*> blobs(const cv::Mat& m, segm_ptr s) { return blobs_of(RLEsegm_segmentKAP(m, s)); }

// `n` separate single-pixel blobs, on a mask at least `rows` high.
cv::Mat dots(int n, int rows = 0)
{
    cv::Mat m(std::max(rows, 2 * ((n + 49) / 50)), 100, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < n; ++i) m.at<uchar>(2 * (i / 50), 2 * (i % 50)) = 1;
    return m;
}

}  // namespace

TEST(RunExtraction, RowSamplingBackFillsAndSkipsOddRowsWhileSparse)
{
    // Rows 1-3 hold a blob; the dot on row 5 lies on a row sparse mode skips.
    auto m = mask_from({"..........", "...##.....", "...##.....", "...##.....", "..........", ".#........"});
    auto sampled = segmenter_for(m, 1, 2);  // holds the blobs found
    auto found = blobs(m, sampled);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->npix, 6);
    EXPECT_EQ(found[0]->bbox.ymin, 1);  // row 1 back-filled
    EXPECT_EQ(found[0]->bbox.ymax, 3);

    auto odd = mask_from({"..........", "####......", "..........", "...#......"});
    auto s = segmenter_for(odd, 1, 2);
    EXPECT_EQ(RLEsegm_segmentKAP(odd, s), nullptr);
    RLEsegm_set_steps(s, 1, 0);  // a row step of 0 reads every row
    EXPECT_EQ(blobs(odd, s).size(), 2u);
}

TEST(Labelling, UMergeSurvivorAndFirstRowSelfPairingHoles)
{
    auto u = mask_from({"##...##...", "#######..."});
    auto s = segmenter_for(u);
    ASSERT_EQ(blobs(u, s).size(), 1u);
    auto left = RLEsegm_get_region(0, s), right = RLEsegm_get_region(1, s);
    EXPECT_EQ(right->absorber, left) << "the lower ident survives";
    EXPECT_EQ(left->absorber, nullptr);
    for (int k = 0; k < s->nb_segs; ++k) EXPECT_EQ(s->seg_pool[k]->owner, left);

    // Three runs on the first non-empty row: the self-pairing counts a hole on
    // the regions of the first and second runs.
    ASSERT_EQ(blobs(mask_from({"..........", "#.#.#....."}), s).size(), 3u);
    const auto holes = [&](int i) { return RLEsegm_get_region(i, s)->nholes; };
    EXPECT_EQ(holes(0), 1);
    EXPECT_EQ(holes(1), 1);
    EXPECT_EQ(holes(2), 0);
    EXPECT_EQ(RLEsegm_get_region(0, s)->hole, RLEsegm_get_region(1, s));
}

TEST(RegionsToBlobs, SizeFiltersAndBoxAreaStatistics)
{
    auto m = mask_from({"#####.....###", ".#####......."});
    auto s = segmenter_for(m);
    ASSERT_EQ(blobs(m, s).size(), 2u);
    EXPECT_EQ(s->nb_blobs_cur, 2);
    EXPECT_EQ(s->blob_area_cur, 6 * 2 + 3 * 1);  // box areas, not pixels
    s->min_blob_side = 2;                        // the 3x1 blob has height 1
    EXPECT_EQ(blobs(m, s).size(), 1u);
    s->min_blob_side = 0;
    s->min_blob_pixels = 4;
    EXPECT_EQ(blobs(m, s).size(), 1u);
}

// The previous frame's statistics; densities kept over an empty frame; a null
// key is left as the host put it.
TEST(RegionsToBlobs, StatisticsMoveToPreviousAndDensitiesRescaleEveryFrame)
{
    auto one = mask_from({"##..", "##.."}), none = mask_from({"....", "...."});
    auto s = segmenter_for(one);
    rectangle* r = make_rectangle(0, 0, 2, 4);
    s->densities[r] = 16.0;
    s->densities[nullptr] = 5.0;
    RLEsegm_segmentKAP(one, s);
    EXPECT_EQ(s->nb_blobs_cur, 1);
    EXPECT_EQ(s->blob_area_cur, 4);
    EXPECT_EQ(s->nb_blobs_prev, -1);
    EXPECT_EQ(s->blob_area_prev, -1);
    EXPECT_EQ(s->densities[r], 2.0);
    EXPECT_EQ(RLEsegm_segmentKAP(none, s), nullptr);
    EXPECT_EQ(s->nb_blobs_cur, 0);
    EXPECT_EQ(s->blob_area_cur, 0);
    EXPECT_EQ(s->nb_blobs_prev, 1);
    EXPECT_EQ(s->blob_area_prev, 4);
    EXPECT_EQ(s->densities[r], 2.0);
    RLEsegm_segmentKAP(one, s);
    EXPECT_EQ(s->densities[r], 0.25);  // rescaled again every frame
    EXPECT_EQ(s->densities[nullptr], 5.0);
    free_rectangle(r);
}

// (created blobs, blobs used in the last frame) -> created blobs after the next reset
TEST(RegionsToBlobs, PoolTrimmingBoundaryAndTrimmedBlobsComeBackNew)
{
    for (auto [pool, used, after] : {std::tuple{45, 30, 29}, {40, 30, 29}, {39, 30, 39}, {60, 20, 60}}) {
        auto first = dots(pool);
        auto s = segmenter_for(first);
        for (RLEblob* b : blobs(first, s)) {  // host data
            b->info[0] = 'x';
            b->measures[3] = 5;
            b->fathers[4999] = 7;
        }
        RLEsegm_segmentKAP(dots(used, first.rows), s);
        RLEsegm_reset(s);
        EXPECT_EQ(s->nb_pool_blobs, after) << pool << "/" << used;
        auto again = blobs(first, s);
        ASSERT_EQ(again.size(), static_cast<size_t>(pool));
        for (int i = 0; i < pool; ++i) {  // a kept blob keeps what the host wrote, a new one comes clean
            const bool kept = i < after;
            SCOPED_TRACE(i);
            ASSERT_EQ(again[i]->info[0], kept ? 'x' : '\0');
            ASSERT_EQ(again[i]->measures[3], kept ? 5.0 : 0.0);
            ASSERT_EQ(again[i]->fathers[4999], kept ? 7 : 0);
        }
    }
}

TEST(RegionsToBlobs, PoolFullReusesTheLastBlobWithoutLoopingTheList)
{
    auto m = dots(2003);
    auto s = segmenter_for(m);
    CapturedMessages out;
    const std::shared_ptr<RLEblob> head = RLEsegm_segmentKAP(m, s);
    const std::string reused = "RLEsegm_get_new_blob(): too many blobs !Last blob reused.\n";
    EXPECT_EQ(out.text, reused + reused + reused);
    EXPECT_EQ(s->nb_blobs, 2003);
    EXPECT_EQ(count_blobs(head), 2000);
    EXPECT_EQ(s->nb_blobs_cur, 2000);
    EXPECT_EQ(s->blob_pool[1999]->fathers[0], 2002);  // overwritten by the last region
    // The reused blob stays the tail, linked to its neighbour on one side only,
    // also when the public list operation appends it again.
    const std::shared_ptr<RLEblob>& tail = s->blob_pool[1999];
    RLEsegm_blob_list_append(tail, s);
    EXPECT_EQ(s->blob_tail, tail);
    EXPECT_EQ(tail->prev, s->blob_pool[1998]);
    EXPECT_EQ(tail->next, nullptr);
    EXPECT_EQ(s->nb_blobs, 2004);
}

TEST(BlobList, AppendingAfterAFrameLinksBothWaysAndEndsTheList)
{
    auto m = mask_from({"#.#.#"});
    auto s = segmenter_for(m);
    ASSERT_EQ(count_blobs(RLEsegm_segmentKAP(m, s)), 3);
    const std::shared_ptr<RLEblob> old_tail = s->blob_tail;
    const std::shared_ptr<RLEblob> extra = blob_new();
    extra->next = s->blob_pool[0];  // stale links from an earlier list
    RLEsegm_blob_list_append(extra, s);
    EXPECT_EQ(s->blob_tail, extra);
    EXPECT_EQ(old_tail->next, extra);
    EXPECT_EQ(extra->prev, old_tail);
    EXPECT_EQ(extra->next, nullptr);
    EXPECT_EQ(count_blobs(s->blob_head), 4);
    extra->prev.reset();  // the record outlives the segmenter's list
}

TEST(SubregionMeasures, SumsAndLimits)
{
    auto m = mask_from({"..........", "..........", "..#######.", "..........", ".........."});
    auto s = segmenter_for(m);
    const int id = RLEsegm_segmentKAP(m, s)->fathers[0];
    double sx = -1, sy = -1;
    EXPECT_EQ(subregion_get_sumxsumy(id, 4, 0, 6, 4, &sx, &sy, s), 3);
    EXPECT_EQ(sx, 15.0);
    EXPECT_EQ(sy, 6.0);
    EXPECT_EQ(subregion_get_sumxsumy(id, 0, 4, 9, 0, &sx, &sy, s), 0) << "inverted";
    EXPECT_EQ(sx, 0.0);
    // The run ends exactly at x1 = 8: counted by the sums and the vertical
    // scan, ignored by the strict horizontal scan.
    EXPECT_EQ(subregion_get_sumxsumy(id, 8, 0, 9, 4, &sx, &sy, s), 1);
    using Limit = int (*)(int, int, int, int, int, int*, int*, segm_ptr);
    struct Limits {
        int found = 0, first = -1, last = -1;
    };
    auto limit = [&](Limit f, int x0, int y0, int x1, int y1) {
        Limits l;
        l.found = f(id, x0, y0, x1, y1, &l.first, &l.last, s);
        return l;
    };
    const Limits rows = limit(subregion_get_ylimit, 8, 0, 9, 4);
    EXPECT_EQ(rows.found, 1);
    EXPECT_EQ(rows.first, 2);
    EXPECT_EQ(rows.last, 2);
    const Limits strict = limit(subregion_get_xlimit, 8, 0, 9, 4);
    EXPECT_EQ(strict.found, -1);
    EXPECT_EQ(strict.first, 9);
    EXPECT_EQ(strict.last, 8);
    EXPECT_EQ(limit(subregion_get_ylimit, 0, 4, 9, 0).found, -1);
    // A rectangle over the whole 32-bit range answers at once, from the image's rows.
    const Limits whole = limit(subregion_get_ylimit, INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX);
    EXPECT_EQ(whole.found, 1);
    EXPECT_EQ(whole.first, 2);
    EXPECT_EQ(whole.last, 2);
}

TEST(SegmenterRefusals, UnsafeInputGivesAnEmptyListAndOneLine)
{
    auto m = mask_from({"##..", "##.."});
    auto s = segmenter_for(m);
    auto expect_refused = [&](const cv::Mat& mask, const char* why) {
        CapturedMessages out;
        EXPECT_FALSE(RLEsegm_segmentKAP(mask, s)) << why;
        EXPECT_EQ(out.lines(), 1) << out.text;
        EXPECT_EQ(out.text.rfind("RLEsegm_segmentKAP(): ", 0), 0u) << out.text;
        EXPECT_NE(out.text.find(why), std::string::npos) << out.text;
    };
    expect_refused(cv::Mat(2, 4, CV_8UC3, cv::Scalar(255, 255, 255)), "8-bit single-channel");
    expect_refused(cv::Mat(), "non-empty");
    expect_refused(m(cv::Rect(0, 0, 2, 2)), "lies outside");  // mask smaller than the region of interest
    RLEsegm_set_steps(s, 0, 1);
    expect_refused(m, "column step 0");
    RLEsegm_set_steps(s, 1, 1);  // and the segmenter still works: signed bytes, negative ones foreground too
    const std::shared_ptr<RLEblob> head = RLEsegm_segmentKAP(cv::Mat(2, 4, CV_8SC1, cv::Scalar(-5)), s);
    ASSERT_EQ(count_blobs(head), 1);
    EXPECT_EQ(head->npix, 8);
    RLEsegm_free_private(s);
    expect_refused(m, "not initialised");
}

namespace {

// The runs of a row as the column-by-column rule gives them: samples every
// step_x from xmin; a run found after the first sample begins just after the
// preceding background sample and, ending inside the row, ends on it.
Runs sampled_runs_by_rule(const uchar* row, int xmin, int xmax, int step)
{
    Runs runs;
    int back = 0;
    for (long x = xmin; x <= xmax;) {
        if (!row[x]) {
            x += step;
            continue;
        }
        int first = xmin;
        if (x != xmin) first = (back = static_cast<int>(x - step)) + 1;
        while (x <= xmax && row[x]) x += step;
        runs.emplace_back(first, x > xmax ? xmax : back);
    }
    return runs;
}

}  // namespace

TEST(RunExtraction, WideRowsSampledAtAnyStepFollowTheColumnRule)
{
    std::mt19937 rng(77);
    auto s = segmenter_for(cv::Mat(2, 700, CV_8UC1), 1, 1);
    for (int trial = 0; trial < 600; ++trial) {
        const int w = 1 + static_cast<int>(rng() % 700);
        cv::Mat m(2, w, CV_8UC1, cv::Scalar(0));
        // Foreground in stretches of assorted lengths, so samples meet runs
        // at every phase and chunk boundary.
        for (int x = 0; x < w;) {
            const int len = 1 + static_cast<int>(rng() % (trial % 3 == 0 ? 8 : 90));
            if (rng() % 2) std::fill_n(m.ptr<uchar>(0) + x, std::min(len, w - x), uchar(1 + rng() % 255));
            x += len;
        }
        const int step = 2 + static_cast<int>(rng() % 40);
        const int xmin = static_cast<int>(rng() % w), xmax = xmin + static_cast<int>(rng() % (w - xmin));
        RLEsegm_set_steps(s, step, 1);
        RLEsegm_set_ROI(xmin, 0, xmax, 0, s);
        RLEsegm_segmentKAP(m, s);
        Runs runs;
        for (auto line = s->rle_img->lines[0]; runs.size() < size_t(line->nb_segs);)
            runs.emplace_back(line->segs[runs.size()]->x_start, line->segs[runs.size()]->x_end);
        ASSERT_EQ(runs, sampled_runs_by_rule(m.ptr<uchar>(0), xmin, xmax, step))
            << "width " << w << " step " << step << " columns " << xmin << ".." << xmax;
    }
}
