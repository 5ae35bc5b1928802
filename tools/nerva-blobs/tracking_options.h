#pragma once

#include <string>
#include <vector>

#include "options.h"

// The texts of --line NAME:x1,y1,x2,y2 and --zone NAME:x1,y1;x2,y2;...
namespace nerva_blobs {

struct NamedPoints {
    std::string name;
    std::vector<double> values;  // x1, y1, x2, y2, ...
};

// UsageError naming the option and the text when it does not fit.
NamedPoints parse_line(const std::string& text);
NamedPoints parse_zone(const std::string& text);

// Every --line and --zone of the command line, and their number.
void check_tracking_options(const Options& options);

}  // namespace nerva_blobs
