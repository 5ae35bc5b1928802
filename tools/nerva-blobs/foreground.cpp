#include "foreground.h"

#include <string>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>

#include "clean_up.h"
#include "errors.h"
#include "nerva/image/change_detection.h"
#include "nerva/image/image.h"
#include "nerva/image/image_background.h"

namespace nerva_blobs {
namespace {

// Optional opening then closing, shared by every detector; done on bits,
// byte for byte OpenCV's morphologyEx with elliptic kernels.
class CleanUp {
public:
    CleanUp(int open, int close) : bits_(open, close) {}

    bool active() const { return bits_.active(); }

    const cv::Mat& apply(const cv::Mat& mask)
    {
        if (!bits_.active()) return mask;
        cleaned_.create(mask.size(), CV_8UC1);  // allocated at the first frame only
        bits_.apply(mask.data, mask.step, cleaned_.data, cleaned_.step, mask.cols, mask.rows);
        return cleaned_;
    }

private:
    nerva_pipeline::CleanUp bits_;
    cv::Mat cleaned_;
};

// The library's change detection on grey frames: difference, threshold and
// learning in one pass (detect_changes), or, when the mask is deferred, row
// by row as the segmenter reads the rows (ChangeRows, through
// Segmenter::segment), the mask never written. The background and the mask
// are made by the library and keep their own buffers; OpenCV only ever sees
// them through non-owning Mat headers, so nothing is freed twice or by the
// wrong allocator.
class RunningAverage : public Foreground {
public:
    RunningAverage(const Options& o, cv::Size size, cv::Rect roi)
        : rate_(o.learning_rate), threshold_(static_cast<unsigned>(o.threshold)), clean_(o.open, o.close),
          deferred_(!clean_.active() && o.overview.empty())
    {
        for (nerva::image** img : {&converted_, &background_, &mask_}) {
            *img = nerva::make_image(nerva::GREY_IMG, size.width, size.height);
            if (!*img) throw RuntimeError("out of memory for the background images");
        }
        converted_view_ = cv::Mat(size, CV_8UC1, converted_->data);
        mask_view_ = cv::Mat(size, CV_8UC1, mask_->data);
        rect_ = {roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1, roi.width, roi.height};
        frame_ = *converted_;
    }

    ~RunningAverage() override
    {
        rows_.finish();  // while the images are there
        for (nerva::image* img : {converted_, background_, mask_}) nerva::destroy_image(img);
    }

    RunningAverage(const RunningAverage&) = delete;
    RunningAverage& operator=(const RunningAverage&) = delete;

    const cv::Mat& apply(const cv::Mat& frame, const cv::Mat& luma) override
    {
        prepare(frame, luma);
        // Learned after the comparison, so a frame is judged against the past only.
        check(nerva::detect_changes(background_, &frame_, rate_, threshold_, &rect_, mask_), "detect_changes");
        return clean_.apply(mask_view_);
    }

    nerva::ChangeRows* defer(const cv::Mat& frame, const cv::Mat& luma) override
    {
        if (!deferred_) return nullptr;
        prepare(frame, luma);
        check(rows_.begin(background_, &frame_, rate_, threshold_, &rect_), "ChangeRows::begin");
        return &rows_;
    }

private:
    static void check(int status, const char* what)
    {
        if (status < 0) throw RuntimeError(std::string("background model: ") + what + " failed");
    }

    // Points frame_ at the frame's grey pixels; the first frame becomes the background.
    void prepare(const cv::Mat& frame, const cv::Mat& luma)
    {
        // The decoder's luma is used in place. Other sources are made grey
        // with OpenCV's weighted grey: the library's own colour-to-grey walks
        // a row one byte per pixel, which suits its hosts but not camera frames.
        const cv::Mat& grey = !luma.empty() ? luma : frame;
        if (grey.channels() == 1 && grey.isContinuous()) {
            frame_.data = grey.data;  // borrowed for this call, never released by the library
        } else {
            if (grey.channels() == 1) grey.copyTo(converted_view_);
            else cv::cvtColor(grey, converted_view_, cv::COLOR_BGR2GRAY);
            CV_Assert(converted_view_.data == converted_->data);  // written in place, never reallocated
            frame_.data = converted_->data;
        }
        if (first_) {
            check(nerva::update(background_, &frame_, 1.0f, &rect_), "update");
            first_ = false;
        }
    }

    float rate_;
    unsigned threshold_;
    CleanUp clean_;
    bool deferred_;
    nerva::image* converted_ = nullptr;  // grey made from a colour frame
    nerva::image* background_ = nullptr;
    nerva::image* mask_ = nullptr;
    nerva::image frame_{};  // the frame's grey pixels: a copy of converted_'s record, its data pointer set per frame
    cv::Mat converted_view_, mask_view_;
    nerva::rectangle rect_{};
    nerva::ChangeRows rows_;
    bool first_ = true;
};

// Squared distance to the background model above which a pixel is
// foreground. OpenCV's 16 lets pale ground near a person's feet and the
// edges of neighbours into the blob, which glues people who walk close
// together; 25 keeps them apart more often (tracks on PETS 2009 S2.L1,
// BENCHMARKS.md "Tracking") and still finds dark clothes on dark ground.
constexpr double kMog2VarThreshold = 25.0;

class Mog2 : public Foreground {
public:
    explicit Mog2(const Options& o)
        : rate_(o.learning_rate_given ? o.learning_rate : -1.0), clean_(o.open, o.close),
          subtractor_(cv::createBackgroundSubtractorMOG2(500, kMog2VarThreshold, true))
    {}

    const cv::Mat& apply(const cv::Mat& frame, const cv::Mat&) override
    {
        subtractor_->apply(frame, raw_, rate_);
        // Shadows come out as 127: they are not things.
        cv::threshold(raw_, mask_, 200, 255, cv::THRESH_BINARY);
        return clean_.apply(mask_);
    }

private:
    double rate_;
    CleanUp clean_;
    cv::Ptr<cv::BackgroundSubtractorMOG2> subtractor_;
    cv::Mat raw_, mask_;
};

// Ready-made masks: any non-zero value in any channel is foreground.
class GivenMasks : public Foreground {
public:
    explicit GivenMasks(const Options& o) : clean_(o.open, o.close) {}

    const cv::Mat& apply(const cv::Mat& frame, const cv::Mat&) override
    {
        if (frame.channels() == 1) {
            cv::compare(frame, 0, mask_, cv::CMP_NE);
        } else {
            cv::split(frame, channels_);
            cv::compare(channels_[0], 0, mask_, cv::CMP_NE);
            for (size_t c = 1; c < channels_.size(); ++c) {
                cv::compare(channels_[c], 0, channel_mask_, cv::CMP_NE);
                cv::bitwise_or(mask_, channel_mask_, mask_);
            }
        }
        return clean_.apply(mask_);
    }

private:
    CleanUp clean_;
    std::vector<cv::Mat> channels_;
    cv::Mat mask_, channel_mask_;
};

}  // namespace

std::unique_ptr<Foreground> make_foreground(const Options& options, cv::Size frame_size, cv::Rect roi)
{
    // region_of_interest() has checked the options against the frame.
    if (options.masks) return std::make_unique<GivenMasks>(options);
    if (options.background == Background::mog2) return std::make_unique<Mog2>(options);
    return std::make_unique<RunningAverage>(options, frame_size, roi);
}

}  // namespace nerva_blobs
