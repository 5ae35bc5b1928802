#pragma once

#include <optional>
#include <string>
#include <vector>

// What nerva-blobs, the Python pipeline (blobs_in_video) and nerva-fleet
// share: the options of the foreground-to-blobs pipeline, their presets,
// defaults and meanings, and the one check of their values. Each entry
// point names an option its own way (--min-pixels, min_pixels); the table
// holds both so that a message always names what the user typed.
namespace nerva_pipeline {

struct Roi {
    int x = 0, y = 0, width = 0, height = 0;
};

// The pipeline's options once a preset has been applied.
struct Settings {
    bool masks = false;                   // the input holds foreground masks
    std::string background = "average";   // "average" or "mog2"
    std::optional<double> learning_rate;  // the detector's own default when absent
    int threshold = 25;
    int open = 0;            // side of the opening kernel, 0 = none
    int close = 0;           // side of the closing kernel, 0 = none
    std::optional<Roi> roi;  // the whole frame when absent
    int step_x = 1, step_y = 1;
    int min_side = 0;
    int min_pixels = 0;
};

// The clean-up and size floor a preset stands for.
struct Preset {
    const char* name;
    int open, close, min_pixels;
    const char* meaning;
};

// people, vehicles, raw: every preset, in the order help lists them.
const std::vector<Preset>& presets();
// Frames get the people preset, masks the raw one: masks are already a
// foreground someone chose, and are segmented as given unless asked.
const char* default_preset(bool masks);
// Sets open, close and min_pixels from the named preset, except those the
// user gave (`given` holds their table names). False for an unknown name.
bool apply_preset(Settings& s, const std::string& name, const std::vector<std::string>& given);

// How an entry point spells option names in its messages.
enum class Naming { flags, keywords };

// One option of the table: its program flag, Python keyword, placeholder,
// default as help shows it, and meaning.
struct OptionInfo {
    const char* name;  // table name, as apply_preset takes it
    const char* flag;
    const char* keyword;
    const char* group;
    const char* value;
    const char* default_text;
    const char* meaning;
};

const std::vector<OptionInfo>& option_table();
const OptionInfo& option(const std::string& name);

// The first thing wrong with `s` that needs no frame to see, as one line
// naming the option; empty when all is well.
std::string check_settings(const Settings& s, Naming naming);
// What only the frame size shows: a region of interest outside the frame, a
// clean-up kernel larger than it. Empty when all is well.
std::string check_for_frame(const Settings& s, int width, int height, Naming naming);

}  // namespace nerva_pipeline
