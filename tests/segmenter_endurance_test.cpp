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

// Frame f and its blob count: one to five moving boxes in bands of columns;
// every 250th frame 300 dots (the pool grows) and then 30 (it is trimmed).
cv::Mat stream_frame(int f, int* blobs)
{
    cv::Mat m(kHeight, kWidth, CV_8UC1, cv::Scalar(0));
    if (f % 250 < 2) {
        *blobs = f % 250 ? 30 : 300;
        for (int i = 0; i < *blobs; ++i) m.at<uchar>(2 * (i / 32), 2 * (i % 32)) = 255;
        return m;
    }
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
#define NERVA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NERVA_ASAN 1
#endif
#endif
#ifdef NERVA_ASAN
constexpr bool kQuarantinedHeap = true;  // freed memory is held back: RSS is no measure
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
        const blob_ptr head = RLEsegm_segmentKAP(stream_frame(f, &expected), s);
        int count = 0;
        for (RLEblob* b = head.get(); b && count <= expected; b = b->next.get()) ++count;
        ASSERT_EQ(count, expected) << "frame " << f;
        ASSERT_LE(s->nb_pool_blobs, 300) << "frame " << f;
        ASSERT_TRUE(f % 250 != 2 || s->nb_pool_blobs == 29) << "not trimmed to the last blob used, frame " << f;
        if (f % 100 == 7) {
            blob_free(kept);
            kept = copy_blob(head);
            kept->next.reset();
            kept->prev.reset();
        }
    }
    blob_free(kept);
    RLEsegm_free_private(s);
    const long grown_kib = (resident_pages() - warm) * (sysconf(_SC_PAGESIZE) / 1024);
    EXPECT_TRUE(kQuarantinedHeap || grown_kib <= 256) << grown_kib << " KiB grown after warm-up";
}

// make check-thread runs this under ThreadSanitizer.
TEST(SegmenterConcurrency, FourSegmentersOnFourThreadsMatchOneThread)
{
    using Record = std::tuple<int, int, int, int, int, int, int>;  // npix, box, centre
    std::mt19937 rng(9);
    std::vector<cv::Mat> masks;
    for (int i = 0; i < 60; ++i) {
        cv::Mat m(kHeight, kWidth, CV_8UC1);
        for (auto it = m.begin<uchar>(); it != m.end<uchar>(); ++it) *it = rng() % 100 < 5 + 10u * (i % 9) ? 255 : 0;
        masks.push_back(m);
    }
    const int steps[][2] = {{1, 1}, {4, 2}, {2, 3}, {1, 4}};  // exact and sampled alike
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
