#include "tracking_json.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "nerva/blob/blob.h"

namespace nerva_pipeline {
double rounded(double v, int digits)
{
    const double scale = std::pow(10.0, digits);
    return std::round(v * scale) / scale;
}

std::string tracking_json(const nerva::MV_tracker& tracker, double fps)
{
    nlohmann::ordered_json json = {{"tracks", nlohmann::ordered_json::array()},
                                   {"events", nlohmann::ordered_json::array()}};
    for (int i = 0; i < tracker.track_count(); ++i) {
        const nerva::track& t = tracker.track_at(i);
        if (t.id == 0) continue;
        nlohmann::ordered_json blob_ids = nlohmann::ordered_json::array();
        for (int k = 0; k < t.nblobs; ++k) blob_ids.push_back(t.blobs[k]);
        json["tracks"].push_back(
            {{"id", t.id},
             {"state", nerva::get_track_state_name(t.state)},
             {"bbox",
              {std::lround(t.box.xmin), std::lround(t.box.ymin), std::lround(t.box.xmax), std::lround(t.box.ymax)}},
             {"velocity", {rounded(t.vx, 2), rounded(t.vy, 2)}},
             {"age", t.age},
             {"blobs", blob_ids},
             {"occlusion", nerva::get_occl_name_from_type_detailed(t.occlusion)}});
    }
    for (int i = 0; i < tracker.event_count(); ++i) {
        const nerva::track_event& e = tracker.event_at(i);
        nlohmann::ordered_json ev = {{"type", nerva::get_track_event_name(e.kind)}, {"track", e.track_id}};
        if (e.kind == nerva::TRACK_EVENT_LINE) {
            ev["line"] = tracker.line_at(e.index).name;
            ev["direction"] = e.direction == nerva::LINE_IN ? "in" : "out";
        } else if (e.kind == nerva::TRACK_EVENT_ZONE_ENTER || e.kind == nerva::TRACK_EVENT_ZONE_EXIT) {
            ev["zone"] = tracker.zone_at(e.index).name;
        }
        if (e.kind == nerva::TRACK_EVENT_ZONE_EXIT) {
            ev["dwell_frames"] = e.dwell;
            if (fps > 0) ev["dwell"] = rounded(static_cast<double>(e.dwell) / fps, 3);
        }
        json["events"].push_back(ev);
    }
    if (tracker.line_count() > 0 || tracker.zone_count() > 0) {
        nlohmann::ordered_json counts = nlohmann::ordered_json::object();
        for (int i = 0; i < tracker.line_count(); ++i) {
            const nerva::count_line& l = tracker.line_at(i);
            counts[l.name] = {{"in", l.count_in}, {"out", l.count_out}};
        }
        for (int i = 0; i < tracker.zone_count(); ++i) {
            const nerva::count_zone& z = tracker.zone_at(i);
            counts[z.name] = {{"inside", z.inside}, {"entries", z.entries}, {"exits", z.exits}};
        }
        json["counts"] = counts;
    }
    return json.dump();
}

}  // namespace nerva_pipeline
