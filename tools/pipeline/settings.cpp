#include "settings.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace nerva_pipeline {

const std::vector<Preset>& presets()
{
    // people: an opening of 3 removes the specks of sensor noise and
    // flicker, a closing of 7 joins the legs, head and torso a threshold
    // splits apart, and 150 pixels is a person far off in a 768x576 frame.
    // vehicles: larger parts to join and larger things to keep.
    static const std::vector<Preset> table = {
        {"people", 3, 7, 150, "people and things their size (open 3, close 7, min-pixels 150)"},
        {"vehicles", 5, 11, 400, "cars and larger things (open 5, close 11, min-pixels 400)"},
        {"raw", 0, 0, 0, "the mask as the detector gives it, every blob kept (open 0, close 0, min-pixels 0)"},
    };
    return table;
}

const char* default_preset(bool masks) { return masks ? "raw" : "people"; }

bool apply_preset(Settings& s, const std::string& name, const std::vector<std::string>& given)
{
    const auto& all = presets();
    const auto p = std::find_if(all.begin(), all.end(), [&](const Preset& q) { return name == q.name; });
    if (p == all.end()) return false;
    const auto chosen = [&](const char* option) {
        return std::find(given.begin(), given.end(), option) != given.end();
    };
    if (!chosen("open")) s.open = p->open;
    if (!chosen("close")) s.close = p->close;
    if (!chosen("min_pixels")) s.min_pixels = p->min_pixels;
    return true;
}

const std::vector<OptionInfo>& option_table()
{
    static const std::vector<OptionInfo> table = {
        {"preset", "--preset", "preset", "Foreground", "NAME", "people; raw with --masks",
         "clean-up and size floor: people, vehicles or raw (values below); options given beside it win"},
        {"masks", "--masks", "masks", "Foreground", "", "off",
         "the input holds foreground masks (non-zero = foreground)"},
        {"background", "--background", "background", "Foreground", "NAME", "average",
         "average: the library's running average on grey frames; mog2: OpenCV's MOG2, shadows left out"},
        {"learning_rate", "--learning-rate", "learning_rate", "Foreground", "R", "0.01; MOG2: automatic",
         "weight of a new frame in the background, 0 to 1"},
        {"threshold", "--threshold", "threshold", "Foreground", "T", "25",
         "grey difference from the background (at least) that counts as foreground, 0 to 255; a video\n"
         "file's grey is its decoder's luma (limited range: 22 on luma is about 25 on BGR-converted grey)"},
        {"open", "--open", "opening", "Foreground", "N", "the preset's",
         "opening with an N x N ellipse: removes specks smaller than the kernel (0 = off)"},
        {"close", "--close", "closing", "Foreground", "N", "the preset's",
         "closing with an N x N ellipse after the opening: joins parts closer than the kernel (0 = off)"},
        {"roi", "--roi", "roi", "Segmentation", "X,Y,W,H", "the whole frame", "region of interest"},
        {"steps", "--steps", "steps", "Segmentation", "SX,SY", "1,1",
         "column and row sampling steps; 1,1 is exact. A row step SY reads empty stretches every SY rows: blobs "
         "it finds are exact, but things lying wholly between two read rows are missed. A column step above 1 "
         "leaves runs ending inside the region empty"},
        {"min_side", "--min-side", "min_side", "Segmentation", "N", "0", "smallest blob width and height kept, pixels"},
        {"min_pixels", "--min-pixels", "min_pixels", "Segmentation", "N", "the preset's",
         "smallest blob pixel count kept"},
    };
    return table;
}

const OptionInfo& option(const std::string& name)
{
    for (const OptionInfo& o : option_table())
        if (name == o.name) return o;
    throw std::out_of_range("no pipeline option '" + name + "'");
}

namespace {

std::string named(const char* name, Naming naming)
{
    const OptionInfo& o = option(name);
    return naming == Naming::flags ? o.flag : o.keyword;
}

std::string text(int value) { return std::to_string(value); }

}  // namespace

std::string check_settings(const Settings& s, Naming n)
{
    if (s.background != "average" && s.background != "mog2")
        return named("background", n) + ": must be average or mog2 (got '" + s.background + "')";
    if (s.roi && (s.roi->width < 1 || s.roi->height < 1))
        return named("roi", n) + ": width and height must be at least 1 (got " + text(s.roi->width) + "x" +
               text(s.roi->height) + ")";
    if (s.roi && (s.roi->x < 0 || s.roi->y < 0))
        return named("roi", n) + ": the region of interest starts outside the frame (x and y must be at least 0)";
    if (s.step_x < 1 || s.step_y < 1)
        return named("steps", n) + ": steps must be at least 1 (got " + text(s.step_x) + "," + text(s.step_y) + ")";
    if (s.learning_rate && !(*s.learning_rate >= 0.0 && *s.learning_rate <= 1.0))  // NaN fails both
        return named("learning_rate", n) + ": must lie between 0 and 1";
    if (s.threshold < 0 || s.threshold > 255) return named("threshold", n) + ": must lie between 0 and 255";
    if (s.open < 0 || s.close < 0)
        return named("open", n) + "/" + named("close", n) + ": kernel sizes cannot be negative";
    if (s.min_side < 0 || s.min_pixels < 0)
        return named("min_side", n) + "/" + named("min_pixels", n) + ": cannot be negative";
    if (s.masks && s.background == "mog2")
        return named("masks", n) + " and " + named("background", n) +
               " mog2 exclude each other: masks need no background";
    return "";
}

std::string check_for_frame(const Settings& s, int width, int height, Naming n)
{
    const std::string frame = text(width) + "x" + text(height) + " frame";
    if (s.roi) {
        const Roi& r = *s.roi;
        // In 64 bits: x + width may pass INT_MAX.
        if (static_cast<long long>(r.x) + r.width > width || static_cast<long long>(r.y) + r.height > height)
            return named("roi", n) + " " + text(r.x) + "," + text(r.y) + "," + text(r.width) + "," + text(r.height) +
                   " lies outside the " + frame;
    }
    // A kernel that fits nowhere in the frame only costs time (minutes for a
    // few thousand pixels, exabytes asked of the allocator near INT_MAX).
    for (const auto& [name, side] : {std::pair{"open", s.open}, std::pair{"close", s.close}})
        if (side > width || side > height)
            return named(name, n) + " " + text(side) + ": the kernel is larger than the " + frame;
    return "";
}

}  // namespace nerva_pipeline
