#include "input.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <regex>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>  // constants only: the calls go through io_module.h

#include "errors.h"
#include "input_kind.h"
#include "io_module.h"
#include "live_source.h"
#include "luma_source.h"

namespace fs = std::filesystem;

namespace nerva_blobs {
namespace {

// Refuses early what the decoders would only report vaguely.
void check_readable(const std::string& path)
{
    std::ifstream probe(path, std::ios::binary);
    if (!probe) throw RuntimeError("cannot read '" + path + "': " + std::strerror(errno));
}

class VideoSource : public FrameSource {
public:
    explicit VideoSource(const std::string& path) : path_(path)
    {
        check_readable(path);
        capture_ = io_module().capture();
        // FFmpeg only: the other backends would try to read the path as a
        // camera name or an image sequence and fail less clearly.
        if (!capture_->open(path, cv::CAP_FFMPEG))
            throw RuntimeError("cannot decode '" + path + "': not a container or codec that FFmpeg can read");
        if (!capture_->read(pending_) || pending_.empty())
            throw RuntimeError("cannot decode '" + path + "': no frame could be decoded");
        const double count = capture_->get(cv::CAP_PROP_FRAME_COUNT);
        total_ = count > 0 && std::isfinite(count) ? static_cast<long>(count) : -1;
        fps_ = frame_rate(*capture_);
        pending_ms_ = capture_->get(cv::CAP_PROP_POS_MSEC);
    }

    bool read(cv::Mat& frame) override
    {
        if (!pending_.empty()) {
            frame = pending_;
            pending_ = cv::Mat();
            return true;
        }
        pending_ms_ = std::numeric_limits<double>::quiet_NaN();
        return capture_->read(frame) && !frame.empty();
    }
    long total() const override { return total_; }
    double fps() const override { return fps_; }
    std::string_view where() const override { return path_; }
    double stream_ms() const override
    {
        return std::isnan(pending_ms_) ? capture_->get(cv::CAP_PROP_POS_MSEC) : pending_ms_;
    }

private:
    std::string path_;
    std::unique_ptr<Capture> capture_;
    cv::Mat pending_;    // the first frame, decoded up front to detect bad files
    double pending_ms_;  // its time, until the next read
    long total_ = -1;
    double fps_ = 25.0;
};

// Decoders of damaged files write their own complaints straight to the
// process's standard error (libpng, libjpeg, OpenCV's header checks), two
// or three lines for one file, some without its name. While a file is
// decoded they go to /dev/null; the failure is reported once, by the caller.
class QuietStderr {
public:
    QuietStderr()
    {
        std::fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved_ >= 0 && null >= 0) dup2(null, STDERR_FILENO);
        if (null >= 0) close(null);
    }
    ~QuietStderr()
    {
        if (saved_ < 0) return;
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

private:
    int saved_ = -1;
};

cv::Mat decode_image(const std::string& path, bool as_masks)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) throw RuntimeError("cannot read '" + path + "': " + std::strerror(errno));
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw RuntimeError("cannot read '" + path + "': " + std::strerror(errno));
    // Masks keep their channels and depth so that any non-zero value counts;
    // frames are always decoded to 8-bit colour.
    const int flags = as_masks ? cv::IMREAD_ANYCOLOR | cv::IMREAD_ANYDEPTH : cv::IMREAD_COLOR;
    const IoModule& io = io_module();
    cv::Mat image;
    std::string why;
    {
        QuietStderr quiet;
        try {
            if (!bytes.empty()) image = io.decode(bytes, flags);
        } catch (const cv::Exception& e) {
            why = " (" + e.err + ")";  // e.g. a header announcing more pixels than OpenCV accepts
        }
    }
    if (image.empty()) throw RuntimeError("cannot decode image '" + path + "'" + why);
    return image;
}

class ImageListSource : public FrameSource {
public:
    // Loads the I/O module up front, before the reader's thread starts, so
    // that a run which cannot load it stops at once with its reason.
    ImageListSource(std::vector<std::string> files, bool as_masks) : files_(std::move(files)), as_masks_(as_masks)
    {
        io_module();
    }

    bool read(cv::Mat& frame) override
    {
        if (next_ >= files_.size()) return false;
        frame = decode_image(files_[next_++], as_masks_);
        return true;
    }
    long total() const override { return static_cast<long>(files_.size()); }
    double fps() const override { return 25.0; }
    std::string_view where() const override { return next_ ? std::string_view(files_[next_ - 1]) : std::string_view(); }

private:
    std::vector<std::string> files_;
    bool as_masks_;
    size_t next_ = 0;
};

// Expands the one integer field of a printf-style pattern ("%d", "%04d"),
// by hand so that a user's pattern is never used as a format string.
struct Pattern {
    std::string before, after;
    int width = 0;
    bool zero_pad = false;

    std::string name(long i) const
    {
        std::string digits = std::to_string(i);
        if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), zero_pad ? '0' : ' ');
        return before + digits + after;
    }
};

// Wide enough for any frame number; a wider field would only make names
// no file system accepts (and strings of gigabytes).
constexpr int kMaxFieldWidth = 20;

Pattern parse_pattern(const std::string& text)
{
    static const std::regex field("%(0?)([0-9]*)d");
    std::smatch m;
    if (!std::regex_search(text, m, field) || std::count(text.begin(), text.end(), '%') != 1)
        throw UsageError("'" + text +
                         "' does not exist, and as a pattern it must hold exactly one integer field "
                         "such as %d or %04d");
    Pattern p;
    p.before = m.prefix();
    p.after = m.suffix();
    p.zero_pad = !m[1].str().empty();
    const std::string digits = m[2].str();
    if (digits.size() > 2 || (!digits.empty() && std::stoi(digits) > kMaxFieldWidth))
        throw UsageError("pattern '" + text + "': field width " + digits + " is too large (at most " +
                         std::to_string(kMaxFieldWidth) + ")");
    p.width = digits.empty() ? 0 : std::stoi(digits);
    return p;
}

std::vector<std::string> files_of_pattern(const std::string& text)
{
    const Pattern p = parse_pattern(text);
    // Sequences are numbered from 0 or from 1; either start is accepted.
    long i = fs::exists(p.name(0)) ? 0 : 1;
    std::vector<std::string> files;
    for (; fs::exists(p.name(i)); ++i) files.push_back(p.name(i));
    if (files.empty())
        throw RuntimeError("no file matches '" + text + "' (tried " + p.name(0) + " and " + p.name(1) + ")");
    return files;
}

std::vector<std::string> files_of_directory(const std::string& dir)
{
    std::vector<std::string> files;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file() && nerva_pipeline::is_image_name(it->path().string()))
            files.push_back(it->path().string());
    if (ec) throw RuntimeError("cannot list directory '" + dir + "': " + ec.message());
    if (files.empty()) throw RuntimeError("directory '" + dir + "' holds no PNG, PGM, PPM or JPEG file");
    // Zero-padded numbering gives the frame order.
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

std::unique_ptr<FrameSource> open_source(const std::string& path, bool as_masks, bool colour)
{
    using nerva_pipeline::InputKind;
    switch (nerva_pipeline::input_kind(path)) {
    case InputKind::missing: break;
    case InputKind::network: return make_live_source(path, LiveKind::network);
    case InputKind::device: return make_live_source(path, LiveKind::device);
    case InputKind::pattern: return std::make_unique<ImageListSource>(files_of_pattern(path), as_masks);
    case InputKind::directory: return std::make_unique<ImageListSource>(files_of_directory(path), as_masks);
    case InputKind::image: return std::make_unique<ImageListSource>(std::vector<std::string>{path}, as_masks);
    case InputKind::video:
        if (as_masks) return std::make_unique<VideoSource>(path);
        return open_luma_video(path, colour);
    }
    throw RuntimeError("input '" + path + "' does not exist");
}

}  // namespace nerva_blobs
