#include "json_line.h"

#include <cmath>

#include "json_text.h"

namespace nerva_pipeline {
namespace {

void append_member(std::string& out, std::string_view key, double value)
{
    append_key(out, key);
    append_json(out, value);
    out += ',';
}

void append_shape(std::string& out, const ShapeRecord& s)
{
    append_key(out, "shape");
    out += '{';
    append_member(out, "mu20", s.mu20);
    append_member(out, "mu11", s.mu11);
    append_member(out, "mu02", s.mu02);
    append_member(out, "orientation", s.orientation);
    append_member(out, "major_axis", s.major_axis);
    append_member(out, "minor_axis", s.minor_axis);
    append_member(out, "eccentricity", s.eccentricity);
    append_member(out, "perimeter", s.perimeter);
    append_member(out, "extent", s.extent);
    append_key(out, "boundary_edges");
    append_json(out, s.boundary_edges);
    out += '}';
}

void append_blob(std::string& out, const BlobRecord& b, const int* track)
{
    out += "{\"id\":";
    append_json(out, static_cast<long long>(b.id));
    out += ",\"bbox\":[";
    for (const int v : {b.xmin, b.ymin, b.xmax}) {
        append_json(out, static_cast<long long>(v));
        out += ',';
    }
    append_json(out, static_cast<long long>(b.ymax));
    out += "],";
    const std::pair<const char*, int> fields[] = {
        {"width", b.width}, {"height", b.height}, {"npix", b.npix}, {"xc", b.xc}, {"yc", b.yc}};
    for (const auto& [key, value] : fields) {
        append_key(out, key);
        append_json(out, static_cast<long long>(value));
        out += ',';
    }
    if (b.shape) {
        append_shape(out, *b.shape);
        out += ',';
    }
    if (track) {
        append_key(out, "track");
        if (*track) append_json(out, static_cast<long long>(*track));
        else out += "null";
        out += ',';
    }
    out.back() = '}';
}

}  // namespace

void json_line(std::string& out, long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras)
{
    out.clear();
    out += "{\"frame\":";
    append_json(out, static_cast<long long>(frame));
    out += ",\"blobs\":[";
    const std::vector<int>* tracks = extras.blob_tracks;
    for (size_t i = 0; i < blobs.size(); ++i) {
        if (i > 0) out += ',';
        append_blob(out, blobs[i], tracks && i < tracks->size() ? &(*tracks)[i] : nullptr);
    }
    out += ']';
    if (extras.time) {
        out += ",\"time\":";
        append_json(out, std::round(*extras.time * 1e6) / 1e6);
        out += ",\"dropped\":";
        append_json(out, static_cast<long long>(extras.dropped));
    }
    if (extras.outage_s > 0) {
        out += ",\"outage\":{\"seconds\":";
        append_json(out, std::round(extras.outage_s * 1e3) / 1e3);
        out += ",\"attempts\":";
        append_json(out, static_cast<long long>(extras.outage_attempts));
        out += '}';
    }
    if (!extras.wall.empty()) {
        out += ",\"wall\":";
        append_json(out, extras.wall);
    }
    if (extras.components >= 0) {
        out += ",\"truncated\":true,\"components\":";
        append_json(out, static_cast<long long>(extras.components));
    }
    // The tracking part's members end the line, inside its braces.
    if (extras.tracking.size() > 2) {
        out += ',';
        out.append(extras.tracking, 1, std::string::npos);
    } else {
        out += '}';
    }
    out += '\n';
}

std::string json_line(long frame, const std::vector<BlobRecord>& blobs, const LineExtras& extras)
{
    std::string out;
    json_line(out, frame, blobs, extras);
    return out;
}

}  // namespace nerva_pipeline
