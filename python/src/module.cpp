#include <pybind11/pybind11.h>

#include "bindings.h"
#include "nerva/version.h"

PYBIND11_MODULE(_nerva, m)
{
    m.doc() = "Compiled core of the nerva package: the segmenter over numpy masks.";
    m.attr("__version__") = nerva::version();
    nerva_python::bind_blobs(m);
    nerva_python::bind_segmenter(m);
    nerva_python::bind_background(m);
    nerva_python::bind_luma_video(m);
    nerva_python::bind_tracker(m);
    nerva_python::bind_bench_support(m);
    nerva_python::bind_pipeline(m);
}
