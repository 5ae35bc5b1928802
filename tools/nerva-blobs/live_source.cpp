#include "live_source.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdlib>
#include <regex>
#include <vector>

#include <opencv2/videoio.hpp>  // constants only: the calls go through io_module.h

#include "io_module.h"

namespace nerva_blobs {
namespace {

// Long enough for a camera across a slow network to answer, short enough
// that a stream that went silent is noticed and reopened.
constexpr int kOpenTimeoutMs = 10000;
constexpr int kReadTimeoutMs = 5000;

class LiveSource : public FrameSource {
public:
    // The I/O module is loaded here, before the reader's thread starts, so
    // that a run which cannot load it stops at once with its reason.
    LiveSource(std::string address, LiveKind kind)
        : address_(std::move(address)), kind_(kind), capture_(io_module().capture())
    {
        // FFmpeg probes a stream until it has seen 5 s of it, or 20 frames
        // to guess their rate: 20 s and more from a camera giving a frame
        // in one or two seconds, past the open timeout, after which the
        // capture is open but reads nothing. A second of stream is enough
        // to know its codec and size. (Set here, before the reader's thread
        // starts; a user's own setting is kept.)
        if (kind_ == LiveKind::network) setenv("OPENCV_FFMPEG_CAPTURE_OPTIONS", "analyzeduration;1000000", 0);
    }

    bool connect() override
    {
        capture_->release();
        if (kind_ == LiveKind::device) capture_->open(address_, cv::CAP_V4L2);
        else
            capture_->open(address_, cv::CAP_FFMPEG,
                           std::vector<int>{cv::CAP_PROP_OPEN_TIMEOUT_MSEC, kOpenTimeoutMs,
                                            cv::CAP_PROP_READ_TIMEOUT_MSEC, kReadTimeoutMs});
        if (!capture_->is_opened()) return false;
        fps_ = frame_rate(*capture_);
        return true;
    }

    bool read(cv::Mat& frame) override { return capture_->is_opened() && capture_->read(frame) && !frame.empty(); }
    long total() const override { return -1; }
    double fps() const override { return fps_; }
    std::string_view where() const override { return address_; }
    double stream_ms() const override { return capture_->get(cv::CAP_PROP_POS_MSEC); }
    bool live() const override { return true; }

private:
    std::string address_;
    LiveKind kind_;
    std::unique_ptr<Capture> capture_;
    double fps_ = 25.0;
};

}  // namespace

std::unique_ptr<FrameSource> make_live_source(const std::string& address, LiveKind kind)
{
    return std::make_unique<LiveSource>(address, kind);
}

double frame_rate(const Capture& capture)
{
    const double rate = capture.get(cv::CAP_PROP_FPS);
    return rate > 0 && rate < 1000 ? rate : 25.0;
}

}  // namespace nerva_blobs
