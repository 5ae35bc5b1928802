// nerva's segmenter against OpenCV's connected-component labelling and the
// cost of reading the mask once (countNonZero), on the same masks in the
// same run. Prints Google Benchmark's lines, then one table per input with
// the time per frame, the ratios and the steady-state heap allocations per
// frame, then the summaries of the suites of suites.h (real masks by set,
// mask in cache, two threads).
//
//   nerva_bench [--quick] [google benchmark flags]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "alloc_counter.h"
#include "bench_results.h"
#include "contenders.h"
#include "masks.h"
#include "nerva/nerva.h"
#include "suites.h"

namespace {

std::map<std::string, std::map<std::string, Result>>& g_results = bench_results();
std::vector<std::string>& g_input_order = table_inputs();

void register_input(const MaskSet& set)
{
    if (set.masks.empty()) return;
    g_input_order.push_back(set.name);
    auto masks = std::make_shared<std::vector<cv::Mat>>(set.masks);
    for (const Contender& c : contenders()) {
        const std::string input = set.name, contender = c.name;
        auto make = c.make;
        benchmark::RegisterBenchmark((input + " | " + contender).c_str(), [=](benchmark::State& st) {
            auto frame = make((*masks)[0].size());
            // One pass over every mask: the pools and buffers reach the size
            // of the largest frame, so the timed loop sees the steady state.
            for (const cv::Mat& m : *masks) frame(m);
            size_t i = 0;
            const uint64_t allocs_before = heap_allocations();
            for (auto _ : st) {
                frame((*masks)[i]);
                if (++i == masks->size()) i = 0;
            }
            const double allocs = static_cast<double>(heap_allocations() - allocs_before);
            st.counters["allocs/frame"] = allocs / static_cast<double>(st.iterations());
            g_results[input][contender].allocs_per_frame = allocs / static_cast<double>(st.iterations());
        })->Unit(benchmark::kMicrosecond);
    }
}

class TableReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            // The function's name: without the "/manual_time" or "/threads:N"
            // the library appends.
            const std::string& name = r.run_name.function_name;
            const size_t bar = name.find(" | ");
            if (bar == std::string::npos || r.iterations == 0 || r.run_type != Run::RT_Iteration) continue;
            Result& result = g_results[name.substr(0, bar)][name.substr(bar + 3)];
            result.ns_per_frame.push_back(r.GetAdjustedRealTime() * 1e3);  // reported in microseconds
            result.cpu_ns_per_frame.push_back(r.GetAdjustedCPUTime() * 1e3);
        }
    }
};

void print_tables()
{
    std::printf("\n");
    for (const std::string& input : g_input_order) {
        std::map<std::string, double> time;  // contender -> median ns per frame
        size_t repetitions = 0;
        for (auto& [name, r] : g_results[input])
            if (!r.ns_per_frame.empty()) {
                time[name] = median(r.ns_per_frame);
                repetitions = std::max(repetitions, r.ns_per_frame.size());
            }
        if (!time.count("countNonZero") || !time.count("cv8 DEFAULT")) continue;  // filtered out
        // The fastest 4-connectivity algorithm of OpenCV is the one to beat.
        const std::string best4 = fastest(input, "cv4 ");
        const double cv4 = time[best4], cv8 = time["cv8 DEFAULT"], read = time["countNonZero"];
        std::printf("### %s", input.c_str());
        if (repetitions > 1) std::printf(" (median of %zu repetitions)", repetitions);
        std::printf("\n\n");
        std::printf(
            "| contender | time/frame (us) | fastest cv4 (%s) / this | cv8 / this | this / countNonZero | "
            "allocs/frame |\n|---|---:|---:|---:|---:|---:|\n",
            best4.c_str());
        for (auto& [name, t] : time)
            std::printf("| %s | %.1f | %.2f | %.2f | %.2f | %.2f |\n", name.c_str(), t / 1e3, cv4 / t, cv8 / t,
                        t / read, g_results[input][name].allocs_per_frame);
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv)
{
    bool quick = false;
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) quick = true;
        else args.push_back(argv[i]);
    }
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());

    const char* video = std::getenv("NERVA_BENCH_VIDEO");
    const std::string path = video ? video : "/usr/share/doc/opencv-doc/examples/data/vtest.avi";
    const int synth = quick ? 2 : 8;
    std::vector<cv::Mat> real = vtest_masks(path, 1);
    if (real.empty()) std::fprintf(stderr, "nerva_bench: %s not found; real-mask inputs skipped\n", path.c_str());
    register_input({"vtest 768x576", real});
    if (!quick) {
        std::vector<cv::Mat> every4;
        for (size_t i = 0; i < real.size(); i += 4) every4.push_back(real[i]);
        register_input({"vtest 1920x1080", scaled(every4, {1920, 1080})});
        std::vector<cv::Mat> every16;
        for (size_t i = 0; i < real.size(); i += 16) every16.push_back(real[i]);
        register_input({"vtest 3840x2160", scaled(every16, {3840, 2160})});
    }
    // Noisy masks: MOG2 foreground of busy scenes, thresholded textures.
    const std::string data = path.substr(0, path.find_last_of('/') + 1);
    register_input({"vtest MOG2 768x576", mog2_masks(path, quick ? 4 : 1, quick ? 400 : 0)});
    if (!quick) {
        register_input({"tree MOG2", mog2_masks(data + "tree.avi", 1, 0)});
        register_input({"Megamind MOG2", mog2_masks(data + "Megamind.avi", 1, 0)});
    }
    register_input(
        {"textures 1920x1080", texture_masks({data + "building.jpg", data + "baboon.jpg", data + "fruits.jpg",
                                              data + "starry_night.jpg", data + "board.jpg", data + "home.jpg"},
                                             {1920, 1080})});
    // The worst shapes: combs, whose merges once rescanned the rest of the row.
    register_input({"comb 1920x1080", {comb_mask({1920, 1080}, 3), comb_mask({1920, 1080}, 1)}});
    register_input({"comb 16384x60", {comb_mask({16384, 60}, 3), comb_mask({16384, 60}, 1)}});

    auto shared_real = std::make_shared<const std::vector<cv::Mat>>(real);
    register_in_cache(shared_real, "vtest 768x576");
    register_threads(shared_real, "vtest 768x576");
    if (!quick) register_real_sets(data);

    const cv::Size sizes[] = {{640, 480}, {1920, 1080}, {3840, 2160}};
    for (const cv::Size& size : sizes) {
        if (quick && size.width > 640) break;
        const std::string dims = std::to_string(size.width) + "x" + std::to_string(size.height);
        for (double f : {0.01, 0.05, 0.20, 0.50})
            register_input(
                {"blobby " + std::to_string(static_cast<int>(f * 100)) + "% " + dims, blobby_masks(size, f, synth, 1)});
        register_input({"salt 1% " + dims, salt_masks(size, 0.01, synth, 2)});
    }

    // Frames of more than 2000 blobs (salt, dense sampled scenes) write the
    // pool-full message once per extra blob: millions of lines. They go to
    // /dev/null while timing, as a host would send them, so that the
    // terminal or a log file does not set the pace.
    std::fflush(stderr);
    const int saved_stderr = dup(2);
    const int null_fd = open("/dev/null", O_WRONLY);
    if (null_fd >= 0) dup2(null_fd, 2);
    TableReporter reporter;
    reporter.SetErrorStream(&std::cout);  // the machine context, which it writes there
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::fflush(stderr);
    if (saved_stderr >= 0) dup2(saved_stderr, 2);
    print_tables();
    print_real_summary();
    print_in_cache_summary();
    print_threads_summary();
    benchmark::Shutdown();
    return 0;
}
