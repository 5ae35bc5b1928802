// Masks nobody here made, by set: nerva's exact mode against OpenCV's
// labelling, warm (each mask segmented twice in a row) and cold (every
// cache level flushed before each of the two takes). Each take
// is timed on its own with a steady clock (manual time), so that the flush,
// done between two takes, is never part of a frame's time.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "alloc_counter.h"
#include "bench_results.h"
#include "contenders.h"
#include "masks.h"
#include "real_masks.h"
#include "suites.h"

namespace {

const char* const kSkimageData = "/usr/lib/python3/dist-packages/skimage/data/";

// Cold frames per benchmark: the flush costs far more than most frames, so
// their number is fixed rather than left to the minimum time.
constexpr int kColdFrames = 96;

// Each frame is taken this many times in a row, and the shortest counts.
// Warm, the later takes segment a mask just segmented; cold, each take
// follows its own flush. With few cold frames, one time slice lost to another
// process on a shared machine would otherwise weigh on the mean.
constexpr int kTakes = 2;

// Twice the last-level cache of the machines this runs on (32 MiB here).
constexpr size_t kFlushBytes = size_t{64} << 20;

struct RealSet {
    std::string name;
    std::vector<std::string> files;
    std::function<std::vector<cv::Mat>()> make;

    // Made on first use.
    std::once_flag once;
    std::vector<cv::Mat> masks;
    std::vector<size_t> warm_order, cold_order;
    double runs_warm = 0, runs_cold = 0, pixels = 0;  // mean per frame

    void load()
    {
        std::call_once(once, [this] {
            masks = make();
            if (masks.empty()) return;
            for (size_t i = 0; i < masks.size(); ++i) warm_order.push_back(i);
            // Long sets (videos) are sampled evenly, short ones cycled.
            for (size_t k = 0; k < kColdFrames; ++k)
                cold_order.push_back(masks.size() >= kColdFrames ? k * masks.size() / kColdFrames : k % masks.size());
            runs_warm = mean_runs(warm_order);
            runs_cold = mean_runs(cold_order);
            for (const cv::Mat& m : masks) pixels += static_cast<double>(m.total()) / masks.size();
        });
    }

    double mean_runs(const std::vector<size_t>& order) const
    {
        double runs = 0;
        for (size_t i : order) runs += static_cast<double>(count_runs(masks[i]));
        return runs / static_cast<double>(order.size());
    }
};

std::vector<std::shared_ptr<RealSet>> g_sets;

bool exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// A read-modify-write of a buffer larger than every cache: the mask, the
// segmenter's records and OpenCV's buffers all come from memory afterwards.
void flush_caches()
{
    static std::vector<uint64_t> buffer(kFlushBytes / sizeof(uint64_t));
    static uint64_t pass = 0;
    ++pass;
    for (uint64_t& word : buffer) word += pass;
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
}

// A subtractor's masks from the 11th on, every `stride`-th.
std::vector<cv::Mat> learnt(const std::vector<cv::Mat>& masks, int stride)
{
    constexpr size_t kLearning = 10;
    std::vector<cv::Mat> out;
    for (size_t i = kLearning; i < masks.size(); i += static_cast<size_t>(stride)) out.push_back(masks[i]);
    return out;
}

void register_set(const std::shared_ptr<RealSet>& set, const std::vector<Contender>& timed)
{
    bool any = false;
    for (const std::string& f : set->files) {
        if (exists(f)) any = true;
        else std::fprintf(stderr, "nerva_bench: %s not found; left out of real/%s\n", f.c_str(), set->name.c_str());
    }
    if (!any) return;
    g_sets.push_back(set);
    for (const bool cold : {false, true}) {
        const std::string input = "real/" + set->name + (cold ? " cold" : " warm");
        table_inputs().push_back(input);
        for (const Contender& c : timed) {
            const std::string contender = c.name;
            auto* b = benchmark::RegisterBenchmark((input + " | " + contender).c_str(), [=](benchmark::State& st) {
                set->load();
                if (set->masks.empty()) {
                    st.SkipWithError("no masks");
                    return;
                }
                const auto frames = frame_per_mask(c, set->masks);
                for (size_t k = 0; k < frames.size(); ++k) frames[k](set->masks[k]);  // pools at their size
                const std::vector<size_t>& order = cold ? set->cold_order : set->warm_order;
                size_t i = 0;
                const uint64_t allocs_before = heap_allocations();
                for (auto _ : st) {
                    const cv::Mat& m = set->masks[order[i]];
                    const auto& frame = frames[order[i]];
                    if (++i == order.size()) i = 0;
                    double seconds = 0;
                    for (int take = 0; take < kTakes; ++take) {
                        if (cold) flush_caches();
                        const auto start = std::chrono::steady_clock::now();
                        frame(m);
                        const double t =
                            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                        seconds = take == 0 ? t : std::min(seconds, t);
                    }
                    st.SetIterationTime(seconds);
                }
                const double allocs = static_cast<double>(heap_allocations() - allocs_before);
                bench_results()[input][contender].allocs_per_frame = allocs / static_cast<double>(st.iterations());
            });
            b->UseManualTime()->Unit(benchmark::kMicrosecond);
            if (cold) b->Iterations(kColdFrames);
        }
    }
}

}  // namespace

void register_real_sets(const std::string& opencv_data)
{
    const std::string sk = kSkimageData, cv = opencv_data;
    auto add = [](std::string name, std::vector<std::string> files, std::function<std::vector<cv::Mat>()> make) {
        auto set = std::make_shared<RealSet>();
        set->name = std::move(name);
        set->files = std::move(files);
        set->make = std::move(make);
        return set;
    };
    std::vector<Contender> timed;
    for (const Contender& c : contenders())
        if (c.name != "nerva 4,2") timed.push_back(c);  // exact mode only

    const std::vector<std::string> scans = {sk + "page.png",       sk + "text.png",  cv + "imageTextN.png",
                                            cv + "imageTextR.png", cv + "notes.png", cv + "sudoku.png"};
    const Silhouette printed = {sk + "bw_text.png", -1, 128, true};  // already black on white
    std::vector<std::string> documents = scans;
    documents.push_back(printed.path);
    register_set(add("documents", documents,
                     [=] {
                         std::vector<cv::Mat> m = document_masks(scans);
                         for (cv::Mat& s : silhouette_masks({printed})) m.push_back(s);
                         return m;
                     }),
                 timed);

    const std::vector<std::string> retinas = {sk + "retina.jpg", sk + "microaneurysms.png"};
    register_set(add("retinal vessels", retinas, [=] { return vessel_masks(retinas); }), timed);

    const std::vector<std::string> photographs = {
        sk + "camera.png",    sk + "coins.png",    sk + "moon.png",         sk + "astronaut.png", cv + "messi5.jpg",
        cv + "butterfly.jpg", cv + "smarties.png", cv + "squirrel_cls.jpg", cv + "HappyFish.jpg", cv + "orange.jpg"};
    register_set(add("photographs", photographs, [=] { return otsu_masks(photographs); }), timed);

    const std::vector<Silhouette> silhouettes = {
        {sk + "horse.png", -1, 128, true}, {cv + "mask.png", -1, 128, false}, {cv + "detect_blob.png", -1, 1, false},
        {cv + "pic1.png", -1, 128, true},  {cv + "pic3.png", -1, 128, true},  {cv + "opencv-logo.png", 3, 128, false}};
    std::vector<std::string> silhouette_files;
    for (const Silhouette& s : silhouettes) silhouette_files.push_back(s.path);
    register_set(add("silhouettes", silhouette_files, [=] { return silhouette_masks(silhouettes); }), timed);

    // The subtractors see every frame, but their first masks are empty or
    // full while they learn the background: the set starts at the 11th.
    // vtest keeps every 4th mask of its 795 (memory), tree (68 frames) and
    // Megamind (270) every mask.
    for (const auto& [video, stride] :
         {std::make_pair("vtest", 4), std::make_pair("tree", 1), std::make_pair("Megamind", 1)}) {
        const std::string path = cv + video + ".avi";
        const int step = stride;
        register_set(add(std::string("MOG2 ") + video, {path}, [=] { return learnt(mog2_masks(path, 1, 0), step); }),
                     timed);
        register_set(add(std::string("KNN ") + video, {path}, [=] { return learnt(knn_masks(path, 1, 0), step); }),
                     timed);
    }
}

void print_real_summary()
{
    bool header = false;
    for (const auto& set : g_sets) {
        const std::string warm = "real/" + set->name + " warm", cold = "real/" + set->name + " cold";
        const double nerva_warm = median_ns(warm, "nerva 1,1"), nerva_cold = median_ns(cold, "nerva 1,1");
        if (set->masks.empty() || (nerva_warm <= 0 && nerva_cold <= 0)) continue;
        if (!header) {
            std::printf(
                "### Real masks by set: exact mode (nerva 1,1) against the fastest OpenCV 4-connectivity "
                "labelling\n\n| set | masks | kpixels/frame | runs/frame | warm: nerva us | warm: fastest cv4 / nerva "
                "| warm: 1-thread cv4 / nerva | warm: nerva / countNonZero | warm: ns/run | cold: nerva us | cold: "
                "fastest cv4 / nerva | cold: 1-thread cv4 / nerva | cold: nerva / countNonZero | cold: ns/run "
                "|\n|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
            header = true;
        }
        std::printf("| %s | %zu | %.0f | %.0f", set->name.c_str(), set->masks.size(), set->pixels / 1e3,
                    set->runs_warm);
        for (const auto& [input, runs] : {std::make_pair(warm, set->runs_warm), std::make_pair(cold, set->runs_cold)}) {
            const double nerva = median_ns(input, "nerva 1,1");
            const std::string best = fastest(input, "cv4 ");
            const double cv4 = best.empty() ? 0 : median_ns(input, best), read = median_ns(input, "countNonZero");
            const double one_core = median_ns(input, "1-thread cv4 DEFAULT");
            if (nerva <= 0) {
                std::printf(" | - | - | - | - | -");
                continue;
            }
            std::printf(" | %.1f | %s | %s | %s | %.1f", nerva / 1e3, ratio(cv4, nerva).c_str(),
                        ratio(one_core, nerva).c_str(), ratio(nerva, read).c_str(), nerva / runs);
        }
        std::printf(" |\n");
    }
    if (header)
        std::printf(
            "\nwarm: each mask segmented twice in a row; cold: every cache flushed (%zu MiB read and written) "
            "before each of the two takes; the shorter take counts; %d cold frames. ns/run: nerva's time per "
            "frame over the runs per frame.\n\n",
            kFlushBytes >> 20, kColdFrames);
}
