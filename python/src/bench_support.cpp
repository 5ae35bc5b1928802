// The C++ baseline of bench/python_bench.py: the same masks segmented by a
// plain C++ loop in the same process, reading the same fields of each blob
// out of its pool record as a C++ host would (box, pixels, centre), into a
// reused buffer, so that what is left is the price of Python alone.
#include <chrono>
#include <vector>

#include <pybind11/numpy.h>

#include "bindings.h"
#include "blobs.h"
#include "mask.h"
#include "nerva/segmentation/segmentationRLE.h"

namespace py = pybind11;

namespace nerva_python {

void bind_bench_support(py::module_& m)
{
    m.def(
        "_cpp_seconds_per_frame",
        [](const py::list& masks, int step_x, int step_y, int passes) {
            if (masks.empty() || passes < 1) throw py::value_error("need masks and at least one pass");
            const py::array first = masks[0].cast<py::array>();
            const int height = static_cast<int>(first.shape(0)), width = static_cast<int>(first.shape(1));
            std::vector<cv::Mat> mats;
            for (const py::handle& mask : masks) mats.push_back(wrap_mask(mask, width, height, "mask"));
            py::gil_scoped_release unlocked;
            auto s = std::make_shared<nerva::MV_RLEsegm>();
            nerva::RLEsegm_init_privateKAP(s, 0, width - 1, 0, height - 1, width, height);
            nerva::RLEsegm_set_steps(s, step_x, step_y);
            nerva::RLEsegm_set_ROI(0, 0, width - 1, height - 1, s);
            Blobs blobs;
            volatile size_t sink = 0;
            // Warmed up first, as a stream's segmenter is: its pools have grown.
            for (const cv::Mat& mask : mats) nerva::RLEsegm_segmentKAP(mask, s);
            const auto start = std::chrono::steady_clock::now();
            for (int p = 0; p < passes; ++p)
                for (const cv::Mat& mask : mats) {
                    blobs.clear();
                    for (nerva::RLEblob* b = nerva::RLEsegm_segmentKAP(mask, s).get(); b; b = b->next.get())
                        blobs.append(*b);
                    sink = sink + blobs.size();
                }
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
            nerva::RLEsegm_free_private(s);
            return elapsed.count() / (static_cast<double>(passes) * mats.size());
        },
        py::arg("masks"), py::arg("step_x") = 1, py::arg("step_y") = 1, py::arg("passes") = 1,
        "Seconds per frame of a C++ loop over the masks (benchmark baseline).");
}

}  // namespace nerva_python
