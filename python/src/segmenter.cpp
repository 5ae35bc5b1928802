// nerva.Segmenter: one library segmenter (MV_RLEsegm) for a stream of masks
// of one frame size, taking numpy masks without copying them.
#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "background.h"
#include "bindings.h"
#include "blobs.h"
#include "mask.h"
#include "messages.h"
#include "nerva/segmentation/blob_shape.h"
#include "nerva/segmentation/segment_rows.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace py = pybind11;

namespace nerva_python {
namespace {

using Roi = std::tuple<int, int, int, int>;  // x, y, width, height
using Steps = std::tuple<int, int>;          // column, row

// What a frame beyond the 2000-blob pool says: a Python warning, the
// program's one line per frame on standard error, the library's line per lost
// blob, or nothing (Blobs.truncated and Blobs.dropped tell in every case).
enum class PoolFull { warn, frame, each, silent };

PoolFull pool_full_mode(const std::string& name)
{
    if (name == "warn") return PoolFull::warn;
    if (name == "frame") return PoolFull::frame;
    if (name == "each") return PoolFull::each;
    if (name == "silent") return PoolFull::silent;
    throw py::value_error("pool_full must be 'warn', 'frame', 'each' or 'silent', not '" + name + "'");
}

const char* pool_full_name(PoolFull mode)
{
    switch (mode) {
    case PoolFull::warn: return "warn";
    case PoolFull::frame: return "frame";
    case PoolFull::each: return "each";
    default: return "silent";
    }
}

void write_to_python_stderr(const std::string& text)
{
    const py::object err = py::module_::import("sys").attr("stderr");
    if (!err.is_none()) err.attr("write")(text);
}

class Segmenter {
public:
    Segmenter(int width, int height, std::optional<Roi> roi, Steps steps, int min_side, int min_pixels, bool measures,
              const std::string& pool_full, int64_t memory_ceiling)
        : width_(width), height_(height)
    {
        if (width < 1 || height < 1)
            throw py::value_error("frame size must be at least 1x1, not " + std::to_string(width) + "x" +
                                  std::to_string(height));
        set_roi(roi);
        set_steps(steps);
        set_min_side(min_side);
        set_min_pixels(min_pixels);
        set_measures(measures);
        set_pool_full(pool_full);
        set_memory_ceiling(memory_ceiling);
        s_ = std::make_shared<nerva::MV_RLEsegm>();
        nerva::RLEsegm_init_privateKAP(s_, 0, width - 1, 0, height - 1, width, height);
    }

    ~Segmenter() { nerva::RLEsegm_free_private(s_); }

    Blobs segment(const py::object& mask_object)
    {
        // The mask stays referenced by the caller's frame for the whole call.
        const cv::Mat mask = wrap_mask(mask_object, width_, height_, "mask");
        return segment_with([&] { return nerva::RLEsegm_segmentKAP(mask, s_); });
    }

    // The blobs of background.apply(grey)'s mask, the frame detected and
    // learned row by row as the segmenter reads it: the mask is never made.
    Blobs segment_changes(AverageBackground& background, const py::array& frame)
    {
        const GreyFrame grey = background.checked(frame);
        return segment_with([&] {
            std::shared_ptr<nerva::RLEblob> head;
            background.detect(grey, [&](nerva::image* model, nerva::image* current, float rate, unsigned threshold,
                                        nerva::rectangle* rect, nerva::ChangeRows& rows) {
                AverageBackground::check(rows.begin(model, current, rate, threshold, rect), "ChangeRows::begin");
                head = nerva::RLEsegm_segment_rows(rows, width_, height_, s_);
                rows.finish();
            });
            return head;
        });
    }

    py::array_t<int32_t> runs()
    {
        const auto lock = lock_without_gil();
        std::vector<int32_t> rows;
        for_each_run([&](int y, const nerva::segment& run) { rows.insert(rows.end(), {y, run.x_start, run.x_end}); });
        py::array_t<int32_t> out({static_cast<py::ssize_t>(rows.size() / 3), py::ssize_t{3}});
        std::copy(rows.begin(), rows.end(), out.mutable_data());
        return out;
    }

    py::array_t<int32_t> labels()
    {
        const auto lock = lock_without_gil();
        py::array_t<int32_t> out({static_cast<py::ssize_t>(height_), static_cast<py::ssize_t>(width_)});
        std::fill_n(out.mutable_data(), out.size(), 0);
        if (!segmented_) return out;
        // A blob comes from one surviving region; its pool position is the
        // blob's first father.
        std::vector<int32_t> label_of_region(static_cast<size_t>(s_->nb_regs) + 1, 0);
        int32_t label = 0;
        for (nerva::RLEblob* b = s_->blob_head.get(); b; b = b->next.get()) {
            ++label;
            if (b->nb_fathers > 0 && b->fathers[0] >= 0 && b->fathers[0] <= s_->nb_regs)
                label_of_region[static_cast<size_t>(b->fathers[0])] = label;
        }
        auto px = out.mutable_unchecked<2>();
        for_each_run([&](int y, const nerva::segment& run) {
            const nerva::region* r = run.owner.get();
            while (r && r->absorber) r = r->absorber.get();
            if (!r || r->ident < 0 || r->ident > s_->nb_regs) return;
            const int32_t l = label_of_region[static_cast<size_t>(r->ident)];
            if (l == 0) return;
            for (int x = run.x_start; x <= run.x_end; ++x) px(y, x) = l;
        });
        return out;
    }

    int width() const { return width_; }
    int height() const { return height_; }

    Roi roi() const { return roi_; }
    void set_roi(std::optional<Roi> roi)
    {
        if (!roi) roi = Roi{0, 0, width_, height_};
        const auto [x, y, w, h] = *roi;
        if (w < 1 || h < 1 || x < 0 || y < 0 || x > width_ - w || y > height_ - h)
            throw py::value_error("roi (" + std::to_string(x) + ", " + std::to_string(y) + ", " + std::to_string(w) +
                                  ", " + std::to_string(h) + ") must have a size of at least 1x1 and lie inside the " +
                                  std::to_string(width_) + "x" + std::to_string(height_) + " frame");
        const auto lock = lock_without_gil();
        roi_ = *roi;
    }

    Steps steps() const { return steps_; }
    void set_steps(Steps steps)
    {
        const auto [sx, sy] = steps;
        if (sx < 1 || sy < 1)
            throw py::value_error("steps must be at least 1, not (" + std::to_string(sx) + ", " + std::to_string(sy) +
                                  ")");
        const auto lock = lock_without_gil();
        steps_ = steps;
    }

    int min_side() const { return min_side_; }
    void set_min_side(int v)
    {
        if (v < 0) throw py::value_error("min_side cannot be negative");
        const auto lock = lock_without_gil();
        min_side_ = v;
    }

    int min_pixels() const { return min_pixels_; }
    void set_min_pixels(int v)
    {
        if (v < 0) throw py::value_error("min_pixels cannot be negative");
        const auto lock = lock_without_gil();
        min_pixels_ = v;
    }

    bool measures() const { return measures_; }
    void set_measures(bool v)
    {
        const auto lock = lock_without_gil();
        measures_ = v;
    }

    std::string pool_full() const { return pool_full_name(pool_full_); }
    void set_pool_full(const std::string& name)
    {
        const PoolFull mode = pool_full_mode(name);
        const auto lock = lock_without_gil();
        pool_full_ = mode;
    }

    int64_t memory_ceiling() const { return memory_ceiling_; }
    void set_memory_ceiling(int64_t bytes)
    {
        if (bytes < 0) throw py::value_error("memory_ceiling cannot be negative (0: none)");
        const auto lock = lock_without_gil();
        memory_ceiling_ = bytes;
    }

private:
    // The blobs of the head `find` returns, called without the GIL and with
    // the settings handed to the library.
    template <class Find>
    Blobs segment_with(Find&& find)
    {
        Blobs blobs;
        std::string messages;
        bool refused = false;
        PoolFull mode;
        {
            py::gil_scoped_release unlocked;
            std::lock_guard<std::mutex> lock(mutex_);
            MessageCapture capture(messages);
            apply_settings();
            mode = pool_full_;
            blobs.has_measures = measures_;
            const std::shared_ptr<nerva::RLEblob> head = find();
            // The list holds at most one blob per pool slot, however many regions were kept.
            blobs.reserve(static_cast<size_t>(std::min(s_->nb_blobs, s_->nb_pool_blobs)));
            for (nerva::RLEblob* b = head.get(); b; b = b->next.get()) {
                blobs.append(*b);
                if (!measures_) continue;
                nerva::blob_shape shape;
                const bool measured =
                    nerva::RLEsegm_blob_shape(s_->blob_pool[static_cast<size_t>(b->ident)], s_, &shape) == 0;
                blobs.append_shape(measured ? &shape : nullptr);
            }
            blobs.dropped = nerva::RLEsegm_get_reused_blobs(s_);
            refused = !head && messages.find("memory ceiling") != std::string::npos;
            last_roi_ = roi_;
            segmented_ = !refused;
        }
        if (refused) {
            while (!messages.empty() && messages.back() == '\n') messages.pop_back();
            PyErr_SetString(PyExc_MemoryError, messages.c_str());
            throw py::error_already_set();
        }
        report_pool_full(mode, blobs.dropped, messages);
        return blobs;
    }

    // The GIL is let go while waiting for another thread's frame, so that
    // Python threads keep running meanwhile; it is taken back once the
    // segmenter is ours. Every path takes the mutex this way or with the GIL
    // released, so no thread holds the mutex while waiting for the GIL that
    // a waiter for the mutex holds.
    std::unique_lock<std::mutex> lock_without_gil() const
    {
        py::gil_scoped_release unlocked;
        return std::unique_lock<std::mutex>(mutex_);
    }

    // With the GIL: says what a frame beyond the blob pool lost, as asked.
    static void report_pool_full(PoolFull mode, int32_t dropped, const std::string& messages)
    {
        if (dropped <= 0 || mode == PoolFull::silent) return;
        if (mode != PoolFull::warn) {
            write_to_python_stderr(messages);
            return;
        }
        const std::string text = "frame over the 2000-blob cap: " + std::to_string(dropped) +
                                 " regions lost (Blobs.truncated, Blobs.dropped; min_pixels or min_side keep "
                                 "frames below the cap)";
        if (PyErr_WarnEx(PyExc_RuntimeWarning, text.c_str(), 1) < 0) throw py::error_already_set();
    }

    // Settings are checked when set and handed to the library just before a
    // frame, under the lock, so a change from another thread never lands
    // halfway through one.
    void apply_settings()
    {
        const auto [x, y, w, h] = roi_;
        nerva::RLEsegm_set_ROI(x, y, x + w - 1, y + h - 1, s_);
        nerva::RLEsegm_set_steps(s_, std::get<0>(steps_), std::get<1>(steps_));
        s_->min_blob_side = min_side_;
        s_->min_blob_pixels = min_pixels_;
        nerva::RLEsegm_count_reused_blobs(s_, pool_full_ != PoolFull::each);
        nerva::RLEsegm_set_memory_ceiling(s_, static_cast<size_t>(memory_ceiling_));
    }

    // The runs of the last frame, rows of its region of interest only (other
    // rows hold older frames' runs); runs the column sampling stored empty
    // hold no pixel and are left out.
    template <typename F>
    void for_each_run(F&& visit) const
    {
        if (!segmented_ || !s_->rle_img) return;
        const auto [x, y0, w, h] = last_roi_;
        for (int y = y0; y < y0 + h; ++y) {
            const nerva::RLEline* line = s_->rle_img->lines[static_cast<size_t>(y)].get();
            if (!line) continue;
            for (int32_t k = 0; k < line->nb_segs; ++k) {
                const nerva::segment& run = *line->segs[k];
                if (run.x_end >= run.x_start) visit(y, run);
            }
        }
    }

    int width_, height_;
    Roi roi_{};
    Roi last_roi_{};
    Steps steps_{1, 1};
    int min_side_ = 0, min_pixels_ = 0;
    bool measures_ = false;
    PoolFull pool_full_ = PoolFull::warn;
    int64_t memory_ceiling_ = 0;
    bool segmented_ = false;
    nerva::segm_ptr s_;
    mutable std::mutex mutex_;
};

}  // namespace

void bind_segmenter(py::module_& m)
{
    install_message_capture();
    py::class_<Segmenter>(m, "Segmenter", R"doc(Blob segmentation of foreground masks of one frame size.

One segmenter per stream (camera), as in C++. Each call to segment() takes a
2-D uint8 or bool mask (non-zero = foreground) and returns the 4-connected
regions of its region of interest as Blobs. The mask is read in place, strided
row views such as ``frame[40:400, 100:700]`` included, and the GIL is released
while segmenting and while waiting for another thread's frame: one segmenter
per thread scales with the cores.

Parameters
----------
width, height : int
    Frame size; every mask must have shape (height, width).
roi : (x, y, w, h), optional
    Region of interest inside the frame: corner and size (not the inclusive
    corners of a blob's bbox); the whole frame by default.
steps : (sx, sy)
    Column and row sampling steps, at least 1. (1, 1) is exact, so is a row
    step alone; a column step above 1 samples the mask and stores runs that
    end inside the region empty: such blobs have width 0 and npix 0.
min_side, min_pixels : int
    Blobs narrower or lower than min_side, or with fewer pixels than
    min_pixels, are dropped.
measures : bool
    Also measure each blob's shape (Blobs.moments, orientation, major_axis,
    minor_axis, eccentricity, perimeter, extent, boundary_edges), in one
    more pass over its runs.
pool_full : {'warn', 'frame', 'each', 'silent'}
    What a frame with more than 2000 blobs says besides Blobs.truncated and
    Blobs.dropped: a RuntimeWarning (Python's filters decide how often it
    shows), nerva-blobs' one line per frame on standard error, the library's
    line per lost region, or nothing.
memory_ceiling : int
    Bytes the segmenter may hold for a frame (its pools count, about 13 MB);
    0 for no limit. A frame whose runs could need more raises MemoryError
    before anything is extracted; the segmenter stays usable.

Examples
--------
>>> import numpy as np, nerva
>>> seg = nerva.Segmenter(640, 480, min_pixels=20)
>>> mask = np.zeros((480, 640), np.uint8)
>>> mask[100:160, 50:80] = 255
>>> seg.segment(mask).bbox.tolist()
[[50, 100, 79, 159]]
>>> seg.roi
(0, 0, 640, 480))doc")
        .def(py::init<int, int, std::optional<Roi>, Steps, int, int, bool, const std::string&, int64_t>(),
             py::arg("width"), py::arg("height"), py::kw_only(), py::arg("roi") = py::none(),
             py::arg("steps") = Steps{1, 1}, py::arg("min_side") = 0, py::arg("min_pixels") = 0,
             py::arg("measures") = false, py::arg("pool_full") = "warn", py::arg("memory_ceiling") = 0)
        .def("segment", &Segmenter::segment, py::arg("mask"), R"doc(Segments one mask and returns its blobs.

Parameters
----------
mask : numpy.ndarray
    (height, width) uint8 or bool, non-zero = foreground; columns adjacent
    bytes, rows going forward.

Returns
-------
Blobs

Raises
------
TypeError
    For an object that is not a numpy array of uint8 or bool.
ValueError
    For a shape other than (height, width) or a layout whose columns are
    not adjacent bytes (e.g. ``mask[:, ::2]`` or ``mask.T``) or whose rows
    run backwards.
MemoryError
    When the frame could need more than memory_ceiling bytes.

The segmenter stays usable after each of these.)doc")
        .def("_segment_changes", &Segmenter::segment_changes, py::arg("background"), py::arg("grey"),
             "segment(background.apply(grey)) without the mask: each row is detected and learned as it is read.")
        .def("runs", &Segmenter::runs, R"doc(The run-length image of the last frame as an R x 3 int32 array.

Rows (y, x_start, x_end), bounds included, row by row and left to right
within a row, for the rows of the region of interest. Runs the column
sampling stored empty are left out. Empty before the first frame.

Examples
--------
>>> import numpy as np, nerva
>>> seg = nerva.Segmenter(5, 2)
>>> _ = seg.segment(np.array([[0, 1, 1, 0, 1], [1, 1, 0, 0, 0]], np.uint8))
>>> seg.runs().tolist()
[[0, 1, 2], [0, 4, 4], [1, 0, 1]])doc")
        .def("labels", &Segmenter::labels, R"doc(The label image of the last frame: (height, width) int32.

0 is background (and the pixels of blobs the size filter dropped); the
pixels of blobs[i] are i + 1, in the order of the last segment() result.
All zero before the first frame.

Examples
--------
>>> import numpy as np, nerva
>>> seg = nerva.Segmenter(5, 2)
>>> _ = seg.segment(np.array([[0, 1, 1, 0, 1], [1, 1, 0, 0, 0]], np.uint8))
>>> seg.labels().tolist()
[[0, 1, 1, 0, 2], [1, 1, 0, 0, 0]])doc")
        .def_property_readonly("width", &Segmenter::width)
        .def_property_readonly("height", &Segmenter::height)
        .def_property("roi", &Segmenter::roi, &Segmenter::set_roi,
                      "Region of interest (x, y, w, h); None sets the whole frame. Used from the next frame.")
        .def_property("steps", &Segmenter::steps, &Segmenter::set_steps, "Column and row sampling steps (sx, sy).")
        .def_property("min_side", &Segmenter::min_side, &Segmenter::set_min_side,
                      "Smallest blob width and height kept, in pixels.")
        .def_property("min_pixels", &Segmenter::min_pixels, &Segmenter::set_min_pixels,
                      "Smallest blob pixel count kept.")
        .def_property("measures", &Segmenter::measures, &Segmenter::set_measures,
                      "Whether the blobs of the next frames carry shape measures.")
        .def_property("pool_full", &Segmenter::pool_full, &Segmenter::set_pool_full,
                      "'warn', 'frame', 'each' or 'silent': what a frame beyond the 2000-blob pool says.")
        .def_property("memory_ceiling", &Segmenter::memory_ceiling, &Segmenter::set_memory_ceiling,
                      "Bytes the segmenter may hold for a frame; 0 for no limit.");
}

}  // namespace nerva_python
