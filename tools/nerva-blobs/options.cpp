#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <string>
#include <vector>

#include "errors.h"
#include "nerva/version.h"
#include "tracking_options.h"

namespace nerva_blobs {
namespace {

std::string lower_extension(const std::string& path)
{
    const auto dot = path.find_last_of('.');
    const auto slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

void check_values(const Options& o, const std::vector<int>& roi, const std::vector<int>& steps)
{
    if (!roi.empty() && (roi[2] < 1 || roi[3] < 1))
        throw UsageError("--roi: width and height must be at least 1 (got " + std::to_string(roi[2]) + "x" +
                         std::to_string(roi[3]) + ")");
    if (!roi.empty() && (roi[0] < 0 || roi[1] < 0))
        throw UsageError("--roi: the region of interest starts outside the frame (x and y must be at least 0)");
    if (steps[0] < 1 || steps[1] < 1)
        throw UsageError("--steps: steps must be at least 1 (got " + std::to_string(steps[0]) + "," +
                         std::to_string(steps[1]) + ")");
    if (!(o.learning_rate >= 0.0f && o.learning_rate <= 1.0f))  // NaN fails both
        throw UsageError("--learning-rate: must lie between 0 and 1");
    if (o.threshold < 0 || o.threshold > 255) throw UsageError("--threshold: must lie between 0 and 255");
    if (o.open < 0 || o.close < 0) throw UsageError("--open/--close: kernel sizes cannot be negative");
    if (o.min_side < 0 || o.min_pixels < 0) throw UsageError("--min-side/--min-pixels: cannot be negative");
    if (o.every < 1) throw UsageError("--every: must be at least 1");
    if (o.masks && o.background == Background::mog2)
        throw UsageError("--masks and --background mog2 exclude each other: masks need no background");
    if (!o.overview.empty()) {
        const std::string ext = lower_extension(o.overview);
        if (ext != "png" && ext != "jpg" && ext != "jpeg")
            throw UsageError("--overview: '" + o.overview + "' must end in .png or .jpg");
    }
    if (!o.video_out.empty()) {
        const std::string ext = lower_extension(o.video_out);
        if (ext != "avi" && ext != "mp4" && ext != "mkv")
            throw UsageError("--video-out: '" + o.video_out + "' must end in .avi, .mp4 or .mkv");
    }
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv)
{
    Options o;
    std::vector<int> roi;
    std::vector<int> steps{1, 1};
    std::string background = "average";

    CLI::App app{
        "Segments the moving things of a video, image sequence, network stream or camera into blobs, one JSON line per "
        "frame.\n"
        "Foreground comes from a running-average background (default), OpenCV's MOG2, or ready-made masks.",
        "nerva-blobs"};
    app.set_version_flag("--version", std::string("nerva-blobs ") + NERVA_VERSION_STRING);
    app.get_formatter()->column_width(34);

    app.add_option("input", o.input,
                   "video file, printf-style image pattern (frame_%04d.png), directory of PNG/PGM/PPM/JPEG files,\n"
                   "network stream (rtsp://, http(s)://, udp://, tcp://, rtmp://) or V4L2 camera (/dev/video0)")
        ->required();
    app.add_flag("--masks", o.masks, "the input holds foreground masks (non-zero = foreground)");

    auto* live = "Live sources";
    app.add_flag("--realtime", o.realtime,
                 "pace a file at its frame rate, dropping frames when behind, as from a camera")
        ->group(live);
    app.add_option("--reconnect", o.reconnect,
                   "attempts to reopen a live source after an outage, 1, 2, 4 ... 30 s apart (files: never)")
        ->default_str("unbounded")
        ->group(live);

    auto* fg = "Foreground";
    app.add_option("--background", background, "average: the library's running average; mog2: OpenCV MOG2")
        ->check(CLI::IsMember({"average", "mog2"}))
        ->default_str("average")
        ->group(fg);
    app.add_option("--learning-rate", o.learning_rate, "weight of the new frame in the background (0..1)")
        ->default_str("0.01, MOG2: automatic")
        ->group(fg);
    app.add_option("--threshold", o.threshold,
                   "grey difference from the background (at least) that counts as foreground")
        ->default_val(o.threshold)
        ->group(fg);
    app.add_option("--open", o.open, "morphological opening with an N x N ellipse: removes specks (0 = off)")
        ->default_val(o.open)
        ->group(fg);
    app.add_option("--close", o.close, "morphological closing with an N x N ellipse after the opening: fills gaps")
        ->default_val(o.close)
        ->group(fg);

    auto* sg = "Segmentation";
    app.add_option("--roi", roi, "region of interest x,y,w,h (default: the whole frame)")
        ->type_name("X,Y,W,H")
        ->delimiter(',')
        ->expected(4)
        ->group(sg);
    app.add_option("--steps", steps,
                   "column and row sampling steps sx,sy; 1,1 is exact. A row step sy reads empty\n"
                   "stretches every sy rows: blobs it finds are exact, but things lying wholly between\n"
                   "two read rows are missed. A column step above 1 leaves runs ending inside the region empty")
        ->type_name("SX,SY")
        ->delimiter(',')
        ->expected(2)
        ->default_str("1,1")
        ->group(sg);
    app.add_option("--min-side", o.min_side, "smallest blob width and height kept, pixels")
        ->default_val(o.min_side)
        ->group(sg);
    app.add_option("--min-pixels", o.min_pixels, "smallest blob pixel count kept")
        ->default_val(o.min_pixels)
        ->group(sg);

    auto* out = "Output";
    app.add_option("-o,--output", o.output, "JSON Lines file (default: standard output)")
        ->type_name("FILE")
        ->group(out);
    app.add_option("--annotate", o.annotate_dir, "write annotated frames as PNG into DIR")
        ->type_name("DIR")
        ->group(out);
    app.add_option("--every", o.every, "annotate every Nth frame")->default_val(o.every)->group(out);
    app.add_option("--video-out", o.video_out, "write every frame, annotated, to a video (.avi, .mp4, .mkv)")
        ->type_name("FILE")
        ->group(out);
    app.add_option("--overview", o.overview, "write a contact sheet of annotated frames and a blob-count plot (.png)")
        ->type_name("FILE")
        ->group(out);
    app.add_flag("--progress", o.progress, "show a progress bar even when standard error is not a terminal")
        ->group(out);
    app.add_flag("-q,--quiet", o.quiet, "no summary at the end")->group(out);

    auto* tr = "Tracking";
    app.add_flag("--track", o.track, "persistent track identities: \"track\" on each blob, \"tracks\" and \"events\"")
        ->group(tr);
    app.add_option("--line", o.lines, "count crossings of a named line, per direction (several allowed)")
        ->type_name("NAME:X1,Y1,X2,Y2")
        ->allow_extra_args(false)
        ->group(tr);
    app.add_option("--zone", o.zones, "report entries, exits and dwell in a named polygon (several allowed)")
        ->type_name("NAME:X1,Y1;X2,Y2;...")
        ->allow_extra_args(false)
        ->group(tr);
    app.add_option("--mot", o.mot, "write the tracks as a MOT Challenge text file")->type_name("FILE")->group(tr);
    app.add_option("--csv", o.csv, "write one CSV row per blob, with its track")->type_name("FILE")->group(tr);

    // CLI11 reads an empty value as 0 (or an empty path): refuse it instead.
    const CLI::Validator not_empty(
        [](std::string& value) { return value.empty() ? std::string("empty value") : std::string(); }, "", "not empty");
    for (CLI::Option* option : app.get_options())
        if (option->get_type_size_min() > 0) option->check(not_empty);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        app.exit(e);
        return std::nullopt;
    } catch (const CLI::CallForVersion& e) {
        app.exit(e);
        return std::nullopt;
    } catch (const CLI::ParseError& e) {
        throw UsageError(e.what());
    }

    o.background = background == "mog2" ? Background::mog2 : Background::running_average;
    o.learning_rate_given = app.count("--learning-rate") > 0;
    if (app.count("--reconnect") > 0 && o.reconnect < 0) throw UsageError("--reconnect: cannot be negative");
    if (!roi.empty()) o.roi = Roi{roi[0], roi[1], roi[2], roi[3]};
    check_values(o, roi, steps);
    check_tracking_options(o);
    o.track = o.track || !o.lines.empty() || !o.zones.empty() || !o.mot.empty() || !o.csv.empty();
    o.step_x = steps[0];
    o.step_y = steps[1];
    return o;
}

}  // namespace nerva_blobs
