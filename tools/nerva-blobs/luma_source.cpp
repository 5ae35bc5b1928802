#include "luma_source.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/log.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "errors.h"

namespace nerva_blobs {
namespace {

// Frames of each kind kept for reuse: the reader's queue and the frame in
// processing, with room to spare.
constexpr size_t kPooledFrames = 8;

// True when plane 0 of the pixel format is 8-bit luma, one byte a pixel:
// the planar and semi-planar YUV formats and grey.
bool luma_is_plane0(AVPixelFormat format)
{
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    if (!d || d->nb_components < 1 || (d->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BE)))
        return false;
    const AVComponentDescriptor& y = d->comp[0];
    return y.plane == 0 && y.step == 1 && y.depth == 8 && y.shift == 0 && y.offset == 0;
}

// FFmpeg's objects, released whatever point the opening reached.
struct Decoding {
    AVFormatContext* format = nullptr;
    AVCodecContext* decoder = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* picture = nullptr;
    SwsContext* to_grey = nullptr;
    SwsContext* to_colour = nullptr;

    Decoding() = default;
    Decoding(const Decoding&) = delete;
    Decoding& operator=(const Decoding&) = delete;
    ~Decoding()
    {
        sws_freeContext(to_grey);
        sws_freeContext(to_colour);
        av_frame_free(&picture);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
        avformat_close_input(&format);
    }
};

class LumaVideo : public FrameSource {
public:
    LumaVideo(const std::string& path, bool colour) : path_(path), colour_(colour)
    {
        const std::string cannot = "cannot decode '" + path + "': ";
        if (avformat_open_input(&format_, path.c_str(), nullptr, nullptr) < 0 ||
            avformat_find_stream_info(format_, nullptr) < 0)
            throw RuntimeError(cannot + "not a container or codec that FFmpeg can read");
        const AVCodec* codec = nullptr;
        stream_ = av_find_best_stream(format_, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        if (stream_ < 0 || !codec) throw RuntimeError(cannot + "not a container or codec that FFmpeg can read");
        AVStream* s = format_->streams[stream_];
        decoder_ = avcodec_alloc_context3(codec);
        if (!decoder_ || avcodec_parameters_to_context(decoder_, s->codecpar) < 0)
            throw RuntimeError(cannot + "out of memory");
        // One decoding thread: the reader already runs beside the
        // processing, and a host running one process per core wants no more.
        decoder_->thread_count = 1;
        if (avcodec_open2(decoder_, codec, nullptr) < 0)
            throw RuntimeError(cannot + "not a container or codec that FFmpeg can read");
        packet_ = av_packet_alloc();
        picture_ = av_frame_alloc();
        if (!packet_ || !picture_) throw RuntimeError(cannot + "out of memory");

        const AVRational rate = av_guess_frame_rate(format_, s, nullptr);
        fps_ = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
        if (!std::isfinite(fps_) || fps_ <= 0 || fps_ > 1000) fps_ = 25.0;
        // The container's count, else its duration times the rate.
        if (s->nb_frames > 0) {
            total_ = static_cast<long>(s->nb_frames);
        } else if (format_->duration > 0) {
            total_ = static_cast<long>(std::floor(format_->duration / double(AV_TIME_BASE) * fps_ + 0.5));
        }
        if (!decode_next(pending_grey_, pending_colour_)) throw RuntimeError(cannot + "no frame could be decoded");
        has_pending_ = true;
    }

    bool read(cv::Mat& frame) override
    {
        cv::Mat luma;
        return read_with_luma(frame, luma);
    }

    bool read_with_luma(cv::Mat& frame, cv::Mat& luma) override
    {
        if (has_pending_) {
            has_pending_ = false;
            luma = pending_grey_;
            frame = colour_ ? pending_colour_ : pending_grey_;
            pending_grey_.release();
            pending_colour_.release();
            return true;
        }
        cv::Mat colour;
        if (!decode_next(luma, colour)) return false;
        frame = colour_ ? colour : luma;
        return true;
    }

    long total() const override { return total_; }
    double fps() const override { return fps_; }
    std::string_view where() const override { return path_; }
    double stream_ms() const override { return stream_ms_; }

private:
    // The next picture of the stream, draining the decoder at the end.
    bool decode_picture()
    {
        while (true) {
            const int got = avcodec_receive_frame(decoder_, picture_);
            if (got == 0) return true;
            if (got != AVERROR(EAGAIN)) return false;  // end of stream, or a decoder error
            if (flushing_) return false;
            const int read = av_read_frame(format_, packet_);
            if (read < 0) {
                flushing_ = true;
                avcodec_send_packet(decoder_, nullptr);
                continue;
            }
            if (packet_->stream_index == stream_)
                avcodec_send_packet(decoder_, packet_);  // damaged packets are skipped
            av_packet_unref(packet_);
        }
    }

    bool decode_next(cv::Mat& grey, cv::Mat& colour)
    {
        if (!decode_picture()) return false;
        const int w = picture_->width, h = picture_->height;
        const auto format = static_cast<AVPixelFormat>(picture_->format);
        grey = recycled(grey_pool_, h, w, CV_8UC1);
        if (luma_is_plane0(format)) {
            for (int y = 0; y < h; ++y)
                std::memcpy(grey.ptr(y), picture_->data[0] + static_cast<ptrdiff_t>(y) * picture_->linesize[0],
                            static_cast<size_t>(w));
        } else {
            convert(to_grey_, AV_PIX_FMT_GRAY8, grey);
        }
        if (colour_) {
            colour = recycled(colour_pool_, h, w, CV_8UC3);
            convert(to_colour_, AV_PIX_FMT_BGR24, colour);
        }
        const AVRational base = format_->streams[stream_]->time_base;
        const int64_t pts = picture_->best_effort_timestamp;
        stream_ms_ = pts == AV_NOPTS_VALUE ? std::numeric_limits<double>::quiet_NaN() : 1000.0 * pts * av_q2d(base);
        if (std::isfinite(stream_ms_) && format_->start_time != AV_NOPTS_VALUE)
            stream_ms_ -= 1000.0 * format_->start_time / AV_TIME_BASE;
        av_frame_unref(picture_);
        return true;
    }

    // A buffer of the pool that nobody else holds any more, so that frames
    // queued and processed in turn cost no allocation; a new one while the
    // pool is short (a consumer may hold a few frames).
    static cv::Mat recycled(std::vector<cv::Mat>& pool, int rows, int cols, int type)
    {
        for (cv::Mat& m : pool)
            if (m.rows == rows && m.cols == cols && m.type() == type &&
                __atomic_load_n(&m.u->refcount, __ATOMIC_ACQUIRE) == 1)
                return m;
        cv::Mat fresh(rows, cols, type);
        if (pool.size() < kPooledFrames) pool.push_back(fresh);
        return fresh;
    }

    void convert(SwsContext*& context, AVPixelFormat to, cv::Mat& out)
    {
        context = sws_getCachedContext(context, picture_->width, picture_->height,
                                       static_cast<AVPixelFormat>(picture_->format), picture_->width, picture_->height,
                                       to, SWS_BICUBIC, nullptr, nullptr, nullptr);
        if (!context) throw RuntimeError("cannot decode '" + path_ + "': unsupported pixel format");
        uint8_t* planes[4] = {out.data, nullptr, nullptr, nullptr};
        int lines[4] = {static_cast<int>(out.step[0]), 0, 0, 0};
        sws_scale(context, picture_->data, picture_->linesize, 0, picture_->height, planes, lines);
    }

    std::string path_;
    bool colour_;
    Decoding av_;
    AVFormatContext*& format_ = av_.format;
    AVCodecContext*& decoder_ = av_.decoder;
    AVPacket*& packet_ = av_.packet;
    AVFrame*& picture_ = av_.picture;
    SwsContext*& to_grey_ = av_.to_grey;
    SwsContext*& to_colour_ = av_.to_colour;
    int stream_ = -1;
    bool flushing_ = false;
    long total_ = -1;
    double fps_ = 25.0;
    double stream_ms_ = std::numeric_limits<double>::quiet_NaN();
    std::vector<cv::Mat> grey_pool_, colour_pool_;
    cv::Mat pending_grey_, pending_colour_;  // the first frame, decoded up front to detect bad files
    bool has_pending_ = false;
};

}  // namespace

std::unique_ptr<FrameSource> open_luma_video(const std::string& path, bool colour)
{
    // FFmpeg's remarks on damaged streams would bury the one line the
    // caller reports; OPENCV_FFMPEG_LOGLEVEL, which sets the same library's
    // level for OpenCV's decoder, raises it again.
    const char* level = std::getenv("OPENCV_FFMPEG_LOGLEVEL");
    av_log_set_level(level ? std::atoi(level) : AV_LOG_QUIET);
    return std::make_unique<LumaVideo>(path, colour);
}

}  // namespace nerva_blobs
