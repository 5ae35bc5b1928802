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

namespace pipeline = nerva_pipeline;

std::string lower_extension(const std::string& path)
{
    const auto dot = path.find_last_of('.');
    const auto slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext;
}

// What only this program has: its outputs and the live-source options.
void check_program_values(const Options& o)
{
    if (o.every < 1) throw UsageError("--every: must be at least 1");
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

// Help's lines at most 80 columns wide beside the option column.
std::string wrapped(const std::string& text)
{
    constexpr size_t kWidth = 80;
    std::string out;
    size_t line = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos) end = text.size();
        const std::string word = text.substr(start, end - start);
        if (line > 0 && line + 1 + word.size() > kWidth) {
            out += '\n';
            line = 0;
        } else if (line > 0) {
            out += ' ';
            ++line;
        }
        out += word;
        line += word.size();
        start = end + 1;
    }
    return out;
}

// An option of the table shared with Python and nerva-fleet: its flag,
// placeholder, default and meaning come from there.
template <typename T>
CLI::Option* add_shared(CLI::App& app, const char* name, T& variable)
{
    const pipeline::OptionInfo& info = pipeline::option(name);
    const std::string meaning = wrapped(std::string(info.meaning) + " [default: " + info.default_text + "]");
    CLI::Option* option = app.add_option(info.flag, variable, meaning)->group(info.group);
    if (*info.value) option->type_name(info.value);
    return option;
}

std::string presets_text()
{
    std::string text = "Presets (--preset):\n";
    for (const pipeline::Preset& p : pipeline::presets()) text += "  " + std::string(p.name) + ": " + p.meaning + "\n";
    return text;
}

const char* const kExamples = R"(Examples:
  nerva-blobs street.avi -o blobs.jsonl
      people-sized blobs of a video, one JSON line per frame
  nerva-blobs street.avi --preset raw
      every blob of the running average's mask, specks included
  nerva-blobs --masks masks/ --min-pixels 50
      ready-made masks (a folder of PNG files, or masks/m_%04d.png)
  nerva-blobs rtsp://camera.local/stream --reconnect 5 -o live.jsonl
      a network camera (or /dev/video0), reopened after an outage
  nerva-blobs street.avi --overview overview.png -q -o /dev/null
      a picture of annotated frames and the blob count
  nerva-fleet videos/ -o results/
      many videos at once, one worker per core (installed with the Python package)
)";

// The closest flag to a mistyped one: other tools' names for ours first,
// then the flags a letter or two away, then those sharing its first word.
std::string suggestion(const CLI::App& app, const std::string& typed)
{
    static const std::vector<std::pair<std::string, std::string>> other_names = {
        {"--min-area", "--min-pixels"}, {"--area", "--min-pixels"},     {"--min-size", "--min-pixels"},
        {"--opening", "--open"},        {"--closing", "--close"},       {"--mask", "--masks"},
        {"--bg", "--background"},       {"--output-dir", "--annotate"},
    };
    const std::string key = typed.substr(0, typed.find('='));
    for (const auto& [other, ours] : other_names)
        if (key == other) return ours;
    const auto distance = [](const std::string& a, const std::string& b) {
        std::vector<size_t> row(b.size() + 1);
        for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
        for (size_t i = 1; i <= a.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i;
            for (size_t j = 1; j <= b.size(); ++j) {
                const size_t above = row[j];
                row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
                diagonal = above;
            }
        }
        return row[b.size()];
    };
    std::string best;
    size_t best_distance = 3;  // farther than two edits is no typo
    std::string same_word;
    const std::string word = key.substr(0, key.find('-', 2));
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            const std::string flag = "--" + name;
            const size_t d = distance(key, flag);
            if (d < best_distance) best_distance = d, best = flag;
            if (same_word.empty() && word.size() > 3 && flag.rfind(word + "-", 0) == 0) same_word = flag;
        }
    }
    return best.empty() ? same_word : best;
}

}  // namespace

nerva_pipeline::Settings pipeline_settings(const Options& o)
{
    pipeline::Settings s;
    s.masks = o.masks;
    s.background = o.background == Background::mog2 ? "mog2" : "average";
    if (o.learning_rate_given) s.learning_rate = o.learning_rate;
    s.threshold = o.threshold;
    s.open = o.open;
    s.close = o.close;
    s.roi = o.roi;
    s.step_x = o.step_x;
    s.step_y = o.step_y;
    s.min_side = o.min_side;
    s.min_pixels = o.min_pixels;
    return s;
}

std::optional<Options> parse_options(int argc, char** argv)
{
    Options o;
    std::vector<int> roi;
    std::vector<int> steps{1, 1};
    std::string background = "average";

    CLI::App app{
        "Segments the moving things of a video, image sequence, network stream or camera into blobs, one JSON line per "
        "frame.\n"
        "Foreground comes from a running-average background (default), OpenCV's MOG2, or ready-made masks; a light "
        "clean-up\nand a size floor (the people preset) keep the blobs a person would point at.",
        "nerva-blobs"};
    app.set_version_flag("--version", std::string("nerva-blobs ") + NERVA_VERSION_STRING);
    app.get_formatter()->column_width(34);
    app.footer(presets_text() + "\n" + kExamples);

    app.add_option("input", o.input,
                   "video file, printf-style image pattern (frame_%04d.png), directory of PNG/PGM/PPM/JPEG files,\n"
                   "network stream (rtsp://, http(s)://, udp://, tcp://, rtmp://) or V4L2 camera (/dev/video0)")
        ->required();

    // The pipeline's options, shared with Python and nerva-fleet.
    std::vector<std::string> preset_names;
    for (const pipeline::Preset& p : pipeline::presets()) preset_names.push_back(p.name);
    add_shared(app, "preset", o.preset)->check(CLI::IsMember(preset_names));
    app.add_flag(pipeline::option("masks").flag, o.masks, pipeline::option("masks").meaning)
        ->group(pipeline::option("masks").group);
    add_shared(app, "background", background)->check(CLI::IsMember({"average", "mog2"}));
    add_shared(app, "learning_rate", o.learning_rate);
    add_shared(app, "threshold", o.threshold);
    add_shared(app, "open", o.open);
    add_shared(app, "close", o.close);
    add_shared(app, "roi", roi)->delimiter(',')->expected(4);
    add_shared(app, "steps", steps)->delimiter(',')->expected(2);
    add_shared(app, "min_side", o.min_side);
    add_shared(app, "min_pixels", o.min_pixels);

    auto* live = "Live sources";
    app.add_flag("--realtime", o.realtime,
                 "pace a file at its frame rate, dropping frames when behind, as from a camera")
        ->group(live);
    app.add_option("--reconnect", o.reconnect,
                   "attempts to reopen a live source after an outage, 1, 2, 4 ... 30 s apart (files: never)")
        ->default_str("unbounded")
        ->group(live);

    // Shape measures: one more pass over each blob's runs.
    app.add_flag("--measures", o.measures,
                 "add each blob's shape to the JSON: moments, orientation, axes, eccentricity, perimeter, extent, "
                 "boundary edges")
        ->group("Segmentation");

    auto* out = "Output";
    app.add_option("-o,--output", o.output, "JSON Lines file [default: standard output]")
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
    app.add_flag("-q,--quiet", o.quiet,
                 "no summary at the end (frames, blobs per frame and each stage's median time\n"
                 "per frame: decoding, foreground, segmentation)")
        ->group(out);
    app.add_option("--serve", o.serve,
                   "serve a live page, /stream.mjpg, /events, /metrics and /healthz on [HOST:]PORT\n"
                   "(HOST defaults to 127.0.0.1: give 0.0.0.0 to be seen from other machines)")
        ->type_name("[HOST:]PORT")
        ->group(out);

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

    // Unknown options are reported here, with the nearest known one.
    app.allow_extras();
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
    for (const std::string& extra : app.remaining()) {
        if (extra.rfind("-", 0) != 0 || extra == "-")
            throw UsageError("unexpected argument '" + extra + "': one input at a time");
        const std::string near = suggestion(app, extra);
        throw UsageError("unknown option " + extra.substr(0, extra.find('=')) +
                         (near.empty() ? std::string() : "; did you mean " + near + "?"));
    }

    o.background = background == "mog2" ? Background::mog2 : Background::running_average;
    o.learning_rate_given = app.count("--learning-rate") > 0;
    if (app.count("--reconnect") > 0 && o.reconnect < 0) throw UsageError("--reconnect: cannot be negative");
    if (!roi.empty()) o.roi = Roi{roi[0], roi[1], roi[2], roi[3]};
    check_tracking_options(o);
    o.track = o.track || !o.lines.empty() || !o.zones.empty() || !o.mot.empty() || !o.csv.empty();
    o.step_x = steps[0];
    o.step_y = steps[1];

    if (o.preset.empty()) o.preset = pipeline::default_preset(o.masks);
    std::vector<std::string> given;
    for (const char* name : {"open", "close", "min_pixels"})
        if (app.count(pipeline::option(name).flag) > 0) given.push_back(name);
    pipeline::Settings settings = pipeline_settings(o);
    pipeline::apply_preset(settings, o.preset, given);
    o.open = settings.open;
    o.close = settings.close;
    o.min_pixels = settings.min_pixels;

    const std::string wrong = pipeline::check_settings(settings, pipeline::Naming::flags);
    if (!wrong.empty()) throw UsageError(wrong);
    check_program_values(o);
    return o;
}

}  // namespace nerva_blobs
