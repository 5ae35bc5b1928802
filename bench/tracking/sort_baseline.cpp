#include "sort_baseline.h"

#include <cmath>

#include <opencv2/video/tracking.hpp>

#include "assignment.h"

namespace {

cv::Mat measurement(const MotBox& b)
{
    const float s = static_cast<float>(b.w * b.h);
    return (cv::Mat_<float>(4, 1) << static_cast<float>(b.x + b.w / 2), static_cast<float>(b.y + b.h / 2), s,
            static_cast<float>(b.w / b.h));
}

class SortTrack {
public:
    SortTrack(const MotBox& b, int id) : kf_(7, 4, 0, CV_32F), id_(id)
    {
        cv::setIdentity(kf_.transitionMatrix);
        for (int i = 0; i < 3; ++i) kf_.transitionMatrix.at<float>(i, i + 4) = 1;
        kf_.measurementMatrix = cv::Mat::zeros(4, 7, CV_32F);
        for (int i = 0; i < 4; ++i) kf_.measurementMatrix.at<float>(i, i) = 1;
        cv::setIdentity(kf_.measurementNoiseCov);
        kf_.measurementNoiseCov.at<float>(2, 2) = kf_.measurementNoiseCov.at<float>(3, 3) = 10;
        cv::setIdentity(kf_.errorCovPost, 10);
        for (int i = 4; i < 7; ++i) kf_.errorCovPost.at<float>(i, i) = 10000;
        cv::setIdentity(kf_.processNoiseCov);
        for (int i = 4; i < 7; ++i) kf_.processNoiseCov.at<float>(i, i) = 0.01f;
        kf_.processNoiseCov.at<float>(6, 6) = 0.0001f;
        kf_.statePost = cv::Mat::zeros(7, 1, CV_32F);
        measurement(b).copyTo(kf_.statePost.rowRange(0, 4));
    }

    MotBox predict()
    {
        if (kf_.statePost.at<float>(6) + kf_.statePost.at<float>(2) <= 0) kf_.statePost.at<float>(6) = 0;
        kf_.predict();
        kf_.statePre.copyTo(kf_.statePost);  // an unmatched track keeps its prediction
        kf_.errorCovPre.copyTo(kf_.errorCovPost);
        if (since_update_ > 0) streak_ = 0;
        ++since_update_;
        return box();
    }

    void update(const MotBox& b)
    {
        since_update_ = 0;
        ++streak_;
        kf_.correct(measurement(b));
    }

    MotBox box() const
    {
        const cv::Mat& x = kf_.statePost;
        const double s = x.at<float>(2), r = x.at<float>(3);
        const double w = std::sqrt(std::max(s * r, 0.0));
        const double h = w > 0 ? s / w : 0;
        return {0, id_, x.at<float>(0) - w / 2, x.at<float>(1) - h / 2, w, h};
    }

    int since_update() const { return since_update_; }
    int streak() const { return streak_; }

private:
    cv::KalmanFilter kf_;
    int id_;
    int since_update_ = 0;
    int streak_ = 0;
};

}  // namespace

std::vector<MotBox> run_sort(const std::vector<std::vector<MotBox>>& detections, const SortParams& p)
{
    std::vector<MotBox> out;
    std::vector<SortTrack> tracks;
    int next_id = 1;
    for (size_t k = 0; k < detections.size(); ++k) {
        const int frame = static_cast<int>(k) + 1;
        const std::vector<MotBox>& dets = detections[k];
        std::vector<MotBox> predicted;
        for (SortTrack& t : tracks) predicted.push_back(t.predict());

        const int nd = static_cast<int>(dets.size()), nt = static_cast<int>(tracks.size());
        std::vector<double> cost(static_cast<size_t>(nd) * nt);
        for (int d = 0; d < nd; ++d)
            for (int t = 0; t < nt; ++t) cost[d * nt + t] = -box_iou(dets[d], predicted[t]);
        const std::vector<int> col = min_cost_assignment(cost, nd, nt);
        std::vector<char> det_matched(nd, 0);
        for (int d = 0; d < nd; ++d) {
            if (col[d] < 0 || -cost[d * nt + col[d]] < p.iou_threshold) continue;
            tracks[col[d]].update(dets[d]);
            det_matched[d] = 1;
        }
        for (int d = 0; d < nd; ++d)
            if (!det_matched[d]) tracks.emplace_back(dets[d], next_id++);

        std::vector<SortTrack> kept;
        for (SortTrack& t : tracks) {
            if (t.since_update() < 1 && (t.streak() >= p.min_hits || frame <= p.min_hits)) {
                MotBox b = t.box();
                b.frame = frame;
                out.push_back(b);
            }
            if (t.since_update() <= p.max_age) kept.push_back(std::move(t));
        }
        tracks = std::move(kept);
    }
    return out;
}
