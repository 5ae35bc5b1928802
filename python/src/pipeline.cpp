// nerva-blobs' own definitions of its pipeline, for the Python package: the
// option table, the presets, the checks, input kinds and the JSON line.
// video.py and fleet.py use these instead of restating them, so Python,
// nerva-fleet and the program accept, refuse and write the same things.
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "blobs.h"
#include "clean_up.h"
#include "input_kind.h"
#include "json_line.h"
#include "settings.h"
#include "tracking_json.h"

namespace py = pybind11;
namespace pipeline = nerva_pipeline;

namespace nerva_python {
namespace {

// blobs_in_video's keywords (absent ones at their defaults) as settings.
pipeline::Settings settings_of(const py::dict& options)
{
    pipeline::Settings s;
    const auto get = [&](const char* key, auto& field) {
        if (options.contains(key) && !options[key].is_none())
            field = options[key].cast<std::remove_reference_t<decltype(field)>>();
    };
    get("masks", s.masks);
    get("background", s.background);
    if (options.contains("learning_rate") && !options["learning_rate"].is_none())
        s.learning_rate = options["learning_rate"].cast<double>();
    get("threshold", s.threshold);
    get("opening", s.open);
    get("closing", s.close);
    if (options.contains("roi") && !options["roi"].is_none()) {
        const auto [x, y, w, h] = options["roi"].cast<std::tuple<int, int, int, int>>();
        s.roi = pipeline::Roi{x, y, w, h};
    }
    if (options.contains("steps") && !options["steps"].is_none())
        std::tie(s.step_x, s.step_y) = options["steps"].cast<std::tuple<int, int>>();
    get("min_side", s.min_side);
    get("min_pixels", s.min_pixels);
    return s;
}

pipeline::Naming naming_of(const std::string& naming)
{
    if (naming == "flags") return pipeline::Naming::flags;
    if (naming == "keywords") return pipeline::Naming::keywords;
    throw py::value_error("naming must be 'flags' or 'keywords'");
}

std::string check_options(const py::dict& options, const std::string& naming, std::optional<int> width,
                          std::optional<int> height)
{
    const pipeline::Settings s = settings_of(options);
    const pipeline::Naming n = naming_of(naming);
    std::string wrong = pipeline::check_settings(s, n);
    if (wrong.empty() && width && height) wrong = pipeline::check_for_frame(s, *width, *height, n);
    return wrong;
}

// (opening, closing, min_pixels) of the preset, for those not given (None).
std::tuple<int, int, int> preset_values(const std::optional<std::string>& name, bool masks, std::optional<int> opening,
                                        std::optional<int> closing, std::optional<int> min_pixels)
{
    pipeline::Settings s;
    std::vector<std::string> given;
    if (opening) s.open = *opening, given.push_back("open");
    if (closing) s.close = *closing, given.push_back("close");
    if (min_pixels) s.min_pixels = *min_pixels, given.push_back("min_pixels");
    const std::string chosen = name ? *name : pipeline::default_preset(masks);
    if (!pipeline::apply_preset(s, chosen, given))
        throw py::value_error("preset must be people, vehicles or raw, not '" + chosen + "'");
    return {s.open, s.close, s.min_pixels};
}

std::string json_line(long frame, const Blobs& blobs, std::optional<double> time, long dropped,
                      std::optional<long> components, const py::object& tracker, double fps)
{
    std::vector<pipeline::BlobRecord> records(blobs.size());
    for (size_t i = 0; i < blobs.size(); ++i) {
        pipeline::BlobRecord& r = records[i];
        r.id = blobs.ident[i];
        r.xmin = blobs.bbox[4 * i];
        r.ymin = blobs.bbox[4 * i + 1];
        r.xmax = blobs.bbox[4 * i + 2];
        r.ymax = blobs.bbox[4 * i + 3];
        r.width = r.xmax - r.xmin + 1;
        r.height = r.ymax - r.ymin + 1;
        r.npix = blobs.npix[i];
        r.xc = blobs.center[2 * i];
        r.yc = blobs.center[2 * i + 1];
        if (blobs.has_measures)
            r.shape = pipeline::ShapeRecord{blobs.moments[3 * i],   blobs.moments[3 * i + 1], blobs.moments[3 * i + 2],
                                            blobs.orientation[i],   blobs.major_axis[i],      blobs.minor_axis[i],
                                            blobs.eccentricity[i],  blobs.perimeter[i],       blobs.extent[i],
                                            blobs.boundary_edges[i]};
    }
    pipeline::LineExtras extras;
    extras.time = time;
    extras.dropped = dropped;
    // A frame cut at the blob pool says so, with the blobs it held.
    if (components) extras.components = *components;
    else if (blobs.dropped > 0) extras.components = static_cast<long>(blobs.size()) + blobs.dropped;
    if (!tracker.is_none()) {
        extras.blob_tracks = &blobs.track;
        extras.tracking = pipeline::tracking_json(tracker_engine(tracker), fps);
    }
    return pipeline::json_line(frame, records, extras);
}

// The program's clean-up, for blobs_in_video. The cleaned mask is the
// object's own array, overwritten by the next call, so that a stream of
// frames allocates nothing after its first.
class CleanUpMasks {
public:
    CleanUpMasks(int opening, int closing) : clean_(opening, closing) {}

    bool active() const { return clean_.active(); }

    py::array apply(const py::array_t<std::uint8_t, py::array::c_style | py::array::forcecast>& mask)
    {
        if (mask.ndim() != 2) throw py::value_error("mask must be 2-D, not " + std::to_string(mask.ndim()) + "-D");
        if (!clean_.active()) return mask;
        const auto height = mask.shape(0), width = mask.shape(1);
        if (cleaned_.ndim() != 2 || cleaned_.shape(0) != height || cleaned_.shape(1) != width)
            cleaned_ = py::array_t<std::uint8_t>({height, width});
        clean_.apply(mask.data(), static_cast<std::size_t>(width), cleaned_.mutable_data(),
                     static_cast<std::size_t>(width), static_cast<int>(width), static_cast<int>(height));
        return cleaned_;
    }

private:
    pipeline::CleanUp clean_;
    py::array_t<std::uint8_t> cleaned_;
};

}  // namespace

void bind_pipeline(py::module_& m)
{
    m.def(
        "option_table",
        [] {
            py::list rows;
            for (const pipeline::OptionInfo& o : pipeline::option_table())
                rows.append(py::dict(py::arg("name") = o.name, py::arg("flag") = o.flag, py::arg("keyword") = o.keyword,
                                     py::arg("group") = o.group, py::arg("value") = o.value,
                                     py::arg("default") = o.default_text, py::arg("meaning") = o.meaning));
            return rows;
        },
        "The pipeline's options as nerva-blobs lists them: name, flag, keyword, group, value, default, meaning.");
    m.def(
        "presets",
        [] {
            py::list rows;
            for (const pipeline::Preset& p : pipeline::presets())
                rows.append(py::dict(py::arg("name") = p.name, py::arg("opening") = p.open,
                                     py::arg("closing") = p.close, py::arg("min_pixels") = p.min_pixels,
                                     py::arg("meaning") = p.meaning));
            return rows;
        },
        "The presets: name, opening, closing, min_pixels, meaning.");
    m.def("preset_values", &preset_values, py::arg("preset"), py::arg("masks"), py::arg("opening"), py::arg("closing"),
          py::arg("min_pixels"),
          "(opening, closing, min_pixels): the preset's values where None; the default preset when preset is None.");
    m.def("check_options", &check_options, py::arg("options"), py::arg("naming") = "keywords",
          py::arg("width") = py::none(), py::arg("height") = py::none(),
          "The first problem with blobs_in_video's options, as one line naming the option ('flags': as "
          "nerva-blobs spells it); empty when none. With a frame size, what only the frame shows too.");
    m.def(
        "input_kind", [](const std::string& path) { return pipeline::kind_name(pipeline::input_kind(path)); },
        py::arg("path"), "How nerva-blobs reads `path`: missing, network, device, directory, image, pattern or video.");
    py::class_<CleanUpMasks>(m, "_CleanUp",
                             "nerva-blobs' clean-up: an opening, then a closing, with elliptic kernels (0: none).")
        .def(py::init<int, int>(), py::arg("opening"), py::arg("closing"))
        .def_property_readonly("active", &CleanUpMasks::active, "Whether apply changes anything (a side above 1).")
        .def("apply", &CleanUpMasks::apply, py::arg("mask"),
             "The cleaned mask (0 and 255), OpenCV's morphologyEx's byte for byte; overwritten by the next call.");
    m.def("json_line", &json_line, py::arg("index"), py::arg("blobs"), py::arg("time") = py::none(),
          py::arg("dropped") = 0, py::arg("components") = py::none(), py::arg("tracker") = py::none(),
          py::arg("fps") = 0.0,
          "nerva-blobs' JSON line of one frame; with the Tracker that tracked `blobs`, that of --track "
          "(`fps` > 0 adds each zone exit's dwell in seconds).");
}

}  // namespace nerva_python
