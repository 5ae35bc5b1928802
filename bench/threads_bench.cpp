// Throughput of one segmenter on one thread against two segmenters on two
// threads, one stream of masks each (the second stream starts half-way
// through the video, so the two never read the same mask at once). The time
// per frame is wall time over the frames of all threads, so frames per
// second are comparable between the two.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "bench_results.h"
#include "contenders.h"
#include "suites.h"

namespace {

const int kThreads[] = {1, 2};

std::string g_input;
std::vector<std::string> g_contenders;

std::string on_threads(const std::string& contender, int threads)
{
    return contender + " on " + std::to_string(threads) + (threads == 1 ? " thread" : " threads");
}

}  // namespace

void register_threads(std::shared_ptr<const std::vector<cv::Mat>> masks, const std::string& name)
{
    if (masks->empty()) return;
    g_input = "threads/" + name;
    for (const Contender& c : contenders()) {
        if (c.name != "nerva 1,1" && c.name != "countNonZero") continue;
        g_contenders.push_back(c.name);
        for (int threads : kThreads)
            benchmark::RegisterBenchmark((g_input + " | " + on_threads(c.name, threads)).c_str(),
                                         [masks, c](benchmark::State& st) {
                                             auto frame = c.make((*masks)[0].size());  // this thread's own
                                             for (const cv::Mat& m : *masks) frame(m);
                                             const size_t n = masks->size();
                                             size_t i = static_cast<size_t>(st.thread_index()) * n /
                                                        static_cast<size_t>(st.threads());
                                             for (auto _ : st) {
                                                 frame((*masks)[i]);
                                                 if (++i == n) i = 0;
                                             }
                                             st.SetItemsProcessed(st.iterations());
                                         })
                ->Threads(threads)
                ->UseRealTime()
                ->Unit(benchmark::kMicrosecond);
    }
}

void print_threads_summary()
{
    bool header = false;
    for (const std::string& c : g_contenders) {
        const double one = median_ns(g_input, on_threads(c, 1)), two = median_ns(g_input, on_threads(c, 2));
        if (one <= 0 && two <= 0) continue;
        if (!header) {
            std::printf(
                "### %s, one stream per thread\n\n| contender | frames/s, 1 thread | frames/s, 2 threads | 2 threads / "
                "1 | cores busy, 2 threads |\n|---|---:|---:|---:|---:|\n",
                g_input.c_str());
            header = true;
        }
        // CPU time of both threads over wall time: below 2 when another
        // process held a core while they ran.
        const double busy = two > 0 ? median_ns(g_input, on_threads(c, 2), true) / two : 0;
        std::printf("| %s | %.0f | %.0f | %s | %.2f |\n", c.c_str(), one > 0 ? 1e9 / one : 0, two > 0 ? 1e9 / two : 0,
                    ratio(one, two).c_str(), busy);
    }
    if (header)
        std::printf(
            "\nThe ratio says what two streams gain only if \"cores busy\" is close to 2: below it, another process "
            "held a core during the run.\n\n");
}
