#pragma once

#include <string>
#include <vector>

// CLEAR MOT and IDF1 scores of tracker output against ground truth, both in
// the MOT Challenge's terms: boxes by frame and identity, matched at an
// intersection over union of at least 0.5.

struct MotBox {
    int frame = 0;  // from 1
    int id = 0;
    double x = 0, y = 0, w = 0, h = 0;  // top-left corner and size, pixels
};

// Rows of a MOT Challenge text file (frame,id,left,top,width,height,conf,...)
// with frames first_frame..last_frame. Ground truth drops its conf-0 rows
// (people the evaluation ignores): a hypothesis there is a false positive.
std::vector<MotBox> read_mot_file(const std::string& path, int first_frame, int last_frame, bool drop_conf0);

double box_iou(const MotBox& a, const MotBox& b);

struct MotScores {
    long gt_boxes = 0, hyp_boxes = 0;
    long matches = 0, fp = 0, fn = 0, idsw = 0, frag = 0;
    int gt_tracks = 0, mostly_tracked = 0, partly_tracked = 0, mostly_lost = 0;
    long idtp = 0, idfp = 0, idfn = 0;
    double mota = 0, motp = 0, idf1 = 0;  // percentages; MOTP is the mean IoU of the matches
};

// Frame by frame: a ground-truth box keeps its previous hypothesis while
// they still overlap enough, the rest are assigned at the least total
// 1 - IoU; a ground-truth identity matched to another hypothesis than at its
// last match is an identity switch, and a match after a gap in its matches
// a fragmentation. IDF1 matches identities once for the whole sequence.
MotScores evaluate_mot(const std::vector<MotBox>& truth, const std::vector<MotBox>& hypotheses);

// Per-error detail of the same evaluation, for explaining a score.
struct MotError {
    enum Kind { false_positive, miss, switch_ } kind;
    int frame;
    int gt_id;   // -1 for a false positive
    int hyp_id;  // -1 for a miss
};
std::vector<MotError> mot_errors(const std::vector<MotBox>& truth, const std::vector<MotBox>& hypotheses);
