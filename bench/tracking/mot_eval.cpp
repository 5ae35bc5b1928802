#include "mot_eval.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "assignment.h"

namespace {

constexpr double kMinIou = 0.5;
constexpr double kForbidden = 1e6;

std::map<int, std::vector<const MotBox*>> by_frame(const std::vector<MotBox>& boxes)
{
    std::map<int, std::vector<const MotBox*>> frames;
    for (const MotBox& b : boxes) frames[b.frame].push_back(&b);
    return frames;
}

struct FrameMatch {
    int frame;
    std::vector<std::pair<const MotBox*, const MotBox*>> pairs;  // truth, hypothesis
    std::vector<const MotBox*> missed, spurious;
};

// The CLEAR MOT correspondence, frame by frame, with the switches it implies.
struct ClearMot {
    std::vector<FrameMatch> frames;
    std::vector<MotError> switches;
};

ClearMot clear_mot(const std::vector<MotBox>& truth, const std::vector<MotBox>& hyps)
{
    ClearMot out;
    const auto gt_frames = by_frame(truth);
    const auto hyp_frames = by_frame(hyps);
    std::vector<int> frames;
    for (const auto& [f, _] : gt_frames) frames.push_back(f);
    for (const auto& [f, _] : hyp_frames) frames.push_back(f);
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());

    std::map<int, int> last_hyp;  // ground-truth id -> hypothesis id of its last match
    static const std::vector<const MotBox*> none;
    for (int f : frames) {
        const auto git = gt_frames.find(f);
        const auto hit = hyp_frames.find(f);
        const auto& g = git == gt_frames.end() ? none : git->second;
        const auto& h = hit == hyp_frames.end() ? none : hit->second;
        FrameMatch m{f, {}, {}, {}};
        std::vector<char> g_done(g.size(), 0), h_done(h.size(), 0);
        // Correspondences of the previous frames hold while the boxes overlap.
        for (size_t i = 0; i < g.size(); ++i) {
            const auto prev = last_hyp.find(g[i]->id);
            if (prev == last_hyp.end()) continue;
            for (size_t j = 0; j < h.size(); ++j)
                if (!h_done[j] && h[j]->id == prev->second && box_iou(*g[i], *h[j]) >= kMinIou) {
                    g_done[i] = h_done[j] = 1;
                    m.pairs.emplace_back(g[i], h[j]);
                    break;
                }
        }
        std::vector<int> gi, hj;
        for (size_t i = 0; i < g.size(); ++i)
            if (!g_done[i]) gi.push_back(static_cast<int>(i));
        for (size_t j = 0; j < h.size(); ++j)
            if (!h_done[j]) hj.push_back(static_cast<int>(j));
        std::vector<double> cost(gi.size() * hj.size());
        for (size_t a = 0; a < gi.size(); ++a)
            for (size_t b = 0; b < hj.size(); ++b) {
                const double iou = box_iou(*g[gi[a]], *h[hj[b]]);
                cost[a * hj.size() + b] = iou >= kMinIou ? 1.0 - iou : kForbidden;
            }
        const std::vector<int> col =
            min_cost_assignment(cost, static_cast<int>(gi.size()), static_cast<int>(hj.size()));
        for (size_t a = 0; a < gi.size(); ++a) {
            if (col[a] < 0 || cost[a * hj.size() + col[a]] >= kForbidden) continue;
            const MotBox* gb = g[gi[a]];
            const MotBox* hb = h[hj[col[a]]];
            g_done[gi[a]] = h_done[hj[col[a]]] = 1;
            m.pairs.emplace_back(gb, hb);
            const auto prev = last_hyp.find(gb->id);
            if (prev != last_hyp.end() && prev->second != hb->id)
                out.switches.push_back({MotError::switch_, f, gb->id, hb->id});
        }
        for (const auto& [gb, hb] : m.pairs) last_hyp[gb->id] = hb->id;
        for (size_t i = 0; i < g.size(); ++i)
            if (!g_done[i]) m.missed.push_back(g[i]);
        for (size_t j = 0; j < h.size(); ++j)
            if (!h_done[j]) m.spurious.push_back(h[j]);
        out.frames.push_back(std::move(m));
    }
    return out;
}

}  // namespace

std::vector<MotBox> read_mot_file(const std::string& path, int first_frame, int last_frame, bool drop_conf0)
{
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::vector<MotBox> rows;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line);
        MotBox b;
        double conf = 1;
        if (!(fields >> b.frame >> b.id >> b.x >> b.y >> b.w >> b.h)) throw std::runtime_error("bad row in " + path);
        fields >> conf;
        if (b.frame < first_frame || b.frame > last_frame) continue;
        if (drop_conf0 && conf == 0) continue;
        rows.push_back(b);
    }
    return rows;
}

double box_iou(const MotBox& a, const MotBox& b)
{
    const double w = std::min(a.x + a.w, b.x + b.w) - std::max(a.x, b.x);
    const double h = std::min(a.y + a.h, b.y + b.h) - std::max(a.y, b.y);
    if (w <= 0 || h <= 0) return 0;
    const double inter = w * h;
    return inter / (a.w * a.h + b.w * b.h - inter);
}

std::vector<MotError> mot_errors(const std::vector<MotBox>& truth, const std::vector<MotBox>& hypotheses)
{
    const ClearMot cm = clear_mot(truth, hypotheses);
    std::vector<MotError> errors = cm.switches;
    for (const FrameMatch& m : cm.frames) {
        for (const MotBox* g : m.missed) errors.push_back({MotError::miss, m.frame, g->id, -1});
        for (const MotBox* h : m.spurious) errors.push_back({MotError::false_positive, m.frame, -1, h->id});
    }
    std::stable_sort(errors.begin(), errors.end(),
                     [](const MotError& a, const MotError& b) { return a.frame < b.frame; });
    return errors;
}

MotScores evaluate_mot(const std::vector<MotBox>& truth, const std::vector<MotBox>& hypotheses)
{
    MotScores s;
    s.gt_boxes = static_cast<long>(truth.size());
    s.hyp_boxes = static_cast<long>(hypotheses.size());
    const ClearMot cm = clear_mot(truth, hypotheses);
    s.idsw = static_cast<long>(cm.switches.size());

    double iou_sum = 0;
    std::map<int, std::vector<std::pair<int, bool>>> history;  // id -> (frame, matched)
    for (const FrameMatch& m : cm.frames) {
        s.matches += static_cast<long>(m.pairs.size());
        s.fn += static_cast<long>(m.missed.size());
        s.fp += static_cast<long>(m.spurious.size());
        for (const auto& [g, h] : m.pairs) {
            iou_sum += box_iou(*g, *h);
            history[g->id].emplace_back(m.frame, true);
        }
        for (const MotBox* g : m.missed) history[g->id].emplace_back(m.frame, false);
    }
    s.gt_tracks = static_cast<int>(history.size());
    for (auto& [id, h] : history) {
        std::sort(h.begin(), h.end());
        long matched = 0;
        bool tracked_before = false, gap = false;
        for (const auto& [f, ok] : h) {
            if (ok) {
                if (tracked_before && gap) ++s.frag;
                tracked_before = true;
                gap = false;
                ++matched;
            } else if (tracked_before) {
                gap = true;
            }
        }
        const double ratio = static_cast<double>(matched) / static_cast<double>(h.size());
        if (ratio >= 0.8) ++s.mostly_tracked;
        else if (ratio < 0.2) ++s.mostly_lost;
        else ++s.partly_tracked;
    }
    if (s.gt_boxes > 0) s.mota = 100.0 * (1.0 - static_cast<double>(s.fn + s.fp + s.idsw) / s.gt_boxes);
    if (s.matches > 0) s.motp = 100.0 * iou_sum / s.matches;

    // IDF1: identities matched once, maximising the frames where the pair's
    // boxes overlap enough.
    std::map<int, int> gt_index, hyp_index;
    for (const MotBox& g : truth) gt_index.emplace(g.id, static_cast<int>(gt_index.size()));
    for (const MotBox& h : hypotheses) hyp_index.emplace(h.id, static_cast<int>(hyp_index.size()));
    const int ng = static_cast<int>(gt_index.size()), nh = static_cast<int>(hyp_index.size());
    std::vector<double> together(static_cast<size_t>(ng) * nh, 0.0);
    const auto gt_frames = by_frame(truth);
    const auto hyp_frames = by_frame(hypotheses);
    for (const auto& [f, gs] : gt_frames) {
        const auto hit = hyp_frames.find(f);
        if (hit == hyp_frames.end()) continue;
        for (const MotBox* g : gs)
            for (const MotBox* h : hit->second)
                if (box_iou(*g, *h) >= kMinIou) together[gt_index[g->id] * nh + hyp_index[h->id]] += 1;
    }
    std::vector<double> cost(together.size());
    for (size_t k = 0; k < cost.size(); ++k) cost[k] = -together[k];
    const std::vector<int> col = min_cost_assignment(cost, ng, nh);
    for (int g = 0; g < ng; ++g)
        if (col[g] >= 0) s.idtp += static_cast<long>(together[g * nh + col[g]]);
    s.idfn = s.gt_boxes - s.idtp;
    s.idfp = s.hyp_boxes - s.idtp;
    if (s.gt_boxes + s.hyp_boxes > 0) s.idf1 = 100.0 * 2.0 * s.idtp / static_cast<double>(s.gt_boxes + s.hyp_boxes);
    return s;
}
