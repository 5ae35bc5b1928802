#pragma once

// The running-average change detection of nerva-blobs' "--background
// average" (nerva.AverageBackground), shared by its own apply and by the
// segmenter that detects as it reads the rows (Segmenter._segment_changes,
// through the model's ChangeRows).
#include <mutex>
#include <optional>
#include <string>
#include <tuple>

#include <pybind11/numpy.h>

#include "nerva/geometry/rectangle.h"
#include "nerva/image/change_detection.h"
#include "nerva/image/image.h"
#include "nerva/image/image_background.h"

namespace nerva_python {

using GreyFrame = pybind11::array_t<uint8_t, pybind11::array::c_style>;

class AverageBackground {
public:
    using Roi = std::tuple<int, int, int, int>;

    AverageBackground(int width, int height, std::optional<Roi> roi, float learning_rate, int threshold);
    ~AverageBackground();
    AverageBackground(const AverageBackground&) = delete;
    AverageBackground& operator=(const AverageBackground&) = delete;

    // The mask of one grey frame: 255 foreground, 0 background.
    pybind11::array_t<uint8_t> apply(const pybind11::array& frame);

    // With the GIL: `frame` checked as apply checks it (TypeError,
    // ValueError), contiguous.
    GreyFrame checked(const pybind11::array& frame) const;

    // Without the GIL, for a frame from `checked`: takes the model's lock,
    // learns a first frame as the background, then calls
    // compare(background, current, rate, threshold, rect, rows), which must
    // compare the frame with the background and then learn it (`rows`: the
    // model's, kept for the stream).
    template <class Compare>
    void detect(const GreyFrame& grey, Compare&& compare)
    {
        nerva::image current = frame_record(grey);
        std::lock_guard<std::mutex> lock(mutex_);  // shared between threads, frames take turns
        if (first_) {
            check(nerva::update(background_, &current, 1.0f, &rect_), "update");  // the first frame is the background
            first_ = false;
        }
        compare(background_, &current, rate_, static_cast<unsigned>(threshold_), &rect_, rows_);
    }

    static void check(int status, const char* what)
    {
        if (status < 0) throw std::runtime_error(std::string("background model: ") + what + " failed");
    }

private:
    // The frame's pixels, borrowed for the call: never released by the library.
    nerva::image frame_record(const GreyFrame& grey) const;

    int width_, height_;
    float rate_;
    int threshold_;
    nerva::rectangle rect_{};
    nerva::image* background_ = nullptr;
    nerva::image* mask_ = nullptr;
    nerva::ChangeRows rows_;
    bool first_ = true;
    std::mutex mutex_;
};

}  // namespace nerva_python
