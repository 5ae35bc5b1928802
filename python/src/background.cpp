// The running-average change detection of nerva-blobs' "--background
// average": grey frame in, the library's update, abs_difference and
// grey_thresholding over the region of interest, 255/0 mask out. Colour
// conversion and morphological clean-up stay in Python (cv2), as they are
// OpenCV's in the program too.
#include <cstring>
#include <mutex>
#include <string>
#include <tuple>

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"
#include "nerva/image/image_background.h"
#include "nerva/image/image_threshold.h"

namespace py = pybind11;

namespace nerva_python {
namespace {

using Roi = std::tuple<int, int, int, int>;

class AverageBackground {
public:
    AverageBackground(int width, int height, Roi roi, float learning_rate, int threshold)
        : width_(width), height_(height), rate_(learning_rate), threshold_(threshold)
    {
        const auto [x, y, w, h] = roi;
        if (width < 1 || height < 1 || w < 1 || h < 1 || x < 0 || y < 0 || x > width - w || y > height - h)
            throw py::value_error("roi must lie inside the " + std::to_string(width) + "x" + std::to_string(height) +
                                  " frame");
        if (!(learning_rate >= 0.0f && learning_rate <= 1.0f))
            throw py::value_error("learning_rate must lie between 0 and 1");
        if (threshold < 0 || threshold > 255) throw py::value_error("threshold must lie between 0 and 255");
        rect_ = {x, y, x + w - 1, y + h - 1, w, h};
        for (nerva::image** img : {&current_, &background_, &difference_, &mask_}) {
            *img = nerva::make_image(nerva::GREY_IMG, static_cast<unsigned>(width), static_cast<unsigned>(height));
            if (!*img) throw std::bad_alloc();
        }
    }

    ~AverageBackground()
    {
        for (nerva::image* img : {current_, background_, difference_, mask_}) nerva::destroy_image(img);
    }

    AverageBackground(const AverageBackground&) = delete;
    AverageBackground& operator=(const AverageBackground&) = delete;

    py::array_t<uint8_t> apply(py::array_t<uint8_t, py::array::c_style | py::array::forcecast> grey)
    {
        if (grey.ndim() != 2 || grey.shape(0) != height_ || grey.shape(1) != width_)
            throw py::value_error("grey frame must be " + std::to_string(height_) + " x " + std::to_string(width_) +
                                  " (rows x columns)");
        py::array_t<uint8_t> mask({static_cast<py::ssize_t>(height_), static_cast<py::ssize_t>(width_)});
        const size_t bytes = static_cast<size_t>(width_) * height_;
        const uint8_t* in = grey.data();
        uint8_t* out = mask.mutable_data();
        py::gil_scoped_release unlocked;
        std::lock_guard<std::mutex> lock(mutex_);  // shared between threads, frames take turns
        std::memcpy(current_->data, in, bytes);
        if (first_) {
            check(nerva::update(background_, current_, 1.0f, &rect_), "update");  // the first frame is the background
            first_ = false;
        }
        check(nerva::abs_difference(current_, background_, &rect_, difference_), "abs_difference");
        check(nerva::grey_thresholding(difference_, static_cast<unsigned>(threshold_), &rect_, mask_),
              "grey_thresholding");
        // Learned after the comparison, so a frame is judged against the past only.
        check(nerva::update(background_, current_, rate_, &rect_), "update");
        std::memcpy(out, mask_->data, bytes);
        return mask;
    }

private:
    static void check(int status, const char* what)
    {
        if (status < 0) throw std::runtime_error(std::string("background model: ") + what + " failed");
    }

    int width_, height_;
    float rate_;
    int threshold_;
    nerva::rectangle rect_{};
    nerva::image* current_ = nullptr;
    nerva::image* background_ = nullptr;
    nerva::image* difference_ = nullptr;
    nerva::image* mask_ = nullptr;
    bool first_ = true;
    std::mutex mutex_;
};

}  // namespace

void bind_background(py::module_& m)
{
    py::class_<AverageBackground>(m, "AverageBackground",
                                  R"doc(Running-average change detection (nerva-blobs' --background average).

The first frame becomes the background; each frame's foreground is where its
grey level differs from the background by at least `threshold`, inside the
region of interest; the frame is then learned with weight `learning_rate`.)doc")
        .def(py::init<int, int, Roi, float, int>(), py::arg("width"), py::arg("height"), py::kw_only(), py::arg("roi"),
             py::arg("learning_rate") = 0.01f, py::arg("threshold") = 25)
        .def("apply", &AverageBackground::apply, py::arg("grey"),
             "Takes a (height, width) uint8 grey frame and returns its mask: 255 foreground, 0 background.");
}

}  // namespace nerva_python
