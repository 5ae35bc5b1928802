#pragma once

#include <pybind11/pybind11.h>

#include "nerva/tracking/tracker.h"

// Each part of the extension module registers its classes here.
namespace nerva_python {

void bind_blobs(pybind11::module_& m);
void bind_segmenter(pybind11::module_& m);
void bind_background(pybind11::module_& m);
void bind_luma_video(pybind11::module_& m);
void bind_bench_support(pybind11::module_& m);
void bind_pipeline(pybind11::module_& m);
void bind_tracker(pybind11::module_& m);

// The library tracker inside a Python Tracker (TypeError for anything else).
const nerva::MV_tracker& tracker_engine(const pybind11::handle& tracker);

}  // namespace nerva_python
