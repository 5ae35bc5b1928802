#include <map>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "bindings.h"
#include "blobs.h"
#include "nerva/tracking/tracker.h"

namespace py = pybind11;

namespace nerva_python {
namespace {

// One track as Python sees it: a read-only record copied out of the tracker.
struct Track {
    int id, age, hits, misses;
    bool shown;
    std::string state, occlusion;
    double xmin, ymin, xmax, ymax, vx, vy;
    std::vector<int> blobs;
};

class Tracker {
public:
    Tracker(int width, int height, const std::map<std::string, std::vector<double>>& lines,
            const std::map<std::string, std::vector<std::pair<double, double>>>& zones, bool suppress_ghosts)
        : tracker_(params(width, height, suppress_ghosts))
    {
        for (const auto& [name, p] : lines) {
            if (p.size() != 4) throw py::value_error("line '" + name + "': expected (x1, y1, x2, y2)");
            if (tracker_.add_line(name.c_str(), p[0], p[1], p[2], p[3]) < 0)
                throw py::value_error("line '" + name + "': two distinct points, at most " +
                                      std::to_string(nerva::TRACKER_MAX_LINES) + " lines");
        }
        for (const auto& [name, points] : zones) {
            std::vector<nerva::track_point> pts;
            for (const auto& [x, y] : points) pts.push_back({x, y});
            if (tracker_.add_zone(name.c_str(), pts.data(), static_cast<int>(pts.size())) < 0)
                throw py::value_error("zone '" + name + "': 3 to " + std::to_string(nerva::ZONE_MAX_POINTS) +
                                      " points, at most " + std::to_string(nerva::TRACKER_MAX_ZONES) + " zones");
        }
    }

    void update(Blobs& blobs, int64_t frame)
    {
        {
            py::gil_scoped_release release;
            dets_.clear();
            for (size_t i = 0; i < blobs.size(); ++i) {
                const int32_t* b = &blobs.bbox[4 * i];
                dets_.push_back(
                    {{b[0], b[1], b[2], b[3], b[2] - b[0] + 1, b[3] - b[1] + 1}, blobs.ident[i], blobs.npix[i]});
            }
            tracker_.update(dets_.data(), static_cast<int>(dets_.size()), frame);
            blobs.track.assign(blobs.size(), 0);
            for (size_t i = 0; i < blobs.size(); ++i) blobs.track[i] = tracker_.detection_track(static_cast<int>(i));
        }
    }

    std::vector<Track> tracks() const
    {
        std::vector<Track> out;
        for (int i = 0; i < tracker_.track_count(); ++i) {
            const nerva::track& t = tracker_.track_at(i);
            if (t.id == 0) continue;
            out.push_back({t.id, t.age, t.hits, t.misses, nerva::track_shown(t), nerva::get_track_state_name(t.state),
                           nerva::get_occl_name_from_type_detailed(t.occlusion), t.box.xmin, t.box.ymin, t.box.xmax,
                           t.box.ymax, t.vx, t.vy, std::vector<int>(t.blobs, t.blobs + t.nblobs)});
        }
        return out;
    }

    py::list events() const
    {
        py::list out;
        for (int i = 0; i < tracker_.event_count(); ++i) {
            const nerva::track_event& e = tracker_.event_at(i);
            py::dict d;
            d["type"] = nerva::get_track_event_name(e.kind);
            d["track"] = e.track_id;
            d["frame"] = e.frame;
            if (e.kind == nerva::TRACK_EVENT_LINE) {
                d["line"] = tracker_.line_at(e.index).name;
                d["direction"] = e.direction == nerva::LINE_IN ? "in" : "out";
            } else if (e.kind == nerva::TRACK_EVENT_ZONE_ENTER || e.kind == nerva::TRACK_EVENT_ZONE_EXIT) {
                d["zone"] = tracker_.zone_at(e.index).name;
                if (e.kind == nerva::TRACK_EVENT_ZONE_EXIT) d["dwell_frames"] = e.dwell;
            }
            out.append(d);
        }
        return out;
    }

    const nerva::MV_tracker& engine() const { return tracker_; }

    py::dict counts() const
    {
        py::dict out;
        for (int i = 0; i < tracker_.line_count(); ++i) {
            const nerva::count_line& l = tracker_.line_at(i);
            py::dict c;
            c["in"] = l.count_in;
            c["out"] = l.count_out;
            out[py::str(l.name)] = c;
        }
        for (int i = 0; i < tracker_.zone_count(); ++i) {
            const nerva::count_zone& z = tracker_.zone_at(i);
            py::dict c;
            c["inside"] = z.inside;
            c["entries"] = z.entries;
            c["exits"] = z.exits;
            out[py::str(z.name)] = c;
        }
        return out;
    }

private:
    static nerva::tracker_params params(int width, int height, bool suppress_ghosts)
    {
        if (width < 1 || height < 1) throw py::value_error("width and height must be at least 1");
        nerva::tracker_params p;
        p.frame_width = width;
        p.frame_height = height;
        p.suppress_ghosts = suppress_ghosts;
        return p;
    }

    nerva::MV_tracker tracker_;
    std::vector<nerva::track_detection> dets_;
};

}  // namespace

const nerva::MV_tracker& tracker_engine(const py::handle& tracker) { return tracker.cast<const Tracker&>().engine(); }

void bind_tracker(py::module_& m)
{
    py::class_<Track>(m, "Track", "One track of the last frame: a read-only record.")
        .def_readonly("id", &Track::id, "Identity, from 1 in order of confirmation.")
        .def_readonly("state", &Track::state, "'confirmed', 'coasting' (no blob this frame) or 'ended'.")
        .def_property_readonly(
            "bbox", [](const Track& t) { return py::make_tuple(t.xmin, t.ymin, t.xmax, t.ymax); },
            "(xmin, ymin, xmax, ymax) as reals, bounds included.")
        .def_property_readonly(
            "velocity", [](const Track& t) { return py::make_tuple(t.vx, t.vy); }, "Pixels per frame.")
        .def_readonly("age", &Track::age, "Frames since the track appeared.")
        .def_readonly("hits", &Track::hits, "Frames with a blob, alone or in a group.")
        .def_readonly("misses", &Track::misses, "Frames in a row without a blob.")
        .def_readonly("shown", &Track::shown,
                      "Whether to show it: confirmed, or coasting where it stopped (the background model takes in "
                      "whoever stands still).")
        .def_readonly("blobs", &Track::blobs, "Identifiers of the blobs it owns this frame.")
        .def_readonly("occlusion", &Track::occlusion, "Occlusion flags by name, e.g. 'OCC:CAM_LEF' at the border.")
        .def("__repr__",
             [](const Track& t) { return "Track(id=" + std::to_string(t.id) + ", state='" + t.state + "')"; });

    py::class_<Tracker>(m, "Tracker", R"doc(Persistent identities over the blobs of consecutive frames.

Tracker(width, height, lines={}, zones={}, suppress_ghosts=True)
lines: {name: (x1, y1, x2, y2)}, crossings counted per direction by the
middle of each track's bottom edge ("in": from the left-hand side of the
line, seen from its first point, to its right-hand side);
zones: {name: [(x, y), ...]}, entries, exits and dwell.
update(blobs, frame) fills blobs.track; tracks, events and counts then
describe that frame.)doc")
        .def(py::init<int, int, const std::map<std::string, std::vector<double>>&,
                      const std::map<std::string, std::vector<std::pair<double, double>>>&, bool>(),
             py::arg("width"), py::arg("height"), py::arg("lines") = std::map<std::string, std::vector<double>>{},
             py::arg("zones") = std::map<std::string, std::vector<std::pair<double, double>>>{},
             py::arg("suppress_ghosts") = true)
        .def("update", &Tracker::update, py::arg("blobs"), py::arg("frame"),
             "Tracks one frame's blobs (without the GIL) and sets blobs.track.")
        .def_property_readonly("tracks", &Tracker::tracks, "Identified tracks of the last frame.")
        .def_property_readonly("events", &Tracker::events, "The last frame's events, as dicts.")
        .def_property_readonly("counts", &Tracker::counts, "Running counts per line and zone.");
}

}  // namespace nerva_python
