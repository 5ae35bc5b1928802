#include "tracking_options.h"

#include <sstream>

#include "errors.h"
#include "nerva/tracking/counting.h"

namespace nerva_blobs {

// "NAME:v,v;v,v...": the numbers may be separated by commas or semicolons.
static NamedPoints parse_named_points(const std::string& option, const std::string& text)
{
    const auto colon = text.find(':');
    if (colon == std::string::npos || colon == 0)
        throw UsageError(option + " '" + text + "': expected NAME:coordinates");
    NamedPoints s{text.substr(0, colon), {}};
    if (s.name.size() >= nerva::TRACKER_NAME_LENGTH)
        throw UsageError(option + " '" + text + "': the name is longer than " +
                         std::to_string(nerva::TRACKER_NAME_LENGTH - 1) + " characters");
    std::string numbers = text.substr(colon + 1);
    for (char& c : numbers)
        if (c == ',' || c == ';') c = ' ';
    std::istringstream in(numbers);
    double v;
    while (in >> v) s.values.push_back(v);
    if (!in.eof()) throw UsageError(option + " '" + text + "': coordinates must be numbers");
    return s;
}

NamedPoints parse_line(const std::string& text)
{
    NamedPoints s = parse_named_points("--line", text);
    if (s.values.size() != 4) throw UsageError("--line '" + text + "': expected NAME:x1,y1,x2,y2");
    if (s.values[0] == s.values[2] && s.values[1] == s.values[3])
        throw UsageError("--line '" + text + "': the two points are the same");
    return s;
}

NamedPoints parse_zone(const std::string& text)
{
    NamedPoints s = parse_named_points("--zone", text);
    if (s.values.size() % 2 != 0 || s.values.size() < 6 || s.values.size() > 2 * nerva::ZONE_MAX_POINTS)
        throw UsageError("--zone '" + text + "': expected NAME:x1,y1;x2,y2;x3,y3... (3 to " +
                         std::to_string(nerva::ZONE_MAX_POINTS) + " points)");
    return s;
}

void check_tracking_options(const Options& o)
{
    if (o.lines.size() > static_cast<size_t>(nerva::TRACKER_MAX_LINES))
        throw UsageError("--line: at most " + std::to_string(nerva::TRACKER_MAX_LINES) + " lines");
    if (o.zones.size() > static_cast<size_t>(nerva::TRACKER_MAX_ZONES))
        throw UsageError("--zone: at most " + std::to_string(nerva::TRACKER_MAX_ZONES) + " zones");
    for (const std::string& l : o.lines) parse_line(l);
    for (const std::string& z : o.zones) parse_zone(z);
}

}  // namespace nerva_blobs
