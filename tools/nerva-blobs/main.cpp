// nerva-blobs: frames in, foreground masks, blobs out, one JSON line per frame.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>  // constants only: the calls go through io_module.h

#include "annotate.h"
#include "console.h"
#include "errors.h"
#include "foreground.h"
#include "input.h"
#include "io_module.h"
#include "live_view.h"
#include "options.h"
#include "output.h"
#include "overview.h"
#include "progress.h"
#include "reader.h"
#include "same_file.h"
#include "segmenter.h"
#include "serve.h"
#include "stop.h"
#include "summary.h"
#include "tracking_stage.h"
#include "wall_clock.h"

namespace nerva_blobs {
namespace {

using clock_type = std::chrono::steady_clock;

double ms_since(clock_type::time_point start)
{
    return std::chrono::duration<double, std::milli>(clock_type::now() - start).count();
}

std::string jpeg_of(const cv::Mat& picture)
{
    std::vector<unsigned char> bytes;
    io_module().encode(".jpg", picture, bytes, {cv::IMWRITE_JPEG_QUALITY, 80});
    return std::string(bytes.begin(), bytes.end());
}

std::string size_text(cv::Size s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

int run(const Options& o)
{
    refuse_overwriting_input(o);
    const WallClock wall;
    // The view outlives a reader thread left blocked in a read (it holds a copy).
    std::shared_ptr<LiveView> view;
    std::optional<ListenAddress> listen;
    if (!o.serve.empty()) listen = parse_listen_address(o.serve), view = std::make_shared<LiveView>(o.input);
    ReaderOptions reading{o.realtime, o.reconnect, nullptr};
    if (view) reading.on_status = [view](const StreamStatus& s) { view->set_status(s); };
    // Video files are decoded to grey alone unless colour is drawn or the
    // detector needs it.
    const bool pictures = !o.annotate_dir.empty() || !o.video_out.empty() || !o.overview.empty() || !o.serve.empty();
    const bool colour = pictures || o.background == Background::mog2;
    // A run that cannot encode its pictures stops before reading a frame,
    // not at its end with its JSON lines written.
    if (pictures) io_module();
    FrameReader reader(open_source(o.input, o.masks, colour), reading);
    std::optional<LiveServer> server;
    if (view) {
        view->set_counts_source([&reader] { return reader.counts(); });
        server.emplace(*listen, view);
        say("live page on " + server->url());
    }
    JsonLinesWriter json(o.output);
    std::optional<FrameFiles> frame_files;
    if (!o.annotate_dir.empty()) frame_files.emplace(o.annotate_dir, o.every);

    Frame frame;
    if (!reader.next(frame)) {
        // A camera that never answered is no success, even when stopped.
        if (stop_requested())
            throw RuntimeError(reader.live() ? reader.no_frame_reason() : "stopped before the first frame");
        throw RuntimeError("'" + o.input + "' holds no frame");
    }

    const cv::Size size = frame.image.size();
    const cv::Rect roi = region_of_interest(o, size);
    auto foreground = make_foreground(o, size, roi);
    Segmenter segmenter(o, size, roi);
    std::optional<Overview> overview;
    if (!o.overview.empty()) overview.emplace(o.overview, size);
    std::optional<VideoFile> video;
    if (!o.video_out.empty()) video.emplace(o.video_out, size, reader.fps());
    std::optional<Annotator> annotator;
    if (frame_files || video || overview || view) annotator.emplace(size);
    std::optional<TrackingStage> tracking;
    if (o.track) tracking.emplace(o, size, reader.fps());

    Summary summary;
    Progress progress(o.progress || progress_by_default(o.output.empty()), reader.total());
    long done = 0;
    const cv::Mat no_mask;
    // Kept across frames, so that a frame allocates nothing: every field is
    // set again below, or set on every frame of the run or on none.
    std::string when;
    LineExtras extras;
    do {
        const long index = frame.number;
        if (frame.image.size() != size)
            throw RuntimeError("frame " + std::to_string(index) + " ('" + std::string(frame.where) + "') is " +
                               size_text(frame.image.size()) + ", earlier frames are " + size_text(size));
        auto t = clock_type::now();
        // A deferred mask is never written: the segmenter detects row by row.
        nerva::ChangeRows* changes = foreground->defer(frame.image, frame.luma);
        const cv::Mat& mask = changes ? no_mask : foreground->apply(frame.image, frame.luma);
        const double foreground_ms = ms_since(t);
        t = clock_type::now();
        const std::vector<Blob>& blobs = changes ? segmenter.segment(*changes) : segmenter.segment(mask);
        const double segment_ms = ms_since(t);

        wall.at(frame.arrival, when);
        // A file keeps a reproducible output, the same bytes on every run:
        // its lines carry no wall time.
        extras.time = frame.time;
        extras.dropped = frame.dropped;
        extras.outage_s = frame.outage_s;
        extras.outage_attempts = frame.outage_attempts;
        extras.components = segmenter.components();
        if (reader.drops_frames()) extras.wall = when;
        if (tracking) {
            tracking->update(blobs, index, frame.time);
            extras.blob_tracks = &tracking->blob_tracks();
            extras.tracking = tracking->json();
        }
        const std::string& line = json.write(index, blobs, extras);
        summary.add_wall(when);
        summary.add_latency(std::chrono::duration<double, std::milli>(clock_type::now() - frame.arrival).count());
        summary.add(static_cast<int>(blobs.size()), frame.decode_ms, foreground_ms, segment_ms);
        if (overview) overview->count(static_cast<int>(blobs.size()));

        const bool to_files = frame_files && frame_files->wants(index);
        const bool to_overview = overview && overview->wants(index);
        const bool to_view = view && view->wants_pictures();
        if (to_files || to_overview || video || to_view) {
            // Masks are shown as they were read; frames in colour.
            const cv::Mat& picture = annotator->draw(o.masks ? mask : frame.image, blobs, index);
            if (tracking) tracking->draw(picture);  // onto the annotator's canvas
            if (to_files) frame_files->write(picture, index);
            if (to_overview) overview->add(index, picture, mask);
            if (video) video->write(picture);
            if (to_view) view->set_picture(jpeg_of(picture));
        }
        if (view)
            view->add_frame(
                FrameStats{static_cast<int>(blobs.size()), frame.dropped, frame.decode_ms, foreground_ms, segment_ms},
                std::string(line));
        if (reader.live()) {
            const LiveCounts counts = reader.counts();
            const LiveProgress live{counts.dropped, counts.outages, state_name(reader.status().state)};
            progress.update(++done, &live);
        } else {
            progress.update(++done);
        }

        if (!reader.next(frame)) break;
    } while (true);
    progress.finish();
    if (view) view->set_status({StreamState::ended, 0, 0.0});

    if (video) video->finish();
    if (overview) overview->write();
    if (!o.quiet) {
        summary.print(stderr);
        if (tracking) tracking->print_summary(stderr);
        if (reader.drops_frames()) summary.print_live(stderr, reader.counts());
    }
    // Containers may announce more frames than they hold (a cut download).
    if (!stop_requested() && reader.total() > done)
        std::fprintf(stderr, "nerva-blobs: warning: '%s' announced %ld frames, only %ld could be decoded\n",
                     o.input.c_str(), reader.total(), done);
    return 0;
}

}  // namespace
}  // namespace nerva_blobs

int main(int argc, char** argv)
{
    using namespace nerva_blobs;
    // A closed pipe downstream becomes a write error with a message, not a
    // silent death by signal.
    std::signal(SIGPIPE, SIG_IGN);
    // Likewise a file size limit (ulimit -f): the write fails and says so.
    std::signal(SIGXFSZ, SIG_IGN);
    // Problems are reported in one line of our own; FFmpeg's and OpenCV's
    // chatter about damaged streams would bury it. Users can still raise
    // FFmpeg's level through the environment.
    setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    install_stop_handlers();
    int status = 0;
    try {
        const std::optional<Options> options = parse_options(argc, argv);
        if (options) status = run(*options);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "nerva-blobs: %s (see --help)\n", e.what());
        status = EXIT_USAGE;
    } catch (const RuntimeError& e) {
        std::fprintf(stderr, "nerva-blobs: %s\n", e.what());
        status = EXIT_RUNTIME;
    } catch (const cv::Exception& e) {
        std::fprintf(stderr, "nerva-blobs: OpenCV error: %s\n", e.err.c_str());
        status = EXIT_RUNTIME;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "nerva-blobs: %s\n", e.what());
        status = EXIT_RUNTIME;
    }
    // A reader thread still blocked in a network read must not meet the
    // destructors of static objects it may be using.
    if (FrameReader::abandoned() || LiveServer::abandoned()) {
        std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}
