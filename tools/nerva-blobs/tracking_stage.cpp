#include "tracking_stage.h"

#include <chrono>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "errors.h"
#include "nerva/blob/blob.h"
#include "tracking_json.h"
#include "tracking_options.h"

namespace nerva_blobs {
namespace {

using nerva_pipeline::rounded;

cv::Scalar colour_of(int id)
{
    static const cv::Scalar palette[] = {{255, 128, 0}, {0, 200, 255}, {255, 0, 200}, {0, 255, 128},
                                         {255, 255, 0}, {128, 0, 255}, {0, 128, 255}, {200, 255, 100}};
    return palette[static_cast<size_t>(id) % (sizeof palette / sizeof palette[0])];
}

void outlined_text(cv::Mat& m, const std::string& text, cv::Point at, double scale, const cv::Scalar& colour)
{
    cv::putText(m, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 3, cv::LINE_AA);
    cv::putText(m, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, colour, 1, cv::LINE_AA);
}

}  // namespace

TrackingStage::TrackingStage(const Options& o, cv::Size size, double fps)
    : tracker_([&] {
          nerva::tracker_params p;
          p.frame_width = size.width;
          p.frame_height = size.height;
          return p;
      }()),
      fps_(fps), mot_path_(o.mot), csv_path_(o.csv)
{
    for (const std::string& text : o.lines) {
        const NamedPoints s = parse_line(text);
        tracker_.add_line(s.name.c_str(), s.values[0], s.values[1], s.values[2], s.values[3]);
    }
    for (const std::string& text : o.zones) {
        const NamedPoints s = parse_zone(text);
        std::vector<nerva::track_point> points;
        for (size_t i = 0; i < s.values.size(); i += 2) points.push_back({s.values[i], s.values[i + 1]});
        tracker_.add_zone(s.name.c_str(), points.data(), static_cast<int>(points.size()));
    }
    if (!o.mot.empty()) {
        mot_.open(o.mot);
        if (!mot_) throw RuntimeError("cannot write '" + o.mot + "'");
    }
    if (!o.csv.empty()) {
        csv_.open(o.csv);
        if (!csv_) throw RuntimeError("cannot write '" + o.csv + "'");
        csv_ << "frame,time,blob,track,xmin,ymin,xmax,ymax,width,height,npix,xc,yc\n";
    }
}

double TrackingStage::update(const std::vector<Blob>& blobs, long frame, double time)
{
    dets_.clear();
    for (const Blob& b : blobs) dets_.push_back({{b.xmin, b.ymin, b.xmax, b.ymax, b.width, b.height}, b.id, b.npix});
    const auto start = std::chrono::steady_clock::now();
    tracker_.update(dets_.data(), static_cast<int>(dets_.size()), frame);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    time_.add(ms);

    blob_tracks_.assign(blobs.size(), 0);
    for (size_t i = 0; i < blobs.size(); ++i) blob_tracks_[i] = tracker_.detection_track(static_cast<int>(i));

    for (int i = 0; i < tracker_.event_count(); ++i)
        if (tracker_.event_at(i).kind == nerva::TRACK_EVENT_START) ++identities_;
    json_ = nerva_pipeline::tracking_json(tracker_, fps_);
    write_exports(blobs, frame, time);
    return ms;
}

void TrackingStage::write_exports(const std::vector<Blob>& blobs, long frame, double time)
{
    if (mot_.is_open()) {
        // MOT Challenge frames count from 1.
        for (int i = 0; i < tracker_.track_count(); ++i) {
            const nerva::track& t = tracker_.track_at(i);
            if (!nerva::track_shown(t)) continue;
            mot_ << frame + 1 << ',' << t.id << ',' << rounded(t.box.xmin, 2) << ',' << rounded(t.box.ymin, 2) << ','
                 << rounded(t.box.width, 2) << ',' << rounded(t.box.height, 2) << ",1,-1,-1,-1\n";
        }
        if (!mot_) throw RuntimeError("cannot write to '" + mot_path_ + "'");
    }
    if (csv_.is_open()) {
        for (size_t i = 0; i < blobs.size(); ++i) {
            const Blob& b = blobs[i];
            csv_ << frame << ',' << rounded(time, 6) << ',' << b.id << ',';
            if (blob_tracks_[i]) csv_ << blob_tracks_[i];
            csv_ << ',' << b.xmin << ',' << b.ymin << ',' << b.xmax << ',' << b.ymax << ',' << b.width << ','
                 << b.height << ',' << b.npix << ',' << b.xc << ',' << b.yc << '\n';
        }
        if (!csv_) throw RuntimeError("cannot write to '" + csv_path_ + "'");
    }
}

void TrackingStage::draw(cv::Mat picture) const
{
    const double scale = std::max(0.4, picture.cols / 1400.0);
    const int thick = std::max(1, picture.cols / 500);
    for (int i = 0; i < tracker_.zone_count(); ++i) {
        const nerva::count_zone& z = tracker_.zone_at(i);
        std::vector<cv::Point> pts;
        for (int k = 0; k < z.npoints; ++k) pts.emplace_back(cvRound(z.x[k]), cvRound(z.y[k]));
        cv::polylines(picture, pts, true, cv::Scalar(255, 200, 0), thick, cv::LINE_AA);
        outlined_text(picture, std::string(z.name) + ": " + std::to_string(z.inside) + " inside",
                      pts[0] + cv::Point(4, -6), scale, cv::Scalar(255, 200, 0));
    }
    for (int i = 0; i < tracker_.line_count(); ++i) {
        const nerva::count_line& l = tracker_.line_at(i);
        const cv::Point a(cvRound(l.x1), cvRound(l.y1)), b(cvRound(l.x2), cvRound(l.y2));
        cv::line(picture, a, b, cv::Scalar(0, 0, 255), thick + 1, cv::LINE_AA);
        outlined_text(
            picture,
            std::string(l.name) + "  in " + std::to_string(l.count_in) + "  out " + std::to_string(l.count_out),
            (a + b) / 2 + cv::Point(6, -8), scale * 1.2, cv::Scalar(0, 0, 255));
    }
    for (int i = 0; i < tracker_.track_count(); ++i) {
        const nerva::track& t = tracker_.track_at(i);
        if (t.id == 0 || t.state == nerva::TRACK_ENDED) continue;
        const cv::Scalar c = colour_of(t.id);
        std::vector<cv::Point> trail;
        for (int k = 0; k < t.trail_length; ++k) {
            const nerva::track_point& p = t.trail[(t.trail_start + k) % nerva::TRACK_TRAIL];
            trail.emplace_back(cvRound(p.x), cvRound(p.y));
        }
        cv::polylines(picture, trail, false, c, thick, cv::LINE_AA);
        const cv::Rect box(cvRound(t.box.xmin), cvRound(t.box.ymin), cvRound(t.box.width), cvRound(t.box.height));
        const int dash = t.state == nerva::TRACK_COASTING ? cv::LINE_4 : cv::LINE_AA;
        cv::rectangle(picture, box, c, thick, dash);
        outlined_text(picture, std::to_string(t.id), box.tl() + cv::Point(0, -4), scale, c);
    }
}

void TrackingStage::print_summary(std::FILE* to) const
{
    std::fprintf(to, "nerva-blobs: %d tracks; median tracking time per frame %.3f ms\n", identities_,
                 time_.quantile(0.5));
    for (int i = 0; i < tracker_.line_count(); ++i) {
        const nerva::count_line& l = tracker_.line_at(i);
        std::fprintf(to, "nerva-blobs: line %s: in %lld, out %lld\n", l.name, static_cast<long long>(l.count_in),
                     static_cast<long long>(l.count_out));
    }
    for (int i = 0; i < tracker_.zone_count(); ++i) {
        const nerva::count_zone& z = tracker_.zone_at(i);
        std::fprintf(to, "nerva-blobs: zone %s: %lld entries, %lld exits\n", z.name, static_cast<long long>(z.entries),
                     static_cast<long long>(z.exits));
    }
}

}  // namespace nerva_blobs
