// A segmenter over a long stream, and segmenters side by side on threads:
// nothing leaks (LeakSanitizer in make check-sanitize), resident memory stays
// flat once the pools are warm, and separate segmenters share nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

constexpr int kWidth = 64, kHeight = 48;

segm_ptr make_segmenter()
{
    auto s = std::make_shared<MV_RLEsegm>();
    RLEsegm_init_privateKAP(s, 0, kWidth - 1, 0, kHeight - 1, kWidth, kHeight);
    RLEsegm_set_steps(s, 1, 1);
    return s;
}

// Isolated single pixels on every other row and column, `n` of them at most.
cv::Mat dots(int n)
{
    cv::Mat m(kHeight, kWidth, CV_8UC1, cv::Scalar(0));
    for (int i = 0; i < n && i < (kWidth / 2) * (kHeight / 2); ++i) m.at<uchar>(2 * (i / 32), 2 * (i % 32)) = 255;
    return m;
}

// Frame f of the stream and the number of blobs it holds: mostly one to five
// moving boxes, each in its own band of columns; every 250th frame 300 dots
// (the blob pool grows far past 20) followed by 30 dots (the pool is trimmed
// back; blobs are large records, so this churn is kept occasional).
cv::Mat stream_frame(int f, int* blobs)
{
    if (f % 250 == 0) return *blobs = 300, dots(300);
    if (f % 250 == 1) return *blobs = 30, dots(30);
    cv::Mat m(kHeight, kWidth, CV_8UC1, cv::Scalar(0));
    *blobs = f % 5 + 1;
    for (int k = 0; k < *blobs; ++k) m(cv::Rect(12 * k + (f + k) % 4, (f * (k + 1)) % 30, 7, 5 + k * 3)).setTo(1 + k);
    return m;
}

long resident_pages()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = -1;
    statm >> size >> resident;
    return resident;
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kQuarantinedHeap = true;  // freed memory is held back: RSS is no measure
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kQuarantinedHeap = true;
#else
constexpr bool kQuarantinedHeap = false;
#endif
#else
constexpr bool kQuarantinedHeap = false;
#endif

}  // namespace

TEST(SegmenterEndurance, TenThousandFramesStayExactWithoutGrowth)
{
    auto s = make_segmenter();
    blob_ptr kept;  // a host keeping a copy of one blob now and then
    long warm = 0;
    for (int f = 0; f < 10000; ++f) {
        if (f == 1000) warm = resident_pages();
        int expected = 0;
        const cv::Mat mask = stream_frame(f, &expected);
        const blob_ptr head = RLEsegm_segmentKAP(mask, s);
        int count = 0;
        for (RLEblob* b = head.get(); b && count <= expected; b = b->next.get()) ++count;
        ASSERT_EQ(count, expected) << "frame " << f;
        ASSERT_LE(s->nb_pool_blobs, 300) << "frame " << f;
        if (f % 250 == 2) {
            ASSERT_EQ(s->nb_pool_blobs, 29) << "trimmed to the last blob used, frame " << f;
        }
        if (f % 100 == 7) {
            blob_free(kept);
            kept = copy_blob(head);
            kept->next.reset();
            kept->prev.reset();
        }
    }
    blob_free(kept);
    RLEsegm_free_private(s);

    // Under AddressSanitizer leak checking at exit stands in for this.
    if (!kQuarantinedHeap) {
        const long growth_kib = (resident_pages() - warm) * (sysconf(_SC_PAGESIZE) / 1024);
        EXPECT_LE(growth_kib, 256) << "resident memory grew after warm-up";
    }
}

// One segmenter per thread over the same masks: every thread's results match
// the single-threaded run exactly. make check-thread runs this under
// ThreadSanitizer.
TEST(SegmenterConcurrency, FourSegmentersOnFourThreadsMatchOneThread)
{
    using Record = std::tuple<int, int, int, int, int, int, int>;  // npix, box, centre
    std::mt19937 rng(9);
    std::vector<cv::Mat> masks;
    for (int i = 0; i < 60; ++i) {
        cv::Mat m(kHeight, kWidth, CV_8UC1);
        const unsigned density = 5 + 10 * (i % 9);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) m.at<uchar>(y, x) = rng() % 100 < density ? 255 : 0;
        masks.push_back(m);
    }
    // Exact and sampled steps alike, the same sequence for every segmenter.
    const int steps[][2] = {{1, 1}, {4, 2}, {2, 3}, {1, 4}};

    auto run = [&](std::vector<std::vector<Record>>& out) {
        auto s = make_segmenter();
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
