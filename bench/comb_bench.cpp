// The worst case of run labelling: a "comb", one-pixel stripes one column
// apart closed by a bar along the bottom row, so that every stripe's region
// merges into one on the last row. Timed against OpenCV's labelling of the
// same mask; nerva should stay within a small multiple of it.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include "nerva/nerva.h"

namespace {

constexpr int kCombWidth = 65536;
constexpr int kCombHeight = 64;

cv::Mat comb(int width, int height)
{
    cv::Mat m(height, width, CV_8UC1, cv::Scalar(0));
    for (int x = 0; x < width; x += 2) m.col(x).setTo(255);
    m.row(height - 1).setTo(255);
    return m;
}

void comb_nerva(benchmark::State& state)
{
    const cv::Mat m = comb(kCombWidth, kCombHeight);
    auto s = std::make_shared<nerva::MV_RLEsegm>();
    nerva::RLEsegm_init_privateKAP(s, 0, m.cols - 1, 0, m.rows - 1, m.cols, m.rows);
    nerva::RLEsegm_set_steps(s, 1, 1);
    nerva::RLEsegm_segmentKAP(m, s);  // pools at their size for this mask
    for (auto _ : state) benchmark::DoNotOptimize(nerva::RLEsegm_segmentKAP(m, s).get());
}

void comb_opencv(benchmark::State& state)
{
    const cv::Mat m = comb(kCombWidth, kCombHeight);
    cv::Mat labels, stats, centroids;
    for (auto _ : state)
        benchmark::DoNotOptimize(cv::connectedComponentsWithStats(m, labels, stats, centroids, 4, CV_32S));
}

}  // namespace

BENCHMARK(comb_nerva)->Name("comb 65536x64 (stripes closed by a bar) nerva 1,1")->Unit(benchmark::kMillisecond);
BENCHMARK(comb_opencv)->Name("comb 65536x64 (stripes closed by a bar) cv4 DEFAULT")->Unit(benchmark::kMillisecond);
