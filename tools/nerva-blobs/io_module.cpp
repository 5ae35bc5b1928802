// nerva-blobs-io.so: OpenCV's image codecs and video I/O behind io_module.h,
// for the runs that need them.
#include "io_module.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

namespace nerva_blobs {
namespace {

class OpenCvCapture : public Capture {
public:
    bool open(const std::string& address, int api, const std::vector<int>& params) override
    {
        return capture_.open(address, api, params);
    }
    bool is_opened() const override { return capture_.isOpened(); }
    bool read(cv::Mat& frame) override { return capture_.read(frame); }
    double get(int property) const override { return capture_.get(property); }
    bool set(int property, double value) override { return capture_.set(property, value); }
    void release() override { capture_.release(); }

private:
    cv::VideoCapture capture_;
};

class OpenCvVideoWriter : public VideoWriter {
public:
    bool open(const std::string& path, int api, const char (&codec)[5], double fps, cv::Size size) override
    {
        const int fourcc = cv::VideoWriter::fourcc(codec[0], codec[1], codec[2], codec[3]);
        return writer_.open(path, api, fourcc, fps, size, true);
    }
    void write(const cv::Mat& picture) override { writer_.write(picture); }
    void release() override { writer_.release(); }

private:
    cv::VideoWriter writer_;
};

class OpenCvIo : public IoModule {
public:
    bool encode(const std::string& extension, const cv::Mat& picture, std::vector<unsigned char>& bytes,
                const std::vector<int>& params) const override
    {
        return cv::imencode(extension, picture, bytes, params);
    }
    cv::Mat decode(const std::vector<char>& bytes, int flags) const override { return cv::imdecode(bytes, flags); }
    std::unique_ptr<Capture> capture() const override { return std::make_unique<OpenCvCapture>(); }
    std::unique_ptr<VideoWriter> writer() const override { return std::make_unique<OpenCvVideoWriter>(); }
};

}  // namespace
}  // namespace nerva_blobs

extern "C" __attribute__((visibility("default"))) const nerva_blobs::IoModule* nerva_blobs_io_module(int interface)
{
    static const nerva_blobs::OpenCvIo io;
    return interface == nerva_blobs::kIoModuleInterface ? &io : nullptr;
}
