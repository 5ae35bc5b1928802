#include "contenders.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "nerva/nerva.h"

std::vector<Contender> contenders()
{
    std::vector<Contender> c;
    auto nerva_with_steps = [](int sx, int sy) {
        return [sx, sy](cv::Size size) {
            auto s = std::make_shared<nerva::MV_RLEsegm>();
            nerva::RLEsegm_init_privateKAP(s, 0, size.width - 1, 0, size.height - 1, size.width, size.height);
            nerva::RLEsegm_set_steps(s, sx, sy);
            return std::function<void(const cv::Mat&)>(
                [s](const cv::Mat& m) { benchmark::DoNotOptimize(nerva::RLEsegm_segmentKAP(m, s).get()); });
        };
    };
    c.push_back({"nerva 1,1", nerva_with_steps(1, 1)});
    c.push_back({"nerva 4,2", nerva_with_steps(4, 2)});
    const std::pair<const char*, int> algorithms[] = {
        {"SAUF", cv::CCL_SAUF},   {"BBDT", cv::CCL_BBDT},       {"Spaghetti", cv::CCL_SPAGHETTI}, {"WU", cv::CCL_WU},
        {"GRANA", cv::CCL_GRANA}, {"BOLELLI", cv::CCL_BOLELLI}, {"DEFAULT", cv::CCL_DEFAULT}};
    auto opencv = [](int connectivity, int algorithm) {
        return [connectivity, algorithm](cv::Size) {
            auto buffers = std::make_shared<std::vector<cv::Mat>>(3);
            return std::function<void(const cv::Mat&)>([buffers, connectivity, algorithm](const cv::Mat& m) {
                auto& b = *buffers;
                benchmark::DoNotOptimize(
                    cv::connectedComponentsWithStats(m, b[0], b[1], b[2], connectivity, CV_32S, algorithm));
            });
        };
    };
    for (const auto& a : algorithms) c.push_back({std::string("cv4 ") + a.first, opencv(4, a.second)});
    c.push_back({"cv8 DEFAULT", opencv(8, cv::CCL_DEFAULT)});
    // OpenCV labels on every core it may use, nerva on one: the same call
    // held to one thread is the comparison core for core. Not a "cv4 "
    // contender, so never the fastest one the tables compare with.
    c.push_back({"1-thread cv4 DEFAULT", [opencv](cv::Size size) {
                     auto label = opencv(4, cv::CCL_DEFAULT)(size);
                     return std::function<void(const cv::Mat&)>([label](const cv::Mat& m) {
                         const int threads = cv::getNumThreads();
                         cv::setNumThreads(1);
                         label(m);
                         cv::setNumThreads(threads);
                     });
                 }});
    c.push_back({"countNonZero", [](cv::Size) {
                     return std::function<void(const cv::Mat&)>(
                         [](const cv::Mat& m) { benchmark::DoNotOptimize(cv::countNonZero(m)); });
                 }});
    return c;
}

std::vector<std::function<void(const cv::Mat&)>> frame_per_mask(const Contender& contender,
                                                                const std::vector<cv::Mat>& masks)
{
    std::map<std::pair<int, int>, std::function<void(const cv::Mat&)>> per_size;
    std::vector<std::function<void(const cv::Mat&)>> out;
    for (const cv::Mat& m : masks) {
        auto& frame = per_size[{m.cols, m.rows}];
        if (!frame) frame = contender.make(m.size());
        out.push_back(frame);  // a copy shares the state
    }
    return out;
}
