#include "annotate.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>

#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>  // constants only: the calls go through io_module.h

#include "console.h"
#include "errors.h"
#include "nerva/image/image_draw.h"
#include "output.h"

namespace nerva_blobs {

Annotator::Annotator(cv::Size size)
{
    canvas_ = nerva::make_image(nerva::COLOR_IMG_3BYTES, size.width, size.height);
    if (!canvas_) throw RuntimeError("out of memory for the annotation image");
    // COLOR_IMG_3BYTES stores blue, green, red without row padding: exactly CV_8UC3.
    view_ = cv::Mat(size, CV_8UC3, canvas_->data);
}

Annotator::~Annotator() { nerva::destroy_image(canvas_); }

void Annotator::outline(const Blob& b, int ring, int rings, unsigned char red, unsigned char green, unsigned char blue)
{
    const int last_x = view_.cols - 1, last_y = view_.rows - 1;
    for (int r = ring; r < ring + rings; ++r) {
        nerva::rectangle box{std::max(b.xmin - r, 0),
                             std::max(b.ymin - r, 0),
                             std::min(b.xmax + r, last_x),
                             std::min(b.ymax + r, last_y),
                             0,
                             0};
        box.width = box.xmax - box.xmin + 1;
        box.height = box.ymax - box.ymin + 1;
        nerva::draw_color_rectangle(&box, canvas_, red, green, blue);
    }
}

const cv::Mat& Annotator::draw(const cv::Mat& picture, const std::vector<Blob>& blobs, long frame)
{
    if (picture.channels() == 1) cv::cvtColor(picture, view_, cv::COLOR_GRAY2BGR);
    else picture.copyTo(view_);
    CV_Assert(view_.data == canvas_->data);

    // Sized for the frame so that boxes and text survive the overview's
    // scaling down (a 768-wide frame becomes a 384-wide thumbnail).
    const double scale = std::max(0.4, view_.cols / 800.0);
    const int thickness = std::max(2, view_.cols / 256);
    for (const Blob& b : blobs) {
        // Magenta stands out on grass, road and skin alike; a dark rim keeps
        // it visible on bright or magenta-ish clothes.
        outline(b, thickness, 1, 0, 0, 0);
        for (int ring = 0; ring < thickness; ++ring) outline(b, ring, 1, 255, 0, 255);
        const std::string id = std::to_string(b.id);
        const cv::Point at(b.xmin, std::max(b.ymin - thickness - 3, static_cast<int>(14 * scale)));
        cv::putText(view_, id, at, cv::FONT_HERSHEY_SIMPLEX, 0.8 * scale, cv::Scalar(0, 0, 0), 5, cv::LINE_AA);
        cv::putText(view_, id, at, cv::FONT_HERSHEY_SIMPLEX, 0.8 * scale, cv::Scalar(255, 255, 255), 2, cv::LINE_AA);
    }

    const std::string caption = "frame " + std::to_string(frame) + "  " + std::to_string(blobs.size()) + " blobs";
    const cv::Point at(8, static_cast<int>(28 * scale));
    cv::putText(view_, caption, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 4, cv::LINE_AA);
    cv::putText(view_, caption, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(255, 255, 255), 2, cv::LINE_AA);
    return view_;
}

FrameFiles::FrameFiles(const std::string& dir, int every) : dir_(dir), every_(every)
{
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec || !std::filesystem::is_directory(dir))
        throw RuntimeError("cannot create directory '" + dir + "'" + (ec ? ": " + ec.message() : std::string()));
}

void FrameFiles::write(const cv::Mat& picture, long frame)
{
    char name[32];
    std::snprintf(name, sizeof name, "frame_%06ld.png", frame);
    const std::string path = (std::filesystem::path(dir_) / name).string();
    write_image_file(path, picture);
    ++written_;
}

VideoFile::VideoFile(const std::string& path, cv::Size size, double fps) : path_(path), writer_(io_module().writer())
{
    std::string ext = std::filesystem::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    // MP4 is for browsers, which play H.264 (FFmpeg's libx264) but not
    // MPEG-4 Part 2; x264 also wants even sides. MPEG-4 Part 2 and MJPEG
    // are what every FFmpeg build can encode.
    if (ext == ".mp4") {
        if (writer_->open(path, cv::CAP_FFMPEG, "avc1", fps, size)) return;
        say("no H.264 encoder for '" + path + "' (" + std::to_string(size.width) + "x" + std::to_string(size.height) +
            "); writing MPEG-4 Part 2, which browsers do not play");
    }
    const char(&codec)[5] = ext == ".mp4" ? "mp4v" : "MJPG";
    if (!writer_->open(path, cv::CAP_FFMPEG, codec, fps, size)) throw RuntimeError("cannot write video '" + path + "'");
}

void VideoFile::write(const cv::Mat& picture)
{
    writer_->write(picture);
    ++written_;
}

void VideoFile::finish()
{
    writer_->release();
    // OpenCV's writer reports no failed write: a full disk leaves a cut file
    // without a word. The closed file is opened again instead: its container
    // must announce every frame written and give back the last one (a count
    // alone can sit in a header patched after the data ran out).
    if (written_ == 0) return;
    const std::unique_ptr<Capture> check = io_module().capture();
    const double announced = check->open(path_, cv::CAP_FFMPEG) ? check->get(cv::CAP_PROP_FRAME_COUNT) : 0.0;
    cv::Mat last;
    if (!(announced >= written_) || !check->set(cv::CAP_PROP_POS_FRAMES, static_cast<double>(written_ - 1)) ||
        !check->read(last) || last.empty())
        throw RuntimeError("cannot write video '" + path_ + "': the file is cut (" + std::to_string(written_) +
                           " frames written, the last cannot be read back); disk full?");
}

}  // namespace nerva_blobs
