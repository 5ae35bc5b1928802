// Video files decoded straight to their luma plane, as nerva-blobs decodes
// them, so that blobs_in_video sees the program's grey frames.
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include <pybind11/numpy.h>

#include "bindings.h"
#include "luma_source.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace py = pybind11;

namespace nerva_python {
namespace {

class LumaVideo {
public:
    explicit LumaVideo(const std::string& path) : source_(nerva_blobs::open_luma_video(path, false)) {}

    // (grey frame, stream time in ms or None), or None at the end.
    py::object read()
    {
        cv::Mat frame, luma;
        bool ok;
        {
            py::gil_scoped_release unlocked;
            ok = source_->read_with_luma(frame, luma);
        }
        if (!ok) return py::none();
        py::array_t<uint8_t> grey({static_cast<py::ssize_t>(luma.rows), static_cast<py::ssize_t>(luma.cols)});
        for (int y = 0; y < luma.rows; ++y)
            std::memcpy(grey.mutable_data(y, 0), luma.ptr(y), static_cast<size_t>(luma.cols));
        const double ms = source_->stream_ms();
        return py::make_tuple(grey, std::isfinite(ms) ? py::object(py::float_(ms)) : py::object(py::none()));
    }

    // The container's frame rate as nerva-blobs takes it (25 when unknown).
    double fps() const { return source_->fps(); }

private:
    std::unique_ptr<nerva_blobs::FrameSource> source_;
};

// The first video stream's codec name and the container's creation time,
// as ffprobe reports them, read in-process: starting ffprobe costs more
// than a short video's whole segmentation.
py::dict container_tags(const std::string& path)
{
    py::dict tags;
    AVFormatContext* format = nullptr;
    {
        py::gil_scoped_release unlocked;
        if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) format = nullptr;
    }
    if (!format) return tags;
    for (unsigned k = 0; k < format->nb_streams; ++k) {
        const AVCodecParameters* codec = format->streams[k]->codecpar;
        if (codec->codec_type == AVMEDIA_TYPE_VIDEO) {
            tags["codec"] = avcodec_get_name(codec->codec_id);
            break;
        }
    }
    if (const AVDictionaryEntry* e = av_dict_get(format->metadata, "creation_time", nullptr, 0))
        tags["creation_time"] = e->value;
    avformat_close_input(&format);
    return tags;
}

}  // namespace

void bind_luma_video(py::module_& m)
{
    m.def("_container_tags", &container_tags, py::arg("path"),
          "The first video stream's codec name and the container's creation time, where known.");
    py::class_<LumaVideo>(m, "_LumaVideo", "A video file's frames as the decoder's grey (luma) plane.")
        .def(py::init<const std::string&>(), py::arg("path"))
        .def("read", &LumaVideo::read)
        .def("fps", &LumaVideo::fps);
}

}  // namespace nerva_python
