#pragma once

#include <cstdint>
#include <vector>

#include "nerva/blob/RLEblob.h"
#include "nerva/blob/blob.h"
#include "nerva/geometry/rectangle.h"
#include "nerva/tracking/counting.h"

// Tracks over the blobs of consecutive frames: persistent identities, boxes
// and velocities, and the events and counts of the lines and zones the host
// draws.
//
// Background subtraction does not hand over one blob per object: people who
// walk close together come out as one blob, a person can break into
// fragments, and objects vanish behind others or at the border. The tracker
// keeps every member of a merged blob alive on its own predicted box (the
// blob becomes their group), unites the fragments of one object into one
// box, lets a track coast through misses before ending it, and holds back
// objects that never move (ghosts the background model left behind).
//
// Everything is allocated when the tracker is made: an update allocates
// nothing, so a host can run it in the same steady state as segmentation.
// Capacities that are exceeded drop the excess (tracks, detections, events)
// and are counted in `overflows`.
namespace nerva {

enum track_state_t : int32_t {
    TRACK_TENTATIVE = 0,  // seen for fewer than confirm_hits frames (or has not moved yet); no identity
    TRACK_CONFIRMED = 1,  // has an identity and a blob (or a group) this frame
    TRACK_COASTING = 2,   // confirmed, no blob this frame; its box is the prediction
    TRACK_ENDED = 3,      // ended this frame; gone at the next update
};

constexpr int TRACK_MAX_BLOBS = 8;  // fragments one track can own in a frame
constexpr int TRACK_TRAIL = 32;     // reference points remembered for drawing

struct tracker_params {
    int frame_width = 0;  // for border contact; 0 = unknown, no border handling
    int frame_height = 0;
    int max_tracks = 256;
    int max_detections = 2000;
    int max_events = 1024;  // per frame

    int confirm_hits = 3;      // consecutive frames with a blob before a track gets its identity
    int max_coast = 12;        // frames a confirmed track survives without a blob
    int max_coast_border = 2;  // the same when its box touches the frame border
    // A track that had stopped when its blob went (slower than still_speed,
    // pixels per frame) stays where it stood this long, and is shown: the
    // background model takes in whoever stands still, so the blob fades
    // while the person is still there.
    int max_coast_still = 150;
    double still_speed = 0.4;
    double match_iou = 0.15;      // least overlap of a predicted box and a blob to match one to one
    double group_cover = 0.45;    // share of a track's predicted box inside a blob to be a member of it
    double fragment_cover = 0.6;  // share of a blob inside a track's predicted box to be its fragment
    double position_gain = 0.6;   // how far a box moves from its prediction toward its blob
    double velocity_gain = 0.2;
    double size_gain = 0.3;            // toward a larger blob
    double shrink_gain = 0.3;          // toward a smaller one
    double duplicate_cover = 0.7;      // share of a group member's box inside an older member's
    double piece_aspect = 2.0;         // height over width of a box that may be a piece of an upright person
    int duplicate_frames = 3;          // consecutive frames of that before the younger one ends
    double group_velocity_gain = 0.1;  // members of a group follow the blob's edges more cautiously
    int border_margin = 2;             // pixels from the edge that count as touching it

    // A track must move this far (pixels, box centre) from where it appeared
    // before it is confirmed: the background model's ghosts never move.
    bool suppress_ghosts = true;
    double ghost_distance = 8.0;
};

struct track_point {
    double x, y;
};

struct track {
    int32_t id;  // from 1 in order of confirmation; 0 while tentative
    track_state_t state;
    frectangle box;                   // inclusive bounds, like a blob's
    double vx, vy;                    // box centre, pixels per frame
    int32_t age;                      // frames since the track appeared
    int32_t hits;                     // frames with a blob or a group
    int32_t misses;                   // consecutive frames without either
    bool still;                       // coasting where it stopped (see max_coast_still)
    int64_t first_frame, last_frame;  // last frame with a blob or a group
    blob_occl_type occlusion;         // MM_CAM_OCCL_* at the border, MM_DYN_OCCL_* beside the other members
                                      // of a group, MM_TOTAL_OCCLUSION while coasting,
                                      // MM_PARTIAL_DETECTION when made of fragments
    int32_t group;                    // index of the blob it shares with other tracks this frame, -1 when alone
    int32_t nblobs;                   // blobs owned this frame (their ident)
    int32_t blobs[TRACK_MAX_BLOBS];
    int32_t trail_length;  // last reference points, oldest first from trail_start
    int32_t trail_start;
    track_point trail[TRACK_TRAIL];
    int32_t covered;                   // consecutive frames inside an older track's box in a group
    double origin_x, origin_y, moved;  // where it appeared and the farthest it has been from there
    // Per line: last side beyond the hysteresis band (0 unknown) and a
    // crossing made before confirmation (reported on confirmation).
    int8_t line_side[TRACKER_MAX_LINES];
    int8_t pending_crossing[TRACKER_MAX_LINES];
    int8_t in_zone[TRACKER_MAX_ZONES];
    int64_t zone_since[TRACKER_MAX_ZONES];
};

// Whether a host shows the track this frame: confirmed, or coasting where it
// stopped.
bool track_shown(const track& t);

// Where a track is for lines and zones: the middle of its box's bottom edge,
// where a person or a vehicle meets the ground.
track_point track_reference_point(const track& t);

enum track_event_t : int32_t {
    TRACK_EVENT_START = 0,  // a track got its identity
    TRACK_EVENT_END = 1,
    TRACK_EVENT_LINE = 2,  // crossed line `index` in `direction`
    TRACK_EVENT_ZONE_ENTER = 3,
    TRACK_EVENT_ZONE_EXIT = 4,  // `dwell`: frames spent inside
};

struct track_event {
    track_event_t kind;
    int32_t track_id;
    int64_t frame;
    int32_t index;      // line or zone, -1 otherwise
    int32_t direction;  // LINE_IN / LINE_OUT for lines, 0 otherwise
    int64_t dwell;
    track_point where;  // reference point
};

// "tentative", "confirmed", "coasting", "ended"; and "start", "end",
// "line", "enter", "exit": the names the program and the Python package use.
const char* get_track_state_name(track_state_t state);
const char* get_track_event_name(track_event_t kind);

// One object's detection: a blob's box, identifier and size.
struct track_detection {
    rectangle bbox;
    int32_t ident;
    int32_t npix;
};

class MV_tracker {
public:
    explicit MV_tracker(const tracker_params& params = tracker_params());

    // Lines and zones are added before the first update; the index is
    // returned, or -1 when full or the geometry is unusable (a line of zero
    // length, a zone of fewer than three or more than ZONE_MAX_POINTS points).
    int add_line(const char* name, double x1, double y1, double x2, double y2, double hysteresis = 4.0);
    int add_zone(const char* name, const track_point* points, int count);

    // One frame's detections, in any order; frames are expected in
    // increasing order. Returns the number of tracks.
    int update(const track_detection* detections, int count, int64_t frame);
    // The same from a segmenter's blob list. Blobs shared by several tracks
    // become A_GROUP; blobs touching the border get the MM_CAM_OCCL_* flags
    // of the sides they touch.
    int update(const blob_ptr& head, int64_t frame);

    // Tracks alive this frame, and those ended by it; tentative ones included.
    int track_count() const { return static_cast<int>(tracks_.size()); }
    const track& track_at(int i) const { return tracks_[static_cast<size_t>(i)]; }
    // The identity of the confirmed track owning detection i of the last
    // update (several own a group: the first), 0 when none does.
    int32_t detection_track(int i) const { return det_owner_[static_cast<size_t>(i)]; }
    // This frame's events, in the order they happened.
    int event_count() const { return static_cast<int>(events_.size()); }
    const track_event& event_at(int i) const { return events_[static_cast<size_t>(i)]; }

    int line_count() const { return static_cast<int>(lines_.size()); }
    const count_line& line_at(int i) const { return lines_[static_cast<size_t>(i)]; }
    int zone_count() const { return static_cast<int>(zones_.size()); }
    const count_zone& zone_at(int i) const { return zones_[static_cast<size_t>(i)]; }

    const tracker_params& params() const { return params_; }
    int64_t overflows() const { return overflows_; }

private:
    void predict();
    void form_groups(int ndet);
    void drop_duplicates(int d);
    void match_one_to_one(int ndet);
    void attach_fragments(int ndet);
    void correct(track& t);
    void hold_in_group(track& t);
    void found(track& t);
    void miss(track& t);
    void start_tracks(int ndet);
    void observe(track& t);
    void update_zones(track& t);
    void confirm(track& t);
    void end(track& t);
    void emit(const track& t, track_event_t kind, int index, int direction, int64_t dwell);
    blob_occl_type border_flags(double xmin, double ymin, double xmax, double ymax) const;

    tracker_params params_;
    std::vector<track> tracks_;
    std::vector<track_detection> dets_;
    std::vector<int32_t> det_first_;  // first track (index) owning each detection, -1 none
    std::vector<int32_t> det_owner_;  // identity for the host
    std::vector<int32_t> det_members_;
    std::vector<uint8_t> assigned_;  // per track: 0 none, 1 blob(s), 2 group
    std::vector<track_event> events_;
    std::vector<count_line> lines_;
    std::vector<count_zone> zones_;
    int64_t frame_ = 0;
    int32_t next_id_ = 1;
    int64_t overflows_ = 0;
};

}  // namespace nerva
