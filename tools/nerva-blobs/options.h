#pragma once

#include <optional>
#include <string>
#include <vector>

#include "settings.h"

namespace nerva_blobs {

enum class Background { running_average, mog2 };

using Roi = nerva_pipeline::Roi;

struct Options {
    std::string input;
    bool masks = false;     // input already holds foreground masks
    bool realtime = false;  // pace a file at its frame rate, dropping frames as a camera would
    int reconnect = -1;     // reopening attempts per outage of a live source; -1: unbounded

    Background background = Background::running_average;
    float learning_rate = 0.01f;
    bool learning_rate_given = false;  // MOG2 picks its own rate otherwise
    int threshold = 25;
    std::string preset;  // what set open, close and min_pixels where not given
    int open = 0;        // side of the opening kernel, 0 = none
    int close = 0;       // side of the closing kernel, 0 = none

    std::optional<Roi> roi;  // whole frame when absent
    int step_x = 1, step_y = 1;
    int min_side = 0;
    int min_pixels = 0;
    bool measures = false;  // shape measures of each blob in the JSON

    std::string output;  // JSON Lines; standard output when empty
    std::string annotate_dir;
    int every = 1;
    std::string video_out;
    std::string overview;
    bool progress = false;
    bool quiet = false;  // no summary
    std::string serve;   // [HOST:]PORT of the live page; none when empty

    // Tracking (tracking_stage.cpp); lines, zones and the exports imply it.
    bool track = false;
    std::vector<std::string> lines;  // NAME:x1,y1,x2,y2
    std::vector<std::string> zones;  // NAME:x1,y1;x2,y2;...
    std::string mot;                 // MOT Challenge text file
    std::string csv;                 // one row per blob
};

// The options the program shares with Python and nerva-fleet, for their
// common checks.
nerva_pipeline::Settings pipeline_settings(const Options& o);

// Parses the command line. Prints help or the version and returns nullopt
// when asked to (the caller exits 0); throws UsageError for anything wrong
// that can be seen without opening the input.
std::optional<Options> parse_options(int argc, char** argv);

}  // namespace nerva_blobs
