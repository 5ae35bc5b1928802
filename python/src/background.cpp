// nerva.AverageBackground: grey frame in, the library's one-pass
// difference, threshold and update (detect_changes) over the region of
// interest, 255/0 mask out. Colour conversion and morphological clean-up stay
// in Python (cv2), as they are OpenCV's in the program too.
#include "background.h"

#include <cstring>

#include <pybind11/stl.h>

#include "bindings.h"
#include "nerva/image/change_detection.h"

namespace py = pybind11;

namespace nerva_python {

AverageBackground::AverageBackground(int width, int height, std::optional<Roi> roi, float learning_rate, int threshold)
    : width_(width), height_(height), rate_(learning_rate), threshold_(threshold)
{
    const auto [x, y, w, h] = roi.value_or(Roi{0, 0, width, height});
    if (width < 1 || height < 1 || w < 1 || h < 1 || x < 0 || y < 0 || x > width - w || y > height - h)
        throw py::value_error("roi must lie inside the " + std::to_string(width) + "x" + std::to_string(height) +
                              " frame");
    if (!(learning_rate >= 0.0f && learning_rate <= 1.0f))
        throw py::value_error("learning_rate must lie between 0 and 1");
    if (threshold < 0 || threshold > 255) throw py::value_error("threshold must lie between 0 and 255");
    rect_ = {x, y, x + w - 1, y + h - 1, w, h};
    for (nerva::image** img : {&background_, &mask_}) {
        *img = nerva::make_image(nerva::GREY_IMG, static_cast<unsigned>(width), static_cast<unsigned>(height));
        if (!*img) throw std::bad_alloc();
    }
}

AverageBackground::~AverageBackground()
{
    rows_.finish();  // while the background is there
    for (nerva::image* img : {background_, mask_}) nerva::destroy_image(img);
}

GreyFrame AverageBackground::checked(const py::array& frame) const
{
    // A float or wider frame is refused rather than cast: casting would
    // wrap or cut its values silently.
    if (!frame.dtype().is(py::dtype::of<uint8_t>()))
        throw py::type_error("grey frame must be uint8, not " + std::string(py::str(frame.dtype())));
    if (frame.ndim() != 2 || frame.shape(0) != height_ || frame.shape(1) != width_)
        throw py::value_error("grey frame must be " + std::to_string(height_) + " x " + std::to_string(width_) +
                              " (rows x columns)");
    return GreyFrame::ensure(frame);  // no copy when contiguous
}

nerva::image AverageBackground::frame_record(const GreyFrame& grey) const
{
    nerva::image current{};
    current.type = nerva::GREY_IMG;
    current.width = static_cast<unsigned>(width_);
    current.height = static_cast<unsigned>(height_);
    current.capacity = static_cast<unsigned>(static_cast<size_t>(width_) * height_);
    current.bytes_per_pixel = 1;
    current.data = const_cast<unsigned char*>(grey.data());
    return current;
}

py::array_t<uint8_t> AverageBackground::apply(const py::array& frame)
{
    const GreyFrame grey = checked(frame);
    py::array_t<uint8_t> mask({static_cast<py::ssize_t>(height_), static_cast<py::ssize_t>(width_)});
    uint8_t* out = mask.mutable_data();
    py::gil_scoped_release unlocked;
    detect(grey, [&](nerva::image* background, nerva::image* current, float rate, unsigned threshold,
                     nerva::rectangle* rect, nerva::ChangeRows&) {
        // Learned after the comparison, so a frame is judged against the past only.
        check(nerva::detect_changes(background, current, rate, threshold, rect, mask_), "detect_changes");
        std::memcpy(out, mask_->data, static_cast<size_t>(width_) * height_);
    });
    return mask;
}

void bind_background(py::module_& m)
{
    py::class_<AverageBackground>(m, "AverageBackground",
                                  R"doc(Running-average change detection (nerva-blobs' --background average).

The first frame becomes the background; each frame's foreground is where its
grey level differs from the background by at least `threshold`, inside the
region of interest (x, y, width, height; the whole frame when None); the frame
is then learned with weight `learning_rate`.)doc")
        .def(py::init<int, int, std::optional<AverageBackground::Roi>, float, int>(), py::arg("width"),
             py::arg("height"), py::kw_only(), py::arg("roi") = py::none(), py::arg("learning_rate") = 0.01f,
             py::arg("threshold") = 25)
        .def("apply", &AverageBackground::apply, py::arg("grey"),
             "Takes a (height, width) uint8 grey frame and returns its mask: 255 foreground, 0 background. "
             "Frames of any other dtype are refused with TypeError rather than converted.");
}

}  // namespace nerva_python
