#include "mask.h"

namespace py = pybind11;

namespace nerva_python {

cv::Mat wrap_mask(const py::handle& object, int width, int height, const char* what)
{
    const std::string name(what);
    if (!py::isinstance<py::array>(object))
        throw py::type_error(name + " must be a numpy array, not " +
                             std::string(py::str(object.get_type().attr("__name__"))));
    const py::array a = py::reinterpret_borrow<py::array>(object);
    const char kind = a.dtype().kind();
    if (a.itemsize() != 1 || (kind != 'u' && kind != 'b'))
        throw py::type_error(name + " must hold uint8 or bool, not " + std::string(py::str(a.dtype())));
    if (a.ndim() != 2) throw py::value_error(name + " must be 2-D, not " + std::to_string(a.ndim()) + "-D");
    if (a.shape(0) != height || a.shape(1) != width)
        throw py::value_error(name + " is " + std::to_string(a.shape(1)) + "x" + std::to_string(a.shape(0)) +
                              " (width x height), the segmenter's frame is " + std::to_string(width) + "x" +
                              std::to_string(height));
    // Columns must be adjacent bytes (a row is read as one span); rows may
    // lie anywhere after one another, as in any slice of a larger frame.
    if (width > 1 && a.strides(1) != 1)
        throw py::value_error(name + " must have adjacent columns (column stride " + std::to_string(a.strides(1)) +
                              " bytes); pass numpy.ascontiguousarray(" + name + ")");
    if (height > 1 && a.strides(0) < width)
        throw py::value_error(name + " must have rows going forward without overlap (row stride " +
                              std::to_string(a.strides(0)) + " bytes); pass numpy.ascontiguousarray(" + name + ")");
    const size_t step = height > 1 ? static_cast<size_t>(a.strides(0)) : static_cast<size_t>(width);
    return cv::Mat(height, width, CV_8UC1, const_cast<void*>(a.data()), step);
}

}  // namespace nerva_python
