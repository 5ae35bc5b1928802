#include "nerva/tracking/tracker.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nerva {
namespace {

// Boxes as continuous extents: a blob box of inclusive bounds xmin..xmax
// covers [xmin, xmax + 1).
struct extent {
    double x0, y0, x1, y1;
};

extent of_box(const frectangle& b) { return {b.xmin, b.ymin, b.xmin + b.width, b.ymin + b.height}; }
extent of_box(const rectangle& b) { return {double(b.xmin), double(b.ymin), b.xmax + 1.0, b.ymax + 1.0}; }

double area(const extent& e) { return (e.x1 - e.x0) * (e.y1 - e.y0); }

double intersection(const extent& a, const extent& b)
{
    const double w = std::min(a.x1, b.x1) - std::max(a.x0, b.x0);
    const double h = std::min(a.y1, b.y1) - std::max(a.y0, b.y0);
    return w > 0 && h > 0 ? w * h : 0.0;
}

void set_box(frectangle& box, double cx, double cy, double w, double h)
{
    box.width = w;
    box.height = h;
    box.xmin = cx - w / 2;
    box.ymin = cy - h / 2;
    box.xmax = box.xmin + w - 1;
    box.ymax = box.ymin + h - 1;
}

double centre_x(const frectangle& b) { return b.xmin + b.width / 2; }
double centre_y(const frectangle& b) { return b.ymin + b.height / 2; }

// A piece of a person is not as tall for its width as a whole one, so two
// people, one behind the other, are not taken for one.
bool piece(const extent& e, double aspect) { return e.y1 - e.y0 <= aspect * (e.x1 - e.x0); }

// One box above the other, nearly in line: the upper body and the legs of
// one person, which background subtraction often cuts apart at the belt.
// People one behind the other overlap in height as well. `gap`: the most
// space between the two, as a share of the shorter one's height.
bool stacked(const extent& a, const extent& b, double gap, double aspect)
{
    const double wide = std::min(a.x1, b.x1) - std::max(a.x0, b.x0);
    const double high = std::min(a.y1, b.y1) - std::max(a.y0, b.y0);
    const double h = std::min(a.y1 - a.y0, b.y1 - b.y0);
    if (!piece(a, aspect) || !piece(b, aspect)) return false;
    return wide >= 0.5 * std::min(a.x1 - a.x0, b.x1 - b.x0) && high <= 0.25 * h && high >= -gap * h;
}

// Whether the bottom edge of a box lies beyond the line's band on one side.
bool on_one_side(const count_line& line, const extent& e)
{
    const int left = line_side(line, e.x0, e.y1);
    return left != 0 && left == line_side(line, e.x1, e.y1);
}

bool alive(const track& t) { return t.state != TRACK_ENDED; }
bool identified(const track& t) { return t.state == TRACK_CONFIRMED || t.state == TRACK_COASTING; }

}  // namespace

const char* get_track_state_name(track_state_t state)
{
    switch (state) {
    case TRACK_CONFIRMED: return "confirmed";
    case TRACK_COASTING: return "coasting";
    case TRACK_ENDED: return "ended";
    default: return "tentative";
    }
}

const char* get_track_event_name(track_event_t kind)
{
    switch (kind) {
    case TRACK_EVENT_START: return "start";
    case TRACK_EVENT_END: return "end";
    case TRACK_EVENT_LINE: return "line";
    case TRACK_EVENT_ZONE_ENTER: return "enter";
    default: return "exit";
    }
}

bool track_shown(const track& t) { return t.state == TRACK_CONFIRMED || (t.state == TRACK_COASTING && t.still); }

track_point track_reference_point(const track& t) { return {centre_x(t.box), t.box.ymin + t.box.height}; }

MV_tracker::MV_tracker(const tracker_params& params) : params_(params)
{
    params_.max_tracks = std::max(params_.max_tracks, 1);
    params_.max_detections = std::max(params_.max_detections, 1);
    params_.max_events = std::max(params_.max_events, 1);
    tracks_.reserve(static_cast<size_t>(params_.max_tracks));
    dets_.reserve(static_cast<size_t>(params_.max_detections));
    det_first_.reserve(dets_.capacity());
    det_owner_.reserve(dets_.capacity());
    det_members_.reserve(dets_.capacity());
    assigned_.reserve(tracks_.capacity());
    events_.reserve(static_cast<size_t>(params_.max_events));
    lines_.reserve(TRACKER_MAX_LINES);
    zones_.reserve(TRACKER_MAX_ZONES);
}

int MV_tracker::add_line(const char* name, double x1, double y1, double x2, double y2, double hysteresis)
{
    if (lines_.size() >= TRACKER_MAX_LINES || (x1 == x2 && y1 == y2)) return -1;
    count_line l{};
    std::strncpy(l.name, name ? name : "", TRACKER_NAME_LENGTH - 1);
    l.x1 = x1;
    l.y1 = y1;
    l.x2 = x2;
    l.y2 = y2;
    l.hysteresis = std::max(hysteresis, 0.0);
    lines_.push_back(l);
    return static_cast<int>(lines_.size()) - 1;
}

int MV_tracker::add_zone(const char* name, const track_point* points, int count)
{
    if (zones_.size() >= TRACKER_MAX_ZONES || count < 3 || count > ZONE_MAX_POINTS) return -1;
    count_zone z{};
    std::strncpy(z.name, name ? name : "", TRACKER_NAME_LENGTH - 1);
    z.npoints = count;
    for (int i = 0; i < count; ++i) {
        z.x[i] = points[i].x;
        z.y[i] = points[i].y;
    }
    zones_.push_back(z);
    return static_cast<int>(zones_.size()) - 1;
}

int MV_tracker::update(const blob_ptr& head, int64_t frame)
{
    // Blobs are gathered in the detection array the general update copies
    // into anyway; the copy below is then a copy onto itself.
    dets_.clear();
    for (RLEblob* b = head.get(); b; b = b->next.get()) {
        if (dets_.size() == dets_.capacity()) {
            ++overflows_;
            break;
        }
        dets_.push_back({b->bbox, b->ident, b->npix});
    }
    const int n = update(dets_.data(), static_cast<int>(dets_.size()), frame);
    int i = 0;
    for (RLEblob* b = head.get(); b && i < static_cast<int>(dets_.size()); b = b->next.get(), ++i) {
        const extent e = of_box(b->bbox);
        b->occlusion = static_cast<blob_occl_type>(b->occlusion | border_flags(e.x0, e.y0, e.x1, e.y1));
        if (det_members_[static_cast<size_t>(i)] > 1) b->type = A_GROUP;
    }
    return n;
}

int MV_tracker::update(const track_detection* detections, int count, int64_t frame)
{
    frame_ = frame;
    events_.clear();
    // Tracks ended by the previous frame go now.
    tracks_.erase(std::remove_if(tracks_.begin(), tracks_.end(), [](const track& t) { return !alive(t); }),
                  tracks_.end());
    if (count > static_cast<int>(dets_.capacity())) {
        overflows_ += count - static_cast<int>(dets_.capacity());
        count = static_cast<int>(dets_.capacity());
    }
    if (detections != dets_.data()) dets_.assign(detections, detections + count);
    det_first_.assign(static_cast<size_t>(count), -1);
    det_owner_.assign(static_cast<size_t>(count), 0);
    det_members_.assign(static_cast<size_t>(count), 0);
    assigned_.assign(tracks_.size(), 0);
    for (track& t : tracks_) {
        t.nblobs = 0;
        t.group = -1;
    }

    predict();
    form_groups(count);
    match_one_to_one(count);
    attach_fragments(count);

    for (size_t i = 0; i < tracks_.size(); ++i) {
        track& t = tracks_[i];
        if (!alive(t)) continue;
        if (assigned_[i] == 1) correct(t);
        else if (assigned_[i] == 2) hold_in_group(t);
        else miss(t);
    }
    const size_t existing = tracks_.size();
    start_tracks(count);
    for (size_t i = 0; i < existing; ++i)
        if (alive(tracks_[i]) && assigned_[i]) observe(tracks_[i]);
    for (size_t i = 0; i < tracks_.size(); ++i) {
        const track& t = tracks_[i];
        if (t.state != TRACK_CONFIRMED) continue;
        for (int k = 0; k < t.nblobs; ++k) {
            for (int d = 0; d < count; ++d)
                if (dets_[static_cast<size_t>(d)].ident == t.blobs[k] && det_owner_[static_cast<size_t>(d)] == 0)
                    det_owner_[static_cast<size_t>(d)] = t.id;
        }
        if (t.group >= 0 && det_owner_[static_cast<size_t>(t.group)] == 0)
            det_owner_[static_cast<size_t>(t.group)] = t.id;
    }
    return static_cast<int>(tracks_.size());
}

void MV_tracker::predict()
{
    for (track& t : tracks_) {
        set_box(t.box, centre_x(t.box) + t.vx, centre_y(t.box) + t.vy, t.box.width, t.box.height);
        ++t.age;
    }
}

// A blob that holds most of the predicted boxes of two or more known tracks
// is their group: people walking side by side, or crossing. Each member
// keeps its own box.
void MV_tracker::form_groups(int ndet)
{
    for (int d = 0; d < ndet; ++d) {
        const extent de = of_box(dets_[static_cast<size_t>(d)].bbox);
        int members = 0;
        for (const track& t : tracks_) {
            if (!identified(t)) continue;
            const extent te = of_box(t.box);
            if (intersection(te, de) >= params_.group_cover * area(te)) ++members;
        }
        if (members < 2) continue;
        for (size_t i = 0; i < tracks_.size(); ++i) {
            track& t = tracks_[i];
            if (!identified(t) || assigned_[i]) continue;
            const extent te = of_box(t.box);
            if (intersection(te, de) < params_.group_cover * area(te)) continue;
            assigned_[i] = 2;
            t.group = d;
            if (t.nblobs < TRACK_MAX_BLOBS) t.blobs[t.nblobs++] = dets_[static_cast<size_t>(d)].ident;
            ++det_members_[static_cast<size_t>(d)];
            if (det_first_[static_cast<size_t>(d)] < 0) det_first_[static_cast<size_t>(d)] = static_cast<int32_t>(i);
        }
        drop_duplicates(d);
    }
}

// A member whose box lies mostly inside another member's box, frame after
// frame, is a second track on the same object (typically born from a
// fragment): the younger of the two ends.
void MV_tracker::drop_duplicates(int d)
{
    for (size_t i = 0; i < tracks_.size(); ++i) {
        track& a = tracks_[i];
        if (a.group != d) continue;
        bool covered = false;
        const extent ae = of_box(a.box);
        for (const track& b : tracks_) {
            if (&b == &a || b.group != d || b.first_frame > a.first_frame) continue;
            const extent be = of_box(b.box);
            if (intersection(ae, be) >= params_.duplicate_cover * area(ae) ||
                stacked(ae, be, 1e300, params_.piece_aspect))
                covered = true;
        }
        a.covered = covered ? a.covered + 1 : 0;
        if (a.covered < params_.duplicate_frames) continue;
        assigned_[i] = 0;
        a.group = -1;
        a.nblobs = 0;
        --det_members_[static_cast<size_t>(d)];
        end(a);
    }
    // A group of one is a plain match.
    int last = -1, members = 0;
    for (size_t i = 0; i < tracks_.size(); ++i)
        if (tracks_[i].group == d && alive(tracks_[i])) {
            ++members;
            last = static_cast<int>(i);
        }
    det_first_[static_cast<size_t>(d)] = last;
    if (members != 1) return;
    assigned_[static_cast<size_t>(last)] = 1;
    tracks_[static_cast<size_t>(last)].group = -1;
}

// Best overlaps first; identified tracks before tentative ones on a near tie.
void MV_tracker::match_one_to_one(int ndet)
{
    for (;;) {
        double best = params_.match_iou;
        int bt = -1, bd = -1;
        for (size_t i = 0; i < tracks_.size(); ++i) {
            if (assigned_[i]) continue;
            const extent te = of_box(tracks_[i].box);
            const double bonus = identified(tracks_[i]) ? 0.05 : 0.0;
            for (int d = 0; d < ndet; ++d) {
                if (det_first_[static_cast<size_t>(d)] >= 0) continue;
                const extent de = of_box(dets_[static_cast<size_t>(d)].bbox);
                const double inter = intersection(te, de);
                if (inter <= 0) continue;
                const double score = inter / (area(te) + area(de) - inter) + bonus;
                if (score > best) {
                    best = score;
                    bt = static_cast<int>(i);
                    bd = d;
                }
            }
        }
        if (bt < 0) return;
        track& t = tracks_[static_cast<size_t>(bt)];
        assigned_[static_cast<size_t>(bt)] = 1;
        t.blobs[t.nblobs++] = dets_[static_cast<size_t>(bd)].ident;
        det_first_[static_cast<size_t>(bd)] = bt;
        det_members_[static_cast<size_t>(bd)] = 1;
    }
}

// Blobs left over that lie mostly inside one track's predicted box are
// pieces of that object.
void MV_tracker::attach_fragments(int ndet)
{
    for (int d = 0; d < ndet; ++d) {
        if (det_first_[static_cast<size_t>(d)] >= 0) continue;
        const extent de = of_box(dets_[static_cast<size_t>(d)].bbox);
        double best = params_.fragment_cover * area(de);
        int bt = -1;
        for (size_t i = 0; i < tracks_.size(); ++i) {
            if (tracks_[i].nblobs >= TRACK_MAX_BLOBS) continue;
            const double inter = intersection(of_box(tracks_[i].box), de);
            if (inter >= best) {
                best = inter;
                bt = static_cast<int>(i);
            }
        }
        if (bt < 0) continue;
        track& t = tracks_[static_cast<size_t>(bt)];
        if (!assigned_[static_cast<size_t>(bt)]) assigned_[static_cast<size_t>(bt)] = 1;
        t.blobs[t.nblobs++] = dets_[static_cast<size_t>(d)].ident;
        det_first_[static_cast<size_t>(d)] = bt;
        det_members_[static_cast<size_t>(d)] = 1;
    }
}

void MV_tracker::correct(track& t)
{
    // The union of the blobs it owns this frame.
    extent m{1e300, 1e300, -1e300, -1e300};
    const size_t self = static_cast<size_t>(&t - tracks_.data());
    for (size_t d = 0; d < dets_.size(); ++d) {
        if (det_first_[d] != static_cast<int32_t>(self)) continue;
        const extent e = of_box(dets_[d].bbox);
        m = {std::min(m.x0, e.x0), std::min(m.y0, e.y0), std::max(m.x1, e.x1), std::max(m.y1, e.y1)};
    }
    const double mx = (m.x0 + m.x1) / 2, my = (m.y0 + m.y1) / 2;
    const double mw = m.x1 - m.x0, mh = m.y1 - m.y0;
    if (t.hits == 0) {
        set_box(t.box, mx, my, mw, mh);
    } else {
        const double px = centre_x(t.box), py = centre_y(t.box);
        const double rx = mx - px, ry = my - py;
        t.vx += params_.velocity_gain * rx;
        t.vy += params_.velocity_gain * ry;
        // Blobs lose parts of an object (low contrast, something in front)
        // far more often than they gain some: a box grows faster than it
        // shrinks.
        const double gw = mw > t.box.width ? params_.size_gain : params_.shrink_gain;
        const double gh = mh > t.box.height ? params_.size_gain : params_.shrink_gain;
        set_box(t.box, px + params_.position_gain * rx, py + params_.position_gain * ry,
                t.box.width + gw * (mw - t.box.width), t.box.height + gh * (mh - t.box.height));
    }
    t.occlusion = t.nblobs > 1 ? MM_PARTIAL_DETECTION : MM_OCCL_NONE;
    found(t);
}

// A member of a group keeps its own size; the blob tells where the group's
// outer edges are, so the member on each edge is moved onto it (people side
// by side share the bottom, one behind the other the sides), and a member
// inside the group keeps its prediction, held within the blob.
void MV_tracker::hold_in_group(track& t)
{
    const extent g = of_box(dets_[static_cast<size_t>(t.group)].bbox);
    const extent me = of_box(t.box);
    const double w = t.box.width, h = t.box.height;
    double left = 1e300, right = -1e300, top = 1e300, bottom = -1e300;
    uint32_t flags = 0;
    for (const track& o : tracks_) {
        if (o.group != t.group) continue;
        const extent oe = of_box(o.box);
        left = std::min(left, oe.x0);
        right = std::max(right, oe.x1);
        top = std::min(top, oe.y0);
        bottom = std::max(bottom, oe.y1);
        if (&o != &t) flags |= centre_x(o.box) < centre_x(t.box) ? MM_DYN_OCCL_LEFT : MM_DYN_OCCL_RIGHT;
    }
    const double slack_x = 0.25 * w, slack_y = 0.15 * h;
    double mx = centre_x(t.box), my = centre_y(t.box);
    const bool on_left = me.x0 <= left + slack_x, on_right = me.x1 >= right - slack_x;
    if (on_left && !on_right) mx = g.x0 + w / 2;
    else if (on_right && !on_left) mx = g.x1 - w / 2;
    else if (on_left && on_right) mx = (g.x0 + g.x1) / 2;
    if (me.y1 >= bottom - slack_y) my = g.y1 - h / 2;
    else if (me.y0 <= top + slack_y) my = g.y0 + h / 2;
    if (w <= g.x1 - g.x0) mx = std::min(std::max(mx, g.x0 + w / 2), g.x1 - w / 2);
    if (h <= g.y1 - g.y0) my = std::min(std::max(my, g.y0 + h / 2), g.y1 - h / 2);
    const double px = centre_x(t.box), py = centre_y(t.box);
    const double rx = mx - px, ry = my - py;
    t.vx += params_.group_velocity_gain * rx;
    t.vy += params_.group_velocity_gain * ry;
    set_box(t.box, px + params_.position_gain * rx, py + params_.position_gain * ry, w, h);
    t.occlusion = static_cast<blob_occl_type>(flags);
    found(t);
}

void MV_tracker::found(track& t)
{
    ++t.hits;
    t.misses = 0;
    t.still = false;
    t.last_frame = frame_;
    if (t.state == TRACK_COASTING) t.state = TRACK_CONFIRMED;
}

void MV_tracker::miss(track& t)
{
    ++t.misses;
    if (t.state == TRACK_TENTATIVE) {
        t.state = TRACK_ENDED;  // never had an identity: no event
        return;
    }
    if (t.misses == 1) t.still = std::hypot(t.vx, t.vy) < params_.still_speed;
    if (t.still) t.vx = t.vy = 0;
    t.state = TRACK_COASTING;
    t.occlusion = MM_TOTAL_OCCLUSION;
    const extent e = of_box(t.box);
    const int limit = border_flags(e.x0, e.y0, e.x1, e.y1) ? params_.max_coast_border
                      : t.still                            ? params_.max_coast_still
                                                           : params_.max_coast;
    if (t.misses > limit) end(t);
}

void MV_tracker::start_tracks(int ndet)
{
    for (int d = 0; d < ndet; ++d) {
        if (det_first_[static_cast<size_t>(d)] >= 0) continue;
        if (tracks_.size() == tracks_.capacity()) {
            ++overflows_;
            continue;
        }
        track t{};
        t.state = TRACK_TENTATIVE;
        t.group = -1;
        t.first_frame = frame_;
        t.blobs[t.nblobs++] = dets_[static_cast<size_t>(d)].ident;
        tracks_.push_back(t);
        assigned_.push_back(1);
        det_first_[static_cast<size_t>(d)] = static_cast<int32_t>(tracks_.size() - 1);
        det_members_[static_cast<size_t>(d)] = 1;
        track& n = tracks_.back();
        // Pieces of one person left over above or below it start the same
        // track.
        const extent de = of_box(dets_[static_cast<size_t>(d)].bbox);
        for (int e = d + 1; e < ndet && n.nblobs < TRACK_MAX_BLOBS; ++e) {
            if (det_first_[static_cast<size_t>(e)] >= 0 ||
                !stacked(de, of_box(dets_[static_cast<size_t>(e)].bbox), 0.3, params_.piece_aspect))
                continue;
            n.blobs[n.nblobs++] = dets_[static_cast<size_t>(e)].ident;
            det_first_[static_cast<size_t>(e)] = det_first_[static_cast<size_t>(d)];
            det_members_[static_cast<size_t>(e)] = 1;
        }
        correct(n);
        n.origin_x = centre_x(n.box);
        n.origin_y = centre_y(n.box);
        observe(n);
    }
}

// After the box is known: border flags, the trail, confirmation, lines and
// zones.
void MV_tracker::observe(track& t)
{
    const extent e = of_box(t.box);
    t.occlusion = static_cast<blob_occl_type>(t.occlusion | border_flags(e.x0, e.y0, e.x1, e.y1));
    t.moved = std::max(t.moved, std::hypot(centre_x(t.box) - t.origin_x, centre_y(t.box) - t.origin_y));
    const track_point p = track_reference_point(t);
    const int slot = (t.trail_start + t.trail_length) % TRACK_TRAIL;
    t.trail[slot] = p;
    if (t.trail_length < TRACK_TRAIL) ++t.trail_length;
    else t.trail_start = (t.trail_start + 1) % TRACK_TRAIL;

    for (size_t l = 0; l < lines_.size(); ++l) {
        // A member's place inside its group is a guess; the group's blob is
        // not: while the blob straddles the line, the member's side stays
        // undecided, so a member pulled to the blob's edge does not cross.
        if (t.group >= 0 && !on_one_side(lines_[l], of_box(dets_[static_cast<size_t>(t.group)].bbox))) continue;
        const int dir = line_step(lines_[l], t.line_side[l], p.x, p.y);
        if (!dir) continue;
        if (t.state == TRACK_TENTATIVE) {
            t.pending_crossing[l] = static_cast<int8_t>(dir);
            continue;
        }
        (dir == LINE_IN ? lines_[l].count_in : lines_[l].count_out)++;
        emit(t, TRACK_EVENT_LINE, static_cast<int>(l), dir, 0);
    }
    if (t.state != TRACK_TENTATIVE) {
        update_zones(t);
    } else if (t.hits >= params_.confirm_hits && (!params_.suppress_ghosts || t.moved >= params_.ghost_distance)) {
        confirm(t);
    }
}

void MV_tracker::update_zones(track& t)
{
    const track_point p = track_reference_point(t);
    for (size_t z = 0; z < zones_.size(); ++z) {
        const bool in = zone_contains(zones_[z], p.x, p.y);
        if (in == static_cast<bool>(t.in_zone[z])) continue;
        t.in_zone[z] = in;
        if (in) {
            t.zone_since[z] = frame_;
            ++zones_[z].inside;
            ++zones_[z].entries;
            emit(t, TRACK_EVENT_ZONE_ENTER, static_cast<int>(z), 0, 0);
        } else {
            --zones_[z].inside;
            ++zones_[z].exits;
            emit(t, TRACK_EVENT_ZONE_EXIT, static_cast<int>(z), 0, frame_ - t.zone_since[z]);
        }
    }
}

void MV_tracker::confirm(track& t)
{
    t.state = TRACK_CONFIRMED;
    t.id = next_id_++;
    emit(t, TRACK_EVENT_START, -1, 0, 0);
    for (size_t l = 0; l < lines_.size(); ++l) {
        const int dir = t.pending_crossing[l];
        if (!dir) continue;
        t.pending_crossing[l] = 0;
        (dir == LINE_IN ? lines_[l].count_in : lines_[l].count_out)++;
        emit(t, TRACK_EVENT_LINE, static_cast<int>(l), dir, 0);
    }
    update_zones(t);  // now that it has an identity
}

void MV_tracker::end(track& t)
{
    for (size_t z = 0; z < zones_.size(); ++z) {
        if (!t.in_zone[z]) continue;
        t.in_zone[z] = 0;
        --zones_[z].inside;
        ++zones_[z].exits;
        emit(t, TRACK_EVENT_ZONE_EXIT, static_cast<int>(z), 0, frame_ - t.zone_since[z]);
    }
    t.state = TRACK_ENDED;
    emit(t, TRACK_EVENT_END, -1, 0, 0);
}

void MV_tracker::emit(const track& t, track_event_t kind, int index, int direction, int64_t dwell)
{
    if (events_.size() == events_.capacity()) {
        ++overflows_;
        return;
    }
    events_.push_back({kind, t.id, frame_, index, direction, dwell, track_reference_point(t)});
}

blob_occl_type MV_tracker::border_flags(double x0, double y0, double x1, double y1) const
{
    if (params_.frame_width <= 0 || params_.frame_height <= 0) return MM_OCCL_NONE;
    const double m = params_.border_margin;
    uint32_t f = 0;
    if (x0 <= m) f |= MM_CAM_OCCL_LEFT;
    if (x1 >= params_.frame_width - m) f |= MM_CAM_OCCL_RIGHT;
    if (y0 <= m) f |= MM_CAM_OCCL_TOP;
    if (y1 >= params_.frame_height - m) f |= MM_CAM_OCCL_BOTTOM;
    return static_cast<blob_occl_type>(f);
}

}  // namespace nerva
