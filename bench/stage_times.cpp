// Time per frame of each stage of the segmenter's driver on the vtest
// masks, next to countNonZero on the same masks and to the scan of an
// all-zero mask. The stages are the driver's own, called one by one in its
// order (extraction of the whole frame, then its labelling); one timer per
// stage. Last, the driver on a frame it has just segmented, before and after
// a cache flush: what a frame costs once the branch predictor knows its turns.
//
//   nerva_stage_times [step_x step_y [passes]]
//
// NERVA_BENCH_VIDEO overrides the video; NERVA_STAGE_MASKS=mog2 takes the
// video's MOG2 foreground (noisy masks) instead of nerva-blobs' change
// detection, NERVA_STAGE_MASKS=comb the two 1920x1080 combs (the worst
// shape); NERVA_STAGE_COLD=1 flushes every cache before each frame's stages;
// NERVA_MASK_CACHE names a file that keeps the decoded masks between runs.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "masks.h"
#include "nerva/nerva.h"
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<cv::Mat> load_masks(const std::string& video)
{
    const char* kind = std::getenv("NERVA_STAGE_MASKS");
    if (kind && std::strcmp(kind, "comb") == 0) return {comb_mask({1920, 1080}, 3), comb_mask({1920, 1080}, 1)};
    const char* cache = std::getenv("NERVA_MASK_CACHE");
    std::vector<cv::Mat> masks;
    if (cache) {
        std::ifstream in(cache, std::ios::binary);
        int n = 0, rows = 0, cols = 0;
        if (in.read(reinterpret_cast<char*>(&n), sizeof n) && in.read(reinterpret_cast<char*>(&rows), sizeof rows) &&
            in.read(reinterpret_cast<char*>(&cols), sizeof cols)) {
            for (int i = 0; i < n; ++i) {
                cv::Mat m(rows, cols, CV_8UC1);
                if (!in.read(reinterpret_cast<char*>(m.data), static_cast<std::streamsize>(m.total()))) break;
                masks.push_back(m);
            }
            if (static_cast<int>(masks.size()) == n) return masks;
        }
        masks.clear();
    }
    masks = kind && std::strcmp(kind, "mog2") == 0 ? mog2_masks(video, 1, 0) : vtest_masks(video, 1);
    if (cache && !masks.empty()) {
        std::ofstream out(cache, std::ios::binary);
        const int n = static_cast<int>(masks.size()), rows = masks[0].rows, cols = masks[0].cols;
        out.write(reinterpret_cast<const char*>(&n), sizeof n);
        out.write(reinterpret_cast<const char*>(&rows), sizeof rows);
        out.write(reinterpret_cast<const char*>(&cols), sizeof cols);
        for (const cv::Mat& m : masks)
            out.write(reinterpret_cast<const char*>(m.data), static_cast<std::streamsize>(m.total()));
    }
    return masks;
}

// Rows the extraction read in the frame just extracted, replaying its
// sparse/dense rule on the run counts it left.
long rows_read(const nerva::MV_RLEsegm& s)
{
    auto count = [&](int y) { return s.rle_img->lines[static_cast<size_t>(y)]->nb_segs; };
    if (s.step_y <= 1) return s.roi_ymax - s.roi_ymin + 1;
    long read = 0;
    bool dense = false;
    int marker = s.roi_ymin - 1;
    for (int y = s.roi_ymin; y <= s.roi_ymax; ++y) {
        if (dense) {
            ++read;
            if (count(y) == 0) {
                marker = y;
                dense = false;
            }
            continue;
        }
        if (y % s.step_y != 0) continue;
        ++read;
        if (count(y) == 0) {
            marker = y;
            continue;
        }
        for (int j = y - 1; j > marker; --j) {
            ++read;
            if (count(j) == 0) break;
        }
        dense = true;
    }
    return read;
}

struct Stage {
    const char* name;
    double ns = 0;
};

}  // namespace

int main(int argc, char** argv)
{
    const int step_x = argc > 1 ? std::atoi(argv[1]) : 1;
    const int step_y = argc > 2 ? std::atoi(argv[2]) : 1;
    const int passes = argc > 3 ? std::atoi(argv[3]) : 5;
    const char* video = std::getenv("NERVA_BENCH_VIDEO");
    const std::vector<cv::Mat> masks = load_masks(video ? video : "/usr/share/doc/opencv-doc/examples/data/vtest.avi");
    if (masks.empty()) {
        std::fprintf(stderr, "nerva_stage_times: no masks\n");
        return 1;
    }
    // Noisy frames overflow the blob pool; its message once per extra blob
    // would set the pace.
    nerva::set_message_sink([](nerva::message_stream_t, const char*, size_t, void*) {});
    const cv::Size size = masks[0].size();
    auto s = std::make_shared<nerva::MV_RLEsegm>();
    nerva::RLEsegm_init_privateKAP(s, 0, size.width - 1, 0, size.height - 1, size.width, size.height);
    nerva::RLEsegm_set_steps(s, step_x, step_y);
    for (const cv::Mat& m : masks) nerva::RLEsegm_segmentKAP(m, s);  // steady state

    Stage stages[] = {{"reset"}, {"extraction"}, {"labelling"}, {"region lines"}, {"blobs"}};
    double driver_ns = 0, count_ns = 0, zero_ns = 0, or_ns = 0;
    long runs = 0, rows = 0, regions = 0, blobs = 0, region_rows = 0;
    const cv::Mat zero = cv::Mat::zeros(size, CV_8UC1);
    auto since = [](Clock::time_point t) { return std::chrono::duration<double, std::nano>(Clock::now() - t).count(); };
    volatile long sink = 0;
    // NERVA_STAGE_COLD=1: every frame's stages start with every cache flushed.
    const bool cold = std::getenv("NERVA_STAGE_COLD") != nullptr;
    // Writing 64 MB, a different byte each time, drives the mask and the
    // records out of every cache.
    std::vector<char> flush(64 << 20);
    int flushes = 0;
    const auto flush_caches = [&] { std::memset(flush.data(), ++flushes, flush.size()); };
    for (int p = 0; p < passes; ++p) {
        for (const cv::Mat& m : masks) {
            if (cold) flush_caches();
            auto t = Clock::now();
            nerva::RLEsegm_reset(s);
            nerva::RLEreset_blob_idents(s);
            stages[0].ns += since(t);
            t = Clock::now();
            nerva::detail::extract_frame(*s, m);
            stages[1].ns += since(t);
            runs += s->nb_segs;
            rows += rows_read(*s);
            if (s->nb_segs == 0) continue;
            t = Clock::now();
            const bool labelled = nerva::detail::label_frame(*s);
            stages[2].ns += since(t);
            regions += s->nb_regs;
            for (int r = 0; r < s->nb_regs; ++r) region_rows += s->reg_pool[r]->y_max - s->reg_pool[r]->y_min + 1;
            t = Clock::now();
            if (labelled) nerva::detail::fill_region_lines(*s, m.rows);
            else nerva::set_segs_in_regsKAP(s, m.rows);
            stages[3].ns += since(t);
            t = Clock::now();
            nerva::RLEsegm_regions2blobsKAP(0, 0, s);
            stages[4].ns += since(t);
            blobs += s->nb_blobs;
        }
        for (const cv::Mat& m : masks) {
            auto t = Clock::now();
            nerva::RLEsegm_segmentKAP(m, s);
            driver_ns += since(t);
        }
        for (const cv::Mat& m : masks) {
            auto t = Clock::now();
            sink = sink + cv::countNonZero(m);
            count_ns += since(t);
        }
        for (const cv::Mat& m : masks) {
            auto t = Clock::now();
            uint64_t any = 0;
            for (int y = 0; y < m.rows; ++y) {
                const uint64_t* row = reinterpret_cast<const uint64_t*>(m.ptr(y));
                for (int x = 0; x < m.cols / 8; ++x) any |= row[x];
            }
            sink = sink + static_cast<long>(any);
            or_ns += since(t);
        }
        for (size_t i = 0; i < masks.size(); ++i) {
            auto t = Clock::now();
            nerva::detail::extract_frame(*s, zero);
            zero_ns += since(t);
        }
    }
    // The same frame again, right after segmenting it: the caches hold the
    // mask and the records, and the branch predictor has just seen every
    // turn the frame takes. Then the same frame after 64 MB were written,
    // which drives the mask and the records out of every cache but leaves
    // the predictor as it was. Every 4th mask.
    double again_ns = 0, flushed_ns = 0, replays = 0;
    for (size_t i = 0; i < masks.size(); i += 4, ++replays) {
        nerva::RLEsegm_segmentKAP(masks[i], s);
        auto t = Clock::now();
        nerva::RLEsegm_segmentKAP(masks[i], s);
        again_ns += since(t);
        flush_caches();
        t = Clock::now();
        nerva::RLEsegm_segmentKAP(masks[i], s);
        flushed_ns += since(t);
    }
    const double frames = static_cast<double>(masks.size()) * passes;
    std::printf(
        "steps %d,%d, %dx%d, %zu masks x %d passes, per frame: %.0f of %d rows read, %.0f runs, %.0f regions, "
        "%.0f blobs, %.0f region lines\n",
        step_x, step_y, size.width, size.height, masks.size(), passes, rows / frames, size.height, runs / frames,
        regions / frames, blobs / frames, region_rows / frames);
    double sum = 0;
    for (const Stage& st : stages) {
        std::printf("  %-14s %8.1f us\n", st.name, st.ns / frames / 1e3);
        sum += st.ns;
    }
    std::printf("  %-14s %8.1f us\n", "sum of stages", sum / frames / 1e3);
    std::printf("  %-14s %8.1f us\n", "driver", driver_ns / frames / 1e3);
    std::printf("  %-14s %8.1f us\n", "countNonZero", count_ns / frames / 1e3);
    std::printf("  %-14s %8.1f us\n", "zero-mask scan", zero_ns / frames / 1e3);
    std::printf("  %-14s %8.1f us\n", "OR of all rows", or_ns / frames / 1e3);
    std::printf("  driver / countNonZero = %.2f\n", driver_ns / count_ns);
    std::printf("  driver, the same frame again:              %6.1f us\n", again_ns / replays / 1e3);
    std::printf("  driver, the same frame after a cache flush: %6.1f us\n", flushed_ns / replays / 1e3);
    return 0;
}
