// What keeps a segmenter safe over months on a camera: meddling observers,
// held images, null segmenters, the memory ceiling, storage after a burst.
#include <gtest/gtest.h>
#include <algorithm>
#include <functional>
#include <random>

#include <opencv2/imgproc.hpp>

#include "nerva/segmentation/internal/segmenter_internal.h"
#include "segmenter_test_support.h"

using namespace segmenter_test;

namespace {

cv::Mat two_squares()
{
    cv::Mat m(40, 60, CV_8UC1, cv::Scalar(0));
    m(cv::Rect(2, 2, 10, 10)).setTo(255);
    m(cv::Rect(40, 20, 15, 15)).setTo(255);
    return m;
}

struct CallingObserver : Observer<CSegmentMessage> {
    std::function<void()> action = [] {};
    int calls = 0;
    void notify(CSegmentMessage*) override
    {
        ++calls;
        action();
    }
};

}  // namespace

// A host's observer on the stack may go out of scope before the segmenter,
// or the segmenter before the observer; the sanitizers' run catches any call
// through what either left behind.
TEST(SegmenterObservers, ObserversAndSegmenterForgetEachOtherWhicheverGoesFirst)
{
    const cv::Mat m = two_squares();
    auto s = segmenter_for(m);
    CallingObserver kept;
    {
        CallingObserver gone;
        s->add_observer(&gone);
        s->add_observer(&kept);
        s->add_observer(&gone);
    }
    EXPECT_EQ(s->observers.size(), 1u);
    RLEsegm_segmentKAP(m, s);
    EXPECT_EQ(kept.calls, 1);

    s.reset();
    auto other = segmenter_for(m);
    other->add_observer(&kept);
    other->remove_observer(&kept);
    EXPECT_TRUE(other->observers.empty());
}

TEST(RunLengthImageLifetime, AHeldImageNeverPointsIntoReleasedRunsNorPoolsReinitialisedUnderIt)
{
    const cv::Mat m = two_squares();
    std::shared_ptr<RLEimage> held;
    std::shared_ptr<RLEline> held_line;
    {
        auto s = segmenter_for(m);
        RLEsegm_segmentKAP(m, s);
        held = RLEsegm_get_rle_img(s);
        held_line = RLEimage_get_line(held, 5);
        ASSERT_EQ(held_line->nb_segs, 1);

        // Freeing keeps the emptied record (its size too) and re-initialising reuses it.
        RLEsegm_free_private(s);
        EXPECT_EQ(RLEsegm_get_rle_img(s), held);
        EXPECT_EQ(held->width, 60);
        EXPECT_EQ(held->height, 40);
        EXPECT_EQ(held->lines.size(), 0u);
        EXPECT_EQ(held_line->nb_segs, 0);
        EXPECT_EQ(held_line->segs, nullptr);
        RLEsegm_init_privateKAP(s, 0, m.cols - 1, 0, m.rows - 1, m.cols, m.rows);
        EXPECT_EQ(RLEsegm_get_rle_img(s), held);
        RLEsegm_segmentKAP(m, s);
    }  // the segmenter goes without RLEsegm_free_private
    EXPECT_EQ(held->lines[5]->nb_segs, 0);
    image* img = RLEimage_to_binaire(held, nullptr);
    ASSERT_NE(img, nullptr);
    EXPECT_EQ(cv::countNonZero(cv::Mat(img->height, img->width, CV_8UC3, img->data).reshape(1)), 0);
    destroy_image(img);

    // Many runs, then a smaller segment pool, then a smaller region of interest.
    cv::Mat stripes(200, 400, CV_8UC1, cv::Scalar(0));
    for (int x = 0; x < stripes.cols; x += 2) stripes.col(x).setTo(255);
    auto s = segmenter_for(stripes);
    RLEsegm_segmentKAP(stripes, s);
    RLEsegm_seg_pool_init(1000, s);
    for (const auto& line : s->rle_img->lines) EXPECT_EQ(line->nb_segs, 0);

    CapturedMessages out;
    s->RLEsegm_build_RLElineKAP(50, two_squares());  // 40 rows in the mask
    s->RLEsegm_build_RLElineKAP(-1, stripes);
    EXPECT_EQ(out.lines(), 2);
    EXPECT_NE(out.text.find("RLEsegm_build_RLElineKAP(): row 50 lies outside the 60x40 mask"), std::string::npos)
        << out.text;
}

TEST(SegmenterRefusals, NullSegmenterIsRefusedWithOneLineEach)
{
    segm_ptr none;
    CapturedMessages out;
    RLEsegm_init_privateKAP(none, 0, 9, 0, 9, 10, 10);
    EXPECT_TRUE(RLEsegm_reg_pool_init(5, none).empty());
    EXPECT_TRUE(RLEsegm_seg_pool_init(5, none).empty());
    for (auto f : {RLEsegm_reset, RLEsegm_free_private, RLEsegm_increase_blobs_number, RLEsegm_decrease_blobs_number,
                   RLEreset_blob_idents})
        f(none);
    RLEsegm_set_steps(none, 1, 1);
    RLEsegm_set_ROI(0, 0, 1, 1, none);
    set_segs_in_regsKAP(none, 10);
    for (auto f : {RLEsegm_blob_list_append, RLEsegm_blob_list_append_to_head, RLEsegm_blob_list_remove_blob})
        f(blob_new(), none);
    EXPECT_EQ(RLEsegm_segmentKAP(two_squares(), none), nullptr);
    EXPECT_EQ(RLEsegm_get_rle_img(none), nullptr);
    EXPECT_EQ(RLEsegm_regions2blobsKAP(0, 0, none), nullptr);
    EXPECT_EQ(RLEsegm_get_new_blob(none), nullptr);
    EXPECT_EQ(RLEsegm_get_region(0, none), nullptr);
    EXPECT_EQ(RLEsegm_get_blobs_number(none), -1);
    double sx = 7, sy = 7;
    int lo = 0, hi = 0;
    EXPECT_EQ(subregion_get_sumxsumy(0, 0, 0, 9, 9, &sx, &sy, none), 0);
    EXPECT_EQ(sx, 0.0);
    EXPECT_EQ(sy, 0.0);
    EXPECT_EQ(subregion_get_sumx(0, 0, 0, 9, 9, none), 0.0);
    EXPECT_EQ(subregion_get_sumy(0, 0, 0, 9, 9, none), 0.0);
    for (auto f : {subregion_get_xlimit, subregion_get_ylimit}) EXPECT_EQ(f(0, 0, 0, 9, 9, &lo, &hi, none), -1);
    EXPECT_EQ(out.lines(), 25);
    EXPECT_NE(out.text.find("RLEsegm_reset(): null segmenter; nothing done\n"), std::string::npos);
}

TEST(SegmenterLimits, MemoryCeilingRefusesTheFrameAndKeepsThePools)
{
    const cv::Mat board = cv::repeat(cv::Mat((cv::Mat_<uchar>(2, 2) << 0, 255, 255, 0)), 256, 256);
    auto s = segmenter_for(board);
    RLEsegm_set_memory_ceiling(s, 64u << 20);
    cv::Mat ordinary(board.size(), CV_8UC1, cv::Scalar(0));
    two_squares().copyTo(ordinary(cv::Rect(0, 0, 60, 40)));
    EXPECT_EQ(count_blobs(RLEsegm_segmentKAP(ordinary, s)), 2);
    const size_t segs = s->seg_pool.size(), regs = s->reg_pool.size();
    {
        CapturedMessages out;
        EXPECT_EQ(RLEsegm_segmentKAP(board, s), nullptr);  // 131072 one-pixel regions
        EXPECT_EQ(out.lines(), 1);
        EXPECT_NE(out.text.find("above the memory ceiling of 67108864; nothing segmented"), std::string::npos)
            << out.text;
    }
    EXPECT_EQ(s->seg_pool.size(), segs);
    EXPECT_EQ(s->reg_pool.size(), regs);
    EXPECT_EQ(count_blobs(RLEsegm_segmentKAP(ordinary, s)), 2);  // nothing lost

    // Without a ceiling the frame is segmented; the pool-full notice can be one counted line.
    RLEsegm_set_memory_ceiling(s, 0);
    RLEsegm_count_reused_blobs(s, true);
    CapturedMessages out;
    EXPECT_EQ(count_blobs(RLEsegm_segmentKAP(board, s)), 2000);
    EXPECT_EQ(RLEsegm_get_reused_blobs(s), 131072 - 2000);
    EXPECT_EQ(out.text, "RLEsegm_get_new_blob(): too many blobs !Last blob reused. (129072 times in this frame)\n");
    RLEsegm_segmentKAP(ordinary, s);
    EXPECT_EQ(RLEsegm_get_reused_blobs(s), 0);
}

namespace {

// Row index entries and region lines a segmenter holds between frames: what
// a burst of tall or crowded frames would leave resident if never trimmed.
size_t row_index_entries(const MV_RLEsegm& s)
{
    size_t entries = 0;
    for (const auto& r : s.reg_pool)
        if (r) entries += r->reg_lines.capacity();
    return entries;
}
size_t region_lines_held(const MV_RLEsegm& s)
{
    size_t lines = 0;
    for (const auto& chunk : s.work->region_lines.chunks) lines += chunk.size;
    return lines;
}

// People-sized blobs at random places.
const cv::Mat& ordinary_frame(cv::Mat& m, std::mt19937& rng)
{
    m.setTo(0);
    for (int i = 0; i < 25; ++i) {
        const int w = 10 + static_cast<int>(rng() % 120), h = 20 + static_cast<int>(rng() % 300);
        const int x = static_cast<int>(rng() % static_cast<unsigned>(m.cols - w));
        const int y = static_cast<int>(rng() % static_cast<unsigned>(m.rows - h));
        cv::ellipse(m, cv::Point(x + w / 2, y + h / 2), cv::Size(w / 2, h / 2), 0, 0, 360, cv::Scalar(255), -1);
    }
    return m;
}

// Dots in the top rows push 45 full-height stripes to region numbers that
// change with k: every burst frame gives other pool regions a tall row index.
const cv::Mat& burst_frame(cv::Mat& m, int k)
{
    m.setTo(0);
    for (int i = 0; i < 1500 * k; ++i) m.at<uint8_t>(2 * (i / 960), 2 * (i % 960)) = 255;
    for (int i = 0; i < 45; ++i) m(cv::Rect(40 * i + 5, 80, 3, m.rows - 80)).setTo(255);
    return m;
}

}  // namespace

TEST(SegmenterSoak, StorageHeldReturnsAfterABurstOfTallAndManyRegions)
{
    auto s = segmenter_for(1920, 1080);
    RLEsegm_count_reused_blobs(s, true);
    CapturedMessages quiet;
    cv::Mat m(1080, 1920, CV_8UC1);
    std::mt19937 rng(7);
    for (int f = 0; f < 40; ++f) RLEsegm_segmentKAP(ordinary_frame(m, rng), s);
    const size_t index_before = row_index_entries(*s);
    const size_t lines_before = region_lines_held(*s);
    for (int k = 0; k < 30; ++k) EXPECT_GE(count_blobs(RLEsegm_segmentKAP(burst_frame(m, k), s)), 45);
    for (int f = 0; f < 40; ++f) RLEsegm_segmentKAP(ordinary_frame(m, rng), s);
    // Without trimming, 1350 regions would keep 1000-row indexes.
    EXPECT_LT(row_index_entries(*s), index_before + 100000) << "before " << index_before;
    EXPECT_LE(region_lines_held(*s), std::max<size_t>(2 * lines_before, 1 << 16)) << "before " << lines_before;
    EXPECT_LE(s->work->spare_blobs.size(), 128u);
}
