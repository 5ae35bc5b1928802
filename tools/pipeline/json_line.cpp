#include "json_line.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace nerva_pipeline {
namespace {

nlohmann::ordered_json shape_fields(const ShapeRecord& s)
{
    return {{"mu20", s.mu20},
            {"mu11", s.mu11},
            {"mu02", s.mu02},
            {"orientation", s.orientation},
            {"major_axis", s.major_axis},
            {"minor_axis", s.minor_axis},
            {"eccentricity", s.eccentricity},
            {"perimeter", s.perimeter},
            {"extent", s.extent},
            {"boundary_edges", s.boundary_edges}};
}

}  // namespace

std::string json_line(long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras)
{
    nlohmann::ordered_json line = {{"frame", frame}, {"blobs", nlohmann::ordered_json::array()}};
    for (const BlobRecord& b : blobs) {
        line["blobs"].push_back({{"id", b.id},
                                 {"bbox", {b.xmin, b.ymin, b.xmax, b.ymax}},
                                 {"width", b.width},
                                 {"height", b.height},
                                 {"npix", b.npix},
                                 {"xc", b.xc},
                                 {"yc", b.yc}});
        if (b.shape) line["blobs"].back()["shape"] = shape_fields(*b.shape);
    }
    if (extras.blob_tracks)
        for (size_t i = 0; i < blobs.size() && i < extras.blob_tracks->size(); ++i) {
            const int track = (*extras.blob_tracks)[i];
            line["blobs"][i]["track"] = track ? nlohmann::ordered_json(track) : nlohmann::ordered_json();
        }
    if (extras.time) {
        line["time"] = std::round(*extras.time * 1e6) / 1e6;
        line["dropped"] = extras.dropped;
    }
    if (extras.outage_s > 0)
        line["outage"] = {{"seconds", std::round(extras.outage_s * 1e3) / 1e3}, {"attempts", extras.outage_attempts}};
    if (!extras.wall.empty()) line["wall"] = extras.wall;
    if (extras.components >= 0) {
        line["truncated"] = true;
        line["components"] = extras.components;
    }
    std::string text = line.dump();
    // The tracking part's members are spliced in before the closing brace.
    if (extras.tracking.size() > 2) {
        text.back() = ',';
        text.append(extras.tracking, 1, std::string::npos);
    }
    return text + '\n';
}

}  // namespace nerva_pipeline
