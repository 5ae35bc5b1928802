#include "wall_clock.h"

#include <cstdio>
#include <ctime>

namespace nerva_blobs {

WallClock::WallClock()
    : system_origin_(std::chrono::system_clock::now()), steady_origin_(std::chrono::steady_clock::now())
{}

void WallClock::at(std::chrono::steady_clock::time_point t, std::string& out) const
{
    using namespace std::chrono;
    const auto ms_since_epoch = duration_cast<milliseconds>(system_origin_.time_since_epoch()) +
                                duration_cast<milliseconds>(t - steady_origin_);
    const std::time_t seconds = static_cast<std::time_t>(ms_since_epoch.count() / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(ms_since_epoch.count() % 1000));
    out.assign(text);
}

}  // namespace nerva_blobs
