// Tracks of the walking people of vtest.avi (PETS 2009 S2.L1, view 1)
// scored against the MOT Challenge's ground truth: the program's own blobs,
// made with the program's own options, fed to (1) nothing (every blob a new
// identity), (2) a SORT-style tracker and (3) the library's tracker. Also:
// line counts against the ground truth's, the tracker's share of the time
// per frame, and its allocations once warm.
//
//   nerva_tracking_bench [--frames N] [--errors] [--mot FILE] [--line x1,y1,x2,y2] [-- nerva-blobs options]
//   nerva_tracking_bench [--frames N] [--errors] --score FILE
//
// The options after "--" are nerva-blobs' (foreground and segmentation);
// without them the MOG2 settings of the table in BENCHMARKS.md are used.
// NERVA_BENCH_VIDEO and NERVA_TRACKING_GT override the video and ground truth.
// --score scores a MOT Challenge file made elsewhere, such as nerva-blobs'
// own --mot output, so the program's numbers can be checked end to end.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "alloc_counter.h"
#include "foreground.h"
#include "mot_eval.h"
#include "nerva/nerva.h"
#include "options.h"
#include "sort_baseline.h"

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point t) { return std::chrono::duration<double, std::milli>(Clock::now() - t).count(); }

struct Detections {
    std::vector<std::vector<nerva::track_detection>> frames;
    double foreground_ms = 0, segment_ms = 0;  // per frame
};

Detections detect(const nerva_blobs::Options& o, int frames)
{
    cv::VideoCapture video(o.input);
    if (!video.isOpened()) {
        std::fprintf(stderr, "cannot open %s\n", o.input.c_str());
        std::exit(1);
    }
    Detections out;
    cv::Mat frame;
    std::unique_ptr<nerva_blobs::Foreground> fg;
    auto segm = std::make_shared<nerva::MV_RLEsegm>();
    for (int k = 0; k < frames && video.read(frame); ++k) {
        if (!fg) {
            fg = nerva_blobs::make_foreground(o, frame.size(), cv::Rect(0, 0, frame.cols, frame.rows));
            nerva::RLEsegm_init_privateKAP(segm, 0, frame.cols - 1, 0, frame.rows - 1, frame.cols, frame.rows);
            nerva::RLEsegm_set_steps(segm, 1, 1);
            nerva::RLEsegm_set_ROI(0, 0, frame.cols - 1, frame.rows - 1, segm);
            if (o.roi)
                nerva::RLEsegm_set_ROI(o.roi->x, o.roi->y, o.roi->x + o.roi->width - 1, o.roi->y + o.roi->height - 1,
                                       segm);
            segm->min_blob_side = o.min_side;
            segm->min_blob_pixels = o.min_pixels;
        }
        auto t = Clock::now();
        const cv::Mat& mask = fg->apply(frame, cv::Mat());
        out.foreground_ms += ms_since(t);
        t = Clock::now();
        std::vector<nerva::track_detection> dets;
        for (nerva::RLEblob* b = nerva::RLEsegm_segmentKAP(mask, segm).get(); b; b = b->next.get())
            dets.push_back({b->bbox, b->ident, b->npix});
        out.segment_ms += ms_since(t);
        out.frames.push_back(std::move(dets));
    }
    nerva::RLEsegm_free_private(segm);
    const double n = static_cast<double>(std::max<size_t>(out.frames.size(), 1));
    out.foreground_ms /= n;
    out.segment_ms /= n;
    return out;
}

MotBox mot_box(const nerva::rectangle& r, int frame, int id)
{
    return {frame, id, double(r.xmin), double(r.ymin), double(r.width), double(r.height)};
}

std::vector<MotBox> every_blob_a_track(const Detections& d)
{
    std::vector<MotBox> out;
    int id = 1;
    for (size_t k = 0; k < d.frames.size(); ++k)
        for (const auto& det : d.frames[k]) out.push_back(mot_box(det.bbox, static_cast<int>(k) + 1, id++));
    return out;
}

std::vector<MotBox> sort_tracks(const Detections& d)
{
    std::vector<std::vector<MotBox>> frames;
    for (const auto& f : d.frames) {
        frames.emplace_back();
        for (const auto& det : f) frames.back().push_back(mot_box(det.bbox, 0, 0));
    }
    return run_sort(frames);
}

struct NervaRun {
    std::vector<MotBox> boxes;
    std::vector<uint32_t> occlusion;  // of each box's track, for --mot
    double track_ms = 0;              // per frame
    uint64_t warm_allocations = 0;    // over the frames after the first 50
    int64_t count_in = 0, count_out = 0;
};

// NERVA_TRACKER="name=value,..." changes the tracker's settings, for tuning.
void apply_overrides(nerva::tracker_params& p)
{
    const char* env = std::getenv("NERVA_TRACKER");
    if (!env) return;
    const std::map<std::string, double*> reals = {{"match_iou", &p.match_iou},
                                                  {"group_cover", &p.group_cover},
                                                  {"fragment_cover", &p.fragment_cover},
                                                  {"position_gain", &p.position_gain},
                                                  {"velocity_gain", &p.velocity_gain},
                                                  {"size_gain", &p.size_gain},
                                                  {"shrink_gain", &p.shrink_gain},
                                                  {"group_velocity_gain", &p.group_velocity_gain},
                                                  {"duplicate_cover", &p.duplicate_cover},
                                                  {"ghost_distance", &p.ghost_distance},
                                                  {"still_speed", &p.still_speed},
                                                  {"piece_aspect", &p.piece_aspect}};
    const std::map<std::string, int*> ints = {{"confirm_hits", &p.confirm_hits},
                                              {"max_coast", &p.max_coast},
                                              {"max_coast_border", &p.max_coast_border},
                                              {"duplicate_frames", &p.duplicate_frames},
                                              {"max_coast_still", &p.max_coast_still}};
    std::string rest = env;
    while (!rest.empty()) {
        const size_t comma = rest.find(',');
        const std::string item = rest.substr(0, comma);
        rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
        const size_t eq = item.find('=');
        if (eq == std::string::npos) continue;
        const std::string name = item.substr(0, eq);
        const double value = std::atof(item.c_str() + eq + 1);
        if (reals.count(name)) *reals.at(name) = value;
        else if (ints.count(name)) *ints.at(name) = static_cast<int>(value);
        else std::fprintf(stderr, "NERVA_TRACKER: no setting %s\n", name.c_str());
    }
}

NervaRun nerva_tracks(const Detections& d, cv::Size size, const nerva::count_line* line)
{
    NervaRun run;
    nerva::tracker_params p;
    p.frame_width = size.width;
    p.frame_height = size.height;
    apply_overrides(p);
    nerva::MV_tracker tracker(p);
    if (line) tracker.add_line(line->name, line->x1, line->y1, line->x2, line->y2, line->hysteresis);
    for (size_t k = 0; k < d.frames.size(); ++k) {
        const uint64_t before = heap_allocations();
        const auto t = Clock::now();
        tracker.update(d.frames[k].data(), static_cast<int>(d.frames[k].size()), static_cast<int64_t>(k));
        run.track_ms += ms_since(t);
        if (k >= 50) run.warm_allocations += heap_allocations() - before;
        for (int i = 0; i < tracker.track_count(); ++i) {
            const nerva::track& tr = tracker.track_at(i);
            if (!nerva::track_shown(tr)) continue;
            run.boxes.push_back(
                {static_cast<int>(k) + 1, tr.id, tr.box.xmin, tr.box.ymin, tr.box.width, tr.box.height});
            run.occlusion.push_back(tr.occlusion);
        }
    }
    run.track_ms /= static_cast<double>(std::max<size_t>(d.frames.size(), 1));
    if (line) {
        run.count_in = tracker.line_at(0).count_in;
        run.count_out = tracker.line_at(0).count_out;
    }
    run.boxes.shrink_to_fit();
    return run;
}

// The same rule on the ground truth's trajectories: bottom centre of each
// person's box, frame after frame.
std::pair<int64_t, int64_t> truth_counts(const std::vector<MotBox>& truth, const nerva::count_line& line)
{
    std::map<int, std::vector<const MotBox*>> by_id;
    for (const MotBox& b : truth) by_id[b.id].push_back(&b);
    int64_t in = 0, out = 0;
    for (auto& [id, boxes] : by_id) {
        int8_t side = 0;
        for (const MotBox* b : boxes) {
            const int dir = nerva::line_step(line, side, b->x + b->w / 2, b->y + b->h);
            if (dir == nerva::LINE_IN) ++in;
            if (dir == nerva::LINE_OUT) ++out;
        }
    }
    return {in, out};
}

void print_header()
{
    std::printf("| %-34s | %6s | %6s | %5s | %5s | %5s | %4s | %4s | %2s | %2s | %2s |\n", "tracker", "MOTA", "IDF1",
                "MOTP", "FP", "FN", "IDSW", "Frag", "MT", "PT", "ML");
    std::printf("|%s|\n", std::string(118, '-').c_str());
}

void print_row(const char* name, const MotScores& s)
{
    std::printf("| %-34s | %6.1f | %6.1f | %5.1f | %5ld | %5ld | %4ld | %4ld | %2d | %2d | %2d |\n", name, s.mota,
                s.idf1, s.motp, s.fp, s.fn, s.idsw, s.frag, s.mostly_tracked, s.partly_tracked, s.mostly_lost);
}

void print_errors(const std::vector<MotBox>& truth, const std::vector<MotBox>& hyps)
{
    std::map<int, std::array<long, 3>> per_person;  // misses, switches, frames
    std::map<int, long> fp_by_50;
    for (const MotBox& g : truth) ++per_person[g.id][2];
    for (const MotError& e : mot_errors(truth, hyps)) {
        if (e.kind == MotError::miss) ++per_person[e.gt_id][0];
        else if (e.kind == MotError::switch_) {
            ++per_person[e.gt_id][1];
            std::printf("  switch: person %d to track %d at frame %d\n", e.gt_id, e.hyp_id, e.frame);
        } else ++fp_by_50[(e.frame - 1) / 50];
    }
    std::printf("  person: missed/frames, switches\n");
    for (const auto& [id, c] : per_person) std::printf("  %3d: %4ld/%4ld %2ld\n", id, c[0], c[2], c[1]);
    std::printf("  false positives by 50 frames:");
    for (const auto& [bucket, n] : fp_by_50) std::printf(" %d-%d:%ld", bucket * 50 + 1, bucket * 50 + 50, n);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv)
{
    int frames = 400;
    bool errors = false;
    std::string mot_path, score_path;
    nerva::count_line line{};
    std::strcpy(line.name, "walkway");
    // The walkway across the plaza, drawn downwards.
    line.x1 = 400;
    line.y1 = 120;
    line.x2 = 400;
    line.y2 = 575;
    line.hysteresis = 4;
    const char* video = std::getenv("NERVA_BENCH_VIDEO");
    const char* gt_env = std::getenv("NERVA_TRACKING_GT");
    std::vector<std::string> args = {"nerva-blobs",
                                     video ? video : "/usr/share/doc/opencv-doc/examples/data/vtest.avi"};
    bool program_flags = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (program_flags) args.push_back(a);
        else if (a == "--") program_flags = true;
        else if (a == "--frames" && i + 1 < argc) frames = std::atoi(argv[++i]);
        else if (a == "--errors") errors = true;
        else if (a == "--mot" && i + 1 < argc) mot_path = argv[++i];
        else if (a == "--score" && i + 1 < argc) score_path = argv[++i];
        else if (a == "--line" && i + 1 < argc)
            std::sscanf(argv[++i], "%lf,%lf,%lf,%lf", &line.x1, &line.y1, &line.x2, &line.y2);
        else {
            std::fprintf(
                stderr,
                "usage: %s [--frames N] [--errors] [--mot FILE] [--line x1,y1,x2,y2] [-- nerva-blobs options]\n"
                "       %s [--frames N] [--errors] --score FILE\n",
                argv[0], argv[0]);
            return 2;
        }
    }
    if (!program_flags)
        for (const char* f : {"--background", "mog2", "--open", "3", "--close", "7", "--min-pixels", "150"})
            args.push_back(f);
    std::vector<char*> cargv;
    for (std::string& a : args) cargv.push_back(a.data());
    const auto options = nerva_blobs::parse_options(static_cast<int>(cargv.size()), cargv.data());
    if (!options) return 0;

    const std::string gt_path = gt_env ? gt_env : "/work/shared/data/pets09-s2l1/gt_frames_1-400.txt";
    const std::vector<MotBox> truth = read_mot_file(gt_path, 1, frames, true);
    const std::vector<MotBox> all_truth = read_mot_file(gt_path, 1, frames, false);
    if (!score_path.empty()) {
        const std::vector<MotBox> hyps = read_mot_file(score_path, 1, frames, false);
        print_header();
        print_row(score_path.c_str(), evaluate_mot(truth, hyps));
        if (errors) print_errors(truth, hyps);
        return 0;
    }

    std::string flags;
    for (size_t i = 2; i < args.size(); ++i) flags += (i > 2 ? " " : "") + args[i];
    const Detections d = detect(*options, frames);
    std::printf("PETS09-S2L1 frames 1-%zu, detections: nerva-blobs %s\n\n", d.frames.size(), flags.c_str());
    print_header();
    const std::vector<MotBox> each = every_blob_a_track(d);
    print_row("every blob a new identity", evaluate_mot(truth, each));
    const std::vector<MotBox> sort = sort_tracks(d);
    print_row("SORT-style (Kalman, Hungarian IoU)", evaluate_mot(truth, sort));
    const NervaRun nerva = nerva_tracks(d, cv::Size(768, 576), &line);
    print_row("nerva::MV_tracker", evaluate_mot(truth, nerva.boxes));

    const auto [gt_in, gt_out] = truth_counts(all_truth, line);
    std::printf(
        "\nline %s (%.0f,%.0f)-(%.0f,%.0f), bottom centre, hysteresis %.0f px:"
        " in %lld / out %lld (ground truth %lld / %lld)\n",
        line.name, line.x1, line.y1, line.x2, line.y2, line.hysteresis, (long long)nerva.count_in,
        (long long)nerva.count_out, (long long)gt_in, (long long)gt_out);
    const double total = d.foreground_ms + d.segment_ms + nerva.track_ms;
    std::printf("per frame: foreground %.3f ms, segmentation %.3f ms, tracking %.4f ms (%.2f%% of the three)\n",
                d.foreground_ms, d.segment_ms, nerva.track_ms, 100.0 * nerva.track_ms / total);
    std::printf("tracker allocations once warm (frames 51-%zu): %llu\n", d.frames.size(),
                (unsigned long long)nerva.warm_allocations);
    if (!mot_path.empty()) {
        FILE* f = std::fopen(mot_path.c_str(), "w");
        // The track's occlusion flags where the format has a world x.
        for (size_t i = 0; i < nerva.boxes.size(); ++i) {
            const MotBox& b = nerva.boxes[i];
            std::fprintf(f, "%d,%d,%.2f,%.2f,%.2f,%.2f,1,%u,-1,-1\n", b.frame, b.id, b.x, b.y, b.w, b.h,
                         nerva.occlusion[i]);
        }
        std::fclose(f);
    }
    if (errors) {
        std::printf("\nnerva::MV_tracker errors:\n");
        print_errors(truth, nerva.boxes);
    }
    return 0;
}
