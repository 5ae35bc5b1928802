#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// OpenCV's image codecs and video I/O (libopencv_imgcodecs, libopencv_videoio)
// cost more to load than everything else the program links, and most runs use
// neither: video files are decoded by libavcodec directly (luma_source.h).
// They are reached through this interface only, implemented by a module of its
// own, nerva-blobs-io.so, which is loaded the first time a run decodes or
// encodes a picture, opens a capture or writes a video.
namespace nerva_blobs {

// The calls of cv::VideoCapture the program makes.
class Capture {
public:
    virtual ~Capture() = default;
    // `api` is a cv::CAP_* backend; `params` pairs of cv::CAP_PROP_* and value.
    virtual bool open(const std::string& address, int api, const std::vector<int>& params = {}) = 0;
    virtual bool is_opened() const = 0;
    virtual bool read(cv::Mat& frame) = 0;
    virtual double get(int property) const = 0;
    virtual bool set(int property, double value) = 0;
    virtual void release() = 0;
};

// The calls of cv::VideoWriter the program makes; frames are 8-bit colour.
class VideoWriter {
public:
    virtual ~VideoWriter() = default;
    // `codec` is four characters, such as "MJPG".
    virtual bool open(const std::string& path, int api, const char (&codec)[5], double fps, cv::Size size) = 0;
    virtual void write(const cv::Mat& picture) = 0;
    virtual void release() = 0;
};

class IoModule {
public:
    // cv::imencode: `extension` such as ".png"; `params` pairs of cv::IMWRITE_* and value.
    virtual bool encode(const std::string& extension, const cv::Mat& picture, std::vector<unsigned char>& bytes,
                        const std::vector<int>& params = {}) const = 0;
    // cv::imdecode with cv::IMREAD_* `flags`; empty when the bytes are no picture.
    virtual cv::Mat decode(const std::vector<char>& bytes, int flags) const = 0;
    virtual std::unique_ptr<Capture> capture() const = 0;
    virtual std::unique_ptr<VideoWriter> writer() const = 0;

protected:
    ~IoModule() = default;  // the module's one instance lives as long as the process
};

// The module, loaded on the first call (once, whichever thread comes first):
// beside the executable, else where an installation puts it. When it cannot
// be loaded, this call and every later one throw the same RuntimeError,
// naming each path tried and why it failed.
const IoModule& io_module();

// Bumped whenever the classes above change, so that a module from another
// build refuses to serve rather than crash on a different layout.
constexpr int kIoModuleInterface = 1;

}  // namespace nerva_blobs

// The module's one exported symbol: its instance, or null when `interface`
// is not the kIoModuleInterface it was built with.
extern "C" const nerva_blobs::IoModule* nerva_blobs_io_module(int interface);
