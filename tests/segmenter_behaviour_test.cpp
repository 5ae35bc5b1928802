// The segmenter's specified behaviours that a host depends on: sampling
// quirks, holes, merges, the blob pool and its trimming, statistics,
// observers, measures, and the refusals of unsafe input.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

// '#' (or any non-space, non-'.') is foreground.
cv::Mat mask_from(const std::vector<std::string>& rows)
{
    cv::Mat m(static_cast<int>(rows.size()), static_cast<int>(rows[0].size()), CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < m.rows; ++y)
        for (int x = 0; x < m.cols; ++x) m.at<uchar>(y, x) = rows[y][x] == '.' ? 0 : 200;
    return m;
}

segm_ptr segmenter_for(const cv::Mat& m, int step_x = 1, int step_y = 1)
{
    auto s = std::make_shared<MV_RLEsegm>();
    RLEsegm_init_privateKAP(s, 0, m.cols - 1, 0, m.rows - 1, m.cols, m.rows);
    RLEsegm_set_steps(s, step_x, step_y);
    return s;
}

using Runs = std::vector<std::pair<int, int>>;

Runs runs_of_row(segm_ptr s, int y)
{
    Runs runs;
    auto line = RLEimage_get_line(s->rle_img, y);
    for (int k = 0; k < line->nb_segs; ++k) runs.emplace_back(line->segs[k]->x_start, line->segs[k]->x_end);
    return runs;
}

std::vector<RLEblob*> blobs_of(std::shared_ptr<RLEblob> head)
{
    std::vector<RLEblob*> v;
    for (RLEblob* b = head.get(); b; b = b->next.get()) v.push_back(b);
    return v;
}

// A mask with `n` separate single-pixel blobs.
cv::Mat dots(int n)
{
    cv::Mat m(2 * ((n + 49) / 50), 100, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < n; ++i) m.at<uchar>(2 * (i / 50), 2 * (i % 50)) = 1;
    return m;
}

// Several values of mixed integer types, compared in one go.
template <typename... T>
std::vector<long long> vals(T... v)
{
    return {static_cast<long long>(v)...};
}

struct CountingObserver : Observer<CSegmentMessage> {
    int calls = 0;
    CSegmentMessage last{nullptr};
    void notify(CSegmentMessage* msg) override
    {
        ++calls;
        last = *msg;
    }
};

}  // namespace

TEST(SegmenterLifecycle, ConstructionAndInitialisation)
{
    auto s = std::make_shared<MV_RLEsegm>();
    EXPECT_EQ(vals(RLEsegm_get_blobs_number(s), s->nb_blobs_cur, s->blob_area_cur, s->nb_blobs_prev,
                   s->blob_area_prev, s->step_x, s->step_y, s->blob_pool.size()),
              vals(0, -1, -1, -1, -1, 4, 2, 2000));
    EXPECT_EQ(s->msg.sender, s.get());

    RLEsegm_init_privateKAP(s, 10, 100, 20, 200, 320, 240);  // x bounds first, unlike set_ROI
    EXPECT_EQ(vals(s->roi_xmin, s->roi_ymin, s->roi_xmax, s->roi_ymax, s->rle_img->width, s->rle_img->lines.size()),
              vals(10, 20, 100, 200, 320, 240));
    EXPECT_EQ(vals(s->seg_pool.size(), s->reg_pool.size(), s->reg_pool[123]->ident, s->last_blob),
              vals(100000, 50000, 123, -1));

    RLEsegm_decrease_blobs_number(s);
    EXPECT_EQ(RLEsegm_get_blobs_number(s), -1);  // no lower bound
}

TEST(RunExtraction, ExactRunsWithUnitSteps)
{
    auto m = mask_from({"...###..#.", "......####"});
    auto s = segmenter_for(m);
    RLEsegm_segmentKAP(m, s);
    EXPECT_EQ(runs_of_row(s, 0), (Runs{{3, 5}, {8, 8}}));
    EXPECT_EQ(runs_of_row(s, 1), (Runs{{6, 9}}));  // ends at roi_xmax
    EXPECT_EQ(s->nb_segs, 3);
    EXPECT_EQ(RLEimage_get_line(s->rle_img, 1)->segs, &s->seg_pool[2]);  // lines are slices of the pool
}

TEST(RunExtraction, ColumnSamplingStoresRunsBegunBetweenSamplesAsEmpty)
{
    auto inside = mask_from({"........########...."});
    auto s = segmenter_for(inside, 4, 1);
    RLEsegm_segmentKAP(inside, s);
    EXPECT_EQ(runs_of_row(s, 0), (Runs{{5, 4}}));

    auto to_edge = mask_from({"........############"});
    RLEsegm_segmentKAP(to_edge, s);
    EXPECT_EQ(runs_of_row(s, 0), (Runs{{5, 19}}));

    // A run found at the first sample ends on the back-column's initial 0.
    auto from_start = mask_from({"........######......##..."});
    auto s2 = segmenter_for(from_start, 4, 1);
    RLEsegm_set_ROI(8, 0, 24, 0, s2);
    RLEsegm_segmentKAP(from_start, s2);
    EXPECT_EQ(runs_of_row(s2, 0), (Runs{{8, 0}, {17, 16}}));
}

TEST(RunExtraction, RowSamplingBackFillsAndReturnsToSparse)
{
    // Rows 5-7 hold a blob; the dot on row 9 lies on a row sparse mode skips.
    auto m = mask_from({"..........", "..........", "..........", "..........", "..........", "...##.....",
                        "...##.....", "...##.....", "..........", ".#........"});
    auto s = segmenter_for(m, 1, 2);
    CountingObserver obs;
    s->add_observer(&obs);
    auto head = RLEsegm_segmentKAP(m, s);
    ASSERT_EQ(blobs_of(head).size(), 1u);
    // Row 5 back-filled, row 7 read densely.
    EXPECT_EQ(vals(head->npix, head->bbox.ymin, head->bbox.ymax), vals(6, 5, 7));
    EXPECT_EQ(RLEimage_get_line(s->rle_img, 9)->nb_segs, 0);

    // Odd rows are never read while nothing is found on even rows; the
    // observers are notified also when nothing is found.
    auto odd = mask_from({"..........", "####......", "..........", "...#......"});
    auto s2 = segmenter_for(odd, 1, 2);
    s2->add_observer(&obs);
    EXPECT_EQ(RLEsegm_segmentKAP(odd, s2), nullptr);
    EXPECT_EQ(s2->nb_segs, 0);
    EXPECT_EQ(vals(obs.calls, obs.last.type, obs.last.arg1, obs.last.arg2), vals(2, 1, -1, -1));
    s2->remove_observer(&obs);
    RLEsegm_segmentKAP(odd, s2);
    EXPECT_EQ(obs.calls, 2);

    // A row step of 0 reads every row.
    RLEsegm_set_steps(s2, 1, 0);
    EXPECT_EQ(blobs_of(RLEsegm_segmentKAP(odd, s2)).size(), 2u);
}

TEST(Labelling, ConnectivityMergesAndSurvivors)
{
    auto diagonal = mask_from({"..###.....", ".....###.."});
    auto s = segmenter_for(diagonal);
    EXPECT_EQ(blobs_of(RLEsegm_segmentKAP(diagonal, s)).size(), 2u);  // 4-connected only

    auto overlap = mask_from({"..###.....", "....######"});
    auto head = RLEsegm_segmentKAP(overlap, s);
    ASSERT_EQ(blobs_of(head).size(), 1u);
    EXPECT_EQ(vals(head->npix, head->bbox.xmin, head->bbox.xmax, head->bbox.ymax), vals(9, 2, 9, 1));

    auto u = mask_from({"##...##...", "#######..."});
    head = RLEsegm_segmentKAP(u, s);
    ASSERT_EQ(blobs_of(head).size(), 1u);
    auto left = RLEsegm_get_region(0, s), right = RLEsegm_get_region(1, s);
    EXPECT_EQ(head->fathers[0], 0);  // the region created first survives
    EXPECT_EQ(right->absorber, left);
    EXPECT_FALSE(left->absorber);
    for (int k = 0; k < s->nb_segs; ++k) EXPECT_FALSE(s->seg_pool[k]->owner->absorber);

    auto gap = mask_from({"..##......", "..........", "..##......"});
    EXPECT_EQ(blobs_of(RLEsegm_segmentKAP(gap, segmenter_for(gap))).size(), 2u);
}

TEST(Labelling, HolesIncludingTheFirstRowSelfPairing)
{
    auto o = mask_from({"#####.....", "#...#.....", "#####....."});
    auto s = segmenter_for(o);
    auto head = RLEsegm_segmentKAP(o, s);
    ASSERT_EQ(blobs_of(head).size(), 1u);
    EXPECT_EQ(RLEsegm_get_region(head->fathers[0], s)->nholes, 1);

    // Three runs on the first non-empty row: the self-pairing counts a hole
    // on the regions of the first and second runs.
    auto three = mask_from({"..........", "#.#.#.....", "..........", ".........."});
    ASSERT_EQ(blobs_of(RLEsegm_segmentKAP(three, s)).size(), 3u);
    EXPECT_EQ(vals(RLEsegm_get_region(0, s)->nholes, RLEsegm_get_region(1, s)->nholes,
                   RLEsegm_get_region(2, s)->nholes),
              vals(1, 1, 0));
    EXPECT_EQ(RLEsegm_get_region(0, s)->hole, RLEsegm_get_region(1, s));
}

TEST(RegionsToBlobs, FieldsFilterAndRegionLines)
{
    auto m = mask_from({"#####.....###", ".#####......."});
    auto s = segmenter_for(m);
    auto head = RLEsegm_segmentKAP(m, s);
    auto blobs = blobs_of(head);
    ASSERT_EQ(blobs.size(), 2u);
    EXPECT_EQ(head, s->blob_pool[0]);
    EXPECT_EQ(blobs[1]->prev.get(), blobs[0]);
    // Centre 2.5 truncated; box areas, not pixel counts, are summed.
    EXPECT_EQ(vals(blobs[0]->ident, blobs[1]->ident, blobs[0]->npix, blobs[0]->xc, blobs[0]->yc,
                   blobs[0]->nb_fathers, s->nb_blobs_cur, s->blob_area_cur),
              vals(0, 1, 10, 2, 0, 1, 2, 6 * 2 + 3 * 1));
    EXPECT_EQ(blobs[0]->sumx, 25.0);
    EXPECT_EQ(blobs[0]->npix_real, 10.0);

    auto big = RLEsegm_get_region(0, s);
    ASSERT_EQ(big->reg_lines.size(), 2u);
    EXPECT_EQ(vals(big->reg_lines[1]->y, big->reg_lines[1]->nb_segs, big->reg_lines[1]->first_seg), vals(1, 1, 0));
    EXPECT_EQ(RLEsegm_get_region(1, s)->reg_lines[0]->first_seg, 1);  // second run of row 0

    s->min_blob_side = 2;  // the 3x1 blob has height 1
    EXPECT_EQ(blobs_of(RLEsegm_segmentKAP(m, s)).size(), 1u);
    s->min_blob_side = 0;
    s->min_blob_pixels = 4;
    EXPECT_EQ(blobs_of(RLEsegm_segmentKAP(m, s)).size(), 1u);

    EXPECT_TRUE(RLEsegm_get_region(s->nb_regs, s));
    EXPECT_FALSE(RLEsegm_get_region(s->nb_regs + 1, s));
    EXPECT_FALSE(RLEsegm_get_region(-1, s));
}

TEST(RegionsToBlobs, PoolTrimmingBoundary)
{
    struct Case {
        int pool, used, expect_after;
    };
    // (created blobs, blobs used in the last frame) -> created blobs after the next reset
    for (Case c : {Case{45, 30, 29}, Case{40, 30, 29}, Case{39, 30, 39}, Case{60, 20, 60}}) {
        auto first = dots(c.pool);
        auto s = segmenter_for(first);
        RLEsegm_segmentKAP(first, s);
        ASSERT_EQ(s->nb_pool_blobs, c.pool);
        auto second = dots(c.used);
        cv::Mat padded(first.rows, first.cols, CV_8UC1, cv::Scalar(0));
        second.copyTo(padded(cv::Rect(0, 0, second.cols, second.rows)));
        RLEsegm_segmentKAP(padded, s);
        EXPECT_EQ(s->last_blob, c.used - 1);
        RLEsegm_reset(s);
        EXPECT_EQ(s->nb_pool_blobs, c.expect_after) << c.pool << "/" << c.used;
        EXPECT_FALSE(s->blob_pool[c.expect_after]);
        EXPECT_TRUE(s->blob_pool[c.expect_after - 1]);
    }
}

TEST(RegionsToBlobs, BlobsHandedOutAfterTrimmingAreAsNew)
{
    auto many = dots(45), few = dots(30);
    cv::Mat padded(many.rows, many.cols, CV_8UC1, cv::Scalar(0));
    few.copyTo(padded(cv::Rect(0, 0, few.cols, few.rows)));
    auto s = segmenter_for(many);
    for (RLEblob* b : blobs_of(RLEsegm_segmentKAP(many, s))) {
        b->info[0] = 'x';  // host data that segmentation does not write
        b->measures[3] = 5;
    }
    RLEsegm_segmentKAP(padded, s);
    RLEsegm_reset(s);  // trims the pool to 29 blobs
    auto again = blobs_of(RLEsegm_segmentKAP(many, s));
    ASSERT_EQ(again.size(), 45u);
    EXPECT_EQ(again[28]->info[0], 'x');  // a kept blob keeps what the host wrote
    for (size_t i = 29; i < again.size(); ++i) {
        EXPECT_EQ(again[i]->info[0], 0) << i;
        EXPECT_EQ(again[i]->measures[3], 0) << i;
        EXPECT_EQ(again[i]->ident, static_cast<int>(i));
    }
}

TEST(RegionsToBlobs, PoolFullReusesTheLastBlobWithoutLoopingTheList)
{
    auto m = dots(2003);
    auto s = segmenter_for(m);
    testing::internal::CaptureStderr();
    auto head = RLEsegm_segmentKAP(m, s);
    const std::string err = testing::internal::GetCapturedStderr();
    std::string expected;
    for (int i = 0; i < 3; ++i) expected += "RLEsegm_get_new_blob(): too many blobs !Last blob reused.\n";
    EXPECT_EQ(err, expected);
    EXPECT_EQ(s->nb_blobs, 2003);
    EXPECT_EQ(blobs_of(head).size(), 2000u);
    EXPECT_EQ(s->nb_blobs_cur, 2000);
    EXPECT_EQ(s->blob_tail, s->blob_pool[1999]);
    EXPECT_EQ(s->blob_pool[1999]->fathers[0], 2002);  // overwritten by the last region
}

TEST(SegmenterStatistics, EmptyFramesAndDensities)
{
    auto one = mask_from({"##..", "##.."});
    auto none = mask_from({"....", "...."});
    auto s = segmenter_for(one);
    rectangle* r = make_rectangle(0, 0, 2, 4);
    s->densities[r] = 16.0;
    auto stats = [&] { return vals(s->nb_blobs_cur, s->blob_area_cur, s->nb_blobs_prev, s->blob_area_prev); };

    RLEsegm_segmentKAP(one, s);
    EXPECT_EQ(stats(), vals(1, 4, -1, -1));
    EXPECT_EQ(s->densities[r], 2.0);

    EXPECT_EQ(RLEsegm_segmentKAP(none, s), nullptr);
    EXPECT_EQ(stats(), vals(0, 0, 1, 4));
    EXPECT_EQ(s->densities[r], 2.0);  // untouched on an empty frame

    RLEsegm_segmentKAP(one, s);
    EXPECT_EQ(s->densities[r], 0.25);  // rescaled again every frame
    free_rectangle(r);
}

TEST(SegmenterBlobList, AppendToHeadAndRemove)
{
    auto s = std::make_shared<MV_RLEsegm>();
    auto a = blob_new(), b = blob_new(), c = blob_new();
    RLEsegm_blob_list_append(a, s);
    RLEsegm_blob_list_append(b, s);
    RLEsegm_blob_list_append_to_head(c, s);
    EXPECT_TRUE(s->blob_head == c && c->next == a && a->prev == c && s->blob_tail == b);
    EXPECT_EQ(s->nb_blobs, 3);

    RLEsegm_blob_list_remove_blob(a, s);
    EXPECT_TRUE(c->next == b && b->prev == c);
    RLEsegm_blob_list_remove_blob(b, s);
    EXPECT_EQ(s->blob_tail, c);
    RLEsegm_blob_list_remove_blob(c, s);
    EXPECT_FALSE(s->blob_head);
    RLEsegm_blob_list_remove_blob(c, s);  // empty list: nothing happens
    EXPECT_EQ(s->nb_blobs, 0);
    for (auto& x : {a, b, c}) x->next.reset(), x->prev.reset();
}

TEST(SubregionMeasures, SumsAndLimits)
{
    auto m = mask_from({"..........", "..........", "..........", "..........", "..........", "..#######.",
                        "..........", "..........", "..........", ".........."});
    auto s = segmenter_for(m);
    const int id = RLEsegm_segmentKAP(m, s)->fathers[0];
    double sx = -1, sy = -1;
    EXPECT_EQ(subregion_get_sumxsumy(id, 4, 0, 6, 9, &sx, &sy, s), 3);
    EXPECT_TRUE(sx == 15.0 && sy == 15.0);
    EXPECT_EQ(subregion_get_sumx(id, 4, 0, 6, 9, s), 15.0);
    EXPECT_EQ(subregion_get_sumy(id, 4, 0, 6, 9, s), 15.0);
    EXPECT_EQ(subregion_get_sumxsumy(id, 0, 9, 9, 0, &sx, &sy, s), 0);
    EXPECT_EQ(sx, 0.0);

    // The run ends exactly at x1 = 8: counted by the sums and the vertical
    // scan, ignored by the strict horizontal scan.
    EXPECT_EQ(subregion_get_sumxsumy(id, 8, 0, 9, 9, &sx, &sy, s), 1);
    int a = -1, b = -1;
    EXPECT_EQ(subregion_get_ylimit(id, 8, 0, 9, 9, &a, &b, s), 1);
    EXPECT_EQ(vals(a, b), vals(5, 5));
    EXPECT_EQ(subregion_get_xlimit(id, 8, 0, 9, 9, &a, &b, s), -1);
    EXPECT_EQ(vals(a, b), vals(9, 8));
    EXPECT_EQ(subregion_get_xlimit(id, 3, 0, 6, 9, &a, &b, s), 1);
    EXPECT_EQ(vals(a, b), vals(3, 6));
    EXPECT_EQ(subregion_get_ylimit(id, 0, 9, 9, 0, &a, &b, s), -1);

    // A rectangle over the whole 32-bit range answers at once, from the image's rows.
    EXPECT_EQ(subregion_get_ylimit(id, INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX, &a, &b, s), 1);
    EXPECT_EQ(vals(a, b), vals(5, 5));
}

TEST(SegmenterRefusals, UnsafeInputGivesAnEmptyListAndOneLine)
{
    auto m = mask_from({"##..", "##.."});
    auto s = segmenter_for(m);
    auto expect_refused = [&](const cv::Mat& mask, const char* what) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(RLEsegm_segmentKAP(mask, s), nullptr) << what;
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << what << ": " << err;
        EXPECT_NE(err.find("RLEsegm_segmentKAP()"), std::string::npos) << err;
    };
    expect_refused(cv::Mat(2, 4, CV_8UC3, cv::Scalar(255, 255, 255)), "colour mask");
    expect_refused(cv::Mat(2, 4, CV_16UC1, cv::Scalar(1)), "16-bit mask");
    expect_refused(cv::Mat(), "empty mask");
    expect_refused(m(cv::Rect(0, 0, 2, 2)), "mask smaller than the region of interest");
    RLEsegm_set_ROI(0, 0, 4, 1, s);
    expect_refused(m, "region of interest past the last column");
    RLEsegm_set_ROI(-1, 0, 3, 1, s);
    expect_refused(m, "negative region of interest");
    RLEsegm_set_ROI(0, 0, 3, 1, s);
    RLEsegm_set_steps(s, 0, 1);
    expect_refused(m, "column step 0");
    RLEsegm_set_steps(s, 1, 1);
    EXPECT_TRUE(RLEsegm_segmentKAP(m, s));  // and the segmenter still works

    RLEsegm_free_private(s);
    expect_refused(m, "freed segmenter");
    auto never_initialised = std::make_shared<MV_RLEsegm>();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RLEsegm_segmentKAP(m, never_initialised), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("not initialised"), std::string::npos);
}
