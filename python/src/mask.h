#pragma once

#include <string>

#include <pybind11/numpy.h>
#include <opencv2/core.hpp>

// Wraps a 2-D numpy array of uint8 or bool as a cv::Mat header over the same
// memory (rows may be strided, columns must be adjacent bytes), or throws
// TypeError / ValueError naming what is wrong. `what` names the argument.
namespace nerva_python {

cv::Mat wrap_mask(const pybind11::handle& object, int width, int height, const char* what);

}  // namespace nerva_python
