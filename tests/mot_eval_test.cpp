// The tracking benchmark's evaluator on constructed cases whose scores can
// be counted by hand.
#include <gtest/gtest.h>

#include <vector>

#include "assignment.h"
#include "mot_eval.h"

namespace {

// Two people walking right for `frames` frames, 40 px apart vertically.
std::vector<MotBox> two_walkers(int frames)
{
    std::vector<MotBox> boxes;
    for (int f = 1; f <= frames; ++f) {
        boxes.push_back({f, 1, 10.0 + 5 * f, 100, 30, 80});
        boxes.push_back({f, 2, 10.0 + 5 * f, 300, 30, 80});
    }
    return boxes;
}

TEST(MinCostAssignment, TakesTheCheaperPairingOverTheGreedyOne)
{
    // Greedy would take (0,0)=1 and then pay 10 for (1,1).
    const std::vector<int> col = min_cost_assignment({1, 2, 3, 10}, 2, 2);
    EXPECT_EQ(col[0], 1);
    EXPECT_EQ(col[1], 0);
}

// Below half overlap a box is a miss and a false positive; above, a match at its IoU.
TEST(MotEvaluation, HalfOverlapDecidesAMatch)
{
    const std::vector<MotBox> gt = two_walkers(4);
    std::vector<MotBox> hyp = gt;
    hyp[0].x += 20;  // 10 of 30 columns shared: IoU 0.2
    const MotScores below = evaluate_mot(gt, hyp);
    EXPECT_EQ(below.fn, 1);
    EXPECT_EQ(below.fp, 1);
    EXPECT_DOUBLE_EQ(below.mota, 100.0 * (1.0 - 2.0 / 8.0));
    const MotScores above = evaluate_mot({{1, 1, 0, 0, 30, 80}}, {{1, 7, 5, 0, 30, 80}});  // IoU 25/35
    EXPECT_EQ(above.matches, 1);
    EXPECT_NEAR(above.motp, 100.0 * 25.0 / 35.0, 1e-9);
}

TEST(MotEvaluation, DroppedHypothesesAreMissesAndAGapIsAFragmentation)
{
    const std::vector<MotBox> gt = two_walkers(10);
    std::vector<MotBox> hyp;
    for (const MotBox& b : gt)
        if (!(b.id == 1 && b.frame >= 4 && b.frame <= 6)) hyp.push_back(b);
    const MotScores s = evaluate_mot(gt, hyp);
    EXPECT_EQ(s.fn, 3);
    EXPECT_EQ(s.fp, 0);
    EXPECT_EQ(s.frag, 1);
    EXPECT_EQ(s.idsw, 0);
}

TEST(MotEvaluation, SwappedIdentitiesCountASwitchForEachPerson)
{
    const std::vector<MotBox> gt = two_walkers(10);
    std::vector<MotBox> hyp = gt;
    for (MotBox& b : hyp)
        if (b.frame > 6) b.id = 3 - b.id;
    const MotScores s = evaluate_mot(gt, hyp);
    EXPECT_EQ(s.idsw, 2);
    EXPECT_DOUBLE_EQ(s.mota, 100.0 * (1.0 - 2.0 / 20.0));
    // Each identity keeps its first six frames: IDTP 12 of 20 + 20.
    EXPECT_EQ(s.idtp, 12);
    EXPECT_DOUBLE_EQ(s.idf1, 100.0 * 24.0 / 40.0);
}

}  // namespace
