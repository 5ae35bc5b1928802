// The tracker on constructed scenes: what background subtraction does to
// walking people (merges, fragments, misses, ghosts, the frame border) and
// the counts a host reads.
#include <gtest/gtest.h>

#include <vector>

#include "nerva/nerva.h"

namespace {

using nerva::track_detection;

// A person-sized blob whose box's bottom centre is at (x, bottom).
track_detection person(double x, double bottom, int w = 20, int h = 50, int ident = 0)
{
    const int xmin = static_cast<int>(x) - w / 2, ymin = static_cast<int>(bottom) - h;
    return {{xmin, ymin, xmin + w - 1, ymin + h - 1, w, h}, ident, w * h};
}

// The smallest box holding a and b, as one blob.
track_detection merged(track_detection a, const track_detection& b)
{
    nerva::absorb_rectangle(&a.bbox, &b.bbox);
    return {a.bbox, 0, a.npix + b.npix};
}

class Scene {
public:
    explicit Scene(nerva::tracker_params p = params()) : tracker(p) {}

    static nerva::tracker_params params()
    {
        nerva::tracker_params p;
        p.frame_width = 640;
        p.frame_height = 480;
        return p;
    }

    void step(std::vector<track_detection> dets)
    {
        for (size_t i = 0; i < dets.size(); ++i) dets[i].ident = static_cast<int>(i);
        tracker.update(dets.data(), static_cast<int>(dets.size()), frame++);
    }

    // Identity of the confirmed or coasting track nearest to x (box centre), 0 if none.
    int id_near(double x) const
    {
        int id = 0;
        double best = 1e9;
        for (int i = 0; i < tracker.track_count(); ++i) {
            const nerva::track& t = tracker.track_at(i);
            if (t.id == 0 || t.state == nerva::TRACK_ENDED) continue;
            const double d = std::abs(t.box.xmin + t.box.width / 2 - x);
            if (d < best) {
                best = d;
                id = t.id;
            }
        }
        return id;
    }

    const nerva::track* find(int id) const
    {
        for (int i = 0; i < tracker.track_count(); ++i)
            if (tracker.track_at(i).id == id) return &tracker.track_at(i);
        return nullptr;
    }

    int identified() const
    {
        int n = 0;
        for (int i = 0; i < tracker.track_count(); ++i) n += tracker.track_at(i).id != 0;
        return n;
    }

    int events(nerva::track_event_t kind) const
    {
        int n = 0;
        for (int i = 0; i < tracker.event_count(); ++i) n += tracker.event_at(i).kind == kind;
        return n;
    }

    nerva::MV_tracker tracker;
    int64_t frame = 0;
};

TEST(Tracker, AGroupKeepsItsMembersAndTheyLeaveWithTheirOwnIdentities)
{
    Scene s;
    // Two people converge, walk together as one blob, then part.
    int a = 0, b = 0;
    for (int f = 0; f < 60; ++f) {
        const double ya = 300 + 2 * f;
        const double gap = f < 20 ? 60 - 2 * f : (f < 40 ? 20 : 20 + 3 * (f - 40));
        const track_detection da = person(200 + 3 * f, ya), db = person(200 + 3 * f + gap, ya);
        if (f >= 20 && f < 40) s.step({merged(da, db)});
        else s.step({da, db});
        if (f == 10) {
            a = s.id_near(200 + 3 * f);
            b = s.id_near(200 + 3 * f + gap);
        }
        if (f == 30) {
            const nerva::track* ta = s.find(a);
            ASSERT_NE(ta, nullptr);
            EXPECT_EQ(ta->state, nerva::TRACK_CONFIRMED);
            EXPECT_GE(ta->group, 0);
            EXPECT_EQ(ta->occlusion, nerva::MM_DYN_OCCL_RIGHT);  // b walks on its right
            EXPECT_EQ(s.tracker.detection_track(0), a);
        }
    }
    ASSERT_NE(a, b);
    EXPECT_EQ(s.id_near(200 + 3 * 59), a);
    EXPECT_EQ(s.id_near(200 + 3 * 59 + 77), b);
    EXPECT_EQ(s.identified(), 2);
}

TEST(Tracker, FragmentsOfOneObjectMakeOneBox)
{
    Scene s;
    for (int f = 0; f < 10; ++f) s.step({person(100 + 4 * f, 300, 20, 60)});
    const int id = s.id_near(136);
    // The body now comes out in two pieces: head and torso, legs.
    for (int f = 10; f < 15; ++f) {
        const track_detection whole = person(100 + 4 * f, 300, 20, 60);
        track_detection top = whole, bottom = whole;
        top.bbox.ymax = whole.bbox.ymin + 29;
        top.bbox.height = 30;
        bottom.bbox.ymin = whole.bbox.ymin + 34;
        bottom.bbox.height = whole.bbox.ymax - bottom.bbox.ymin + 1;
        s.step({top, bottom});
    }
    EXPECT_EQ(s.identified(), 1);
    const nerva::track* t = s.find(id);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->nblobs, 2);
    EXPECT_EQ(t->occlusion, nerva::MM_PARTIAL_DETECTION);
    EXPECT_NEAR(t->box.height, 60.0, 1.0);
}

// Background subtraction often cuts a person at the belt: the upper body
// and the legs make one track from the start. Whole people, one behind the
// other, are not pieces of one.
TEST(Tracker, APersonInTwoPiecesIsOneTrackAndPeopleOneAboveTheOtherAreTwo)
{
    Scene pieces, people;
    for (int f = 0; f < 10; ++f) {
        pieces.step({person(100 + 4 * f, 245, 22, 35), person(100 + 4 * f, 280, 22, 30)});
        people.step({person(100 + 4 * f, 250), person(100 + 4 * f, 302)});
    }
    EXPECT_EQ(pieces.identified(), 1);
    EXPECT_NEAR(pieces.tracker.track_at(0).box.height, 70.0, 1.0);  // from the top of one to the bottom of the other
    EXPECT_EQ(people.identified(), 2);
}

// Two tracks on the pieces of one person, glued into one blob again, give
// way to the older one.
TEST(Tracker, TwoPiecesOfOnePersonInOneBlobBecomeOneTrack)
{
    Scene s;
    const auto top = [](int f) { return person(100 + 4 * f, 240, 22, 30); };
    const auto legs = [](int f) { return person(100 + 4 * f, 300, 22, 30); };
    for (int f = 0; f < 10; ++f) s.step({top(f), legs(f)});
    ASSERT_EQ(s.identified(), 2);
    for (int f = 10; f < 20; ++f) s.step({merged(top(f), legs(f))});
    EXPECT_EQ(s.identified(), 1);
}

// The background model takes in whoever stands still: the blob fades while
// the person is still there.
TEST(Tracker, ATrackLostWhereItStoodStaysShownThere)
{
    Scene s;
    double x = 100;
    for (int f = 0; f < 30; ++f) s.step({person(x += f < 15 ? 4 : 0, 300)});
    for (int f = 0; f < 3 * Scene::params().max_coast; ++f) s.step({});
    ASSERT_EQ(s.tracker.track_count(), 1);
    EXPECT_EQ(s.tracker.track_at(0).state, nerva::TRACK_COASTING);
    EXPECT_TRUE(nerva::track_shown(s.tracker.track_at(0)));
    EXPECT_NEAR(s.tracker.track_at(0).box.xmin + 10, x, 2.0);
    for (int f = 0; f < 5; ++f) s.step({person(x += 4, 300)});
    EXPECT_EQ(s.id_near(x), 1);
}

TEST(Tracker, AShortMissIsCoastedThrough)
{
    Scene s;
    for (int f = 0; f < 10; ++f) s.step({person(100 + 4 * f, 300)});
    for (int f = 10; f < 14; ++f) s.step({});
    EXPECT_EQ(s.tracker.track_at(0).state, nerva::TRACK_COASTING);
    EXPECT_EQ(s.tracker.track_at(0).occlusion, nerva::MM_TOTAL_OCCLUSION);
    EXPECT_FALSE(nerva::track_shown(s.tracker.track_at(0))) << "lost in motion";
    EXPECT_NEAR(s.tracker.track_at(0).box.xmin + 10, 100 + 4 * 13, 2.0);  // carried on by its velocity
    s.step({person(100 + 4 * 14, 300)});
    EXPECT_EQ(s.tracker.track_at(0).state, nerva::TRACK_CONFIRMED);
    EXPECT_EQ(s.tracker.track_at(0).id, 1);
}

TEST(Tracker, ALongMissEndsTheTrackOnce)
{
    Scene s;
    for (int f = 0; f < 10; ++f) s.step({person(100 + 4 * f, 300)});
    int ends = 0;
    for (int f = 0; f <= Scene::params().max_coast; ++f) {
        s.step({});
        ends += s.events(nerva::TRACK_EVENT_END);
    }
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(s.tracker.track_at(0).state, nerva::TRACK_ENDED);
    s.step({});
    EXPECT_EQ(s.tracker.track_count(), 0);
}

TEST(Tracker, AGhostThatNeverMovesIsConfirmedOnlyWithoutGhostSuppression)
{
    nerva::tracker_params p = Scene::params();
    p.suppress_ghosts = false;
    Scene s, unsuppressed(p);
    for (int f = 0; f < 50; ++f) {
        s.step({person(200, 300)});
        unsuppressed.step({person(200, 300)});
    }
    EXPECT_EQ(s.identified(), 0);
    EXPECT_EQ(s.tracker.track_count(), 1);
    EXPECT_EQ(unsuppressed.identified(), 1);
}

TEST(Tracker, BorderContactIsFlaggedAndEndsTheTrackSooner)
{
    Scene s;
    // Enters from the left edge, walks to the right edge and out.
    s.step({person(5, 300)});
    EXPECT_EQ(s.tracker.track_at(0).occlusion, nerva::MM_CAM_OCCL_LEFT);
    int f = 1;
    for (double x = 10; x < 640; x += 8, ++f) s.step({person(x, 300)});
    EXPECT_EQ(s.tracker.track_at(0).occlusion, nerva::MM_CAM_OCCL_RIGHT);
    int misses = 0;
    while (s.tracker.track_count() > 0 && s.tracker.track_at(0).state != nerva::TRACK_ENDED) {
        s.step({});
        ++misses;
    }
    EXPECT_EQ(misses, Scene::params().max_coast_border + 1);
}

TEST(Tracker, BlobListUpdateMarksGroupsAndBorderContact)
{
    nerva::MV_tracker tracker(Scene::params());
    auto blob = [](const track_detection& d) {
        nerva::blob_ptr b = nerva::blob_new();
        b->bbox = d.bbox;
        b->npix = d.npix;
        return b;
    };
    for (int f = 0; f < 8; ++f) {
        nerva::blob_ptr a = blob(person(100 + 4 * f, 300)), b = blob(person(160 - 4 * f, 300));
        a->next = b;
        tracker.update(a, f);
        a->next.reset();
    }
    nerva::blob_ptr group = blob(merged(person(132, 300), person(128, 300)));
    nerva::blob_ptr edge = blob(person(8, 200));
    group->next = edge;
    tracker.update(group, 8);
    EXPECT_EQ(group->type, nerva::A_GROUP);
    EXPECT_EQ(edge->occlusion, nerva::MM_CAM_OCCL_LEFT);
    EXPECT_EQ(edge->type, nerva::UNKNOWN);
    group->next.reset();
}

TEST(Tracker, OverflowingTheTrackCapacityIsCountedNotFatal)
{
    nerva::tracker_params p = Scene::params();
    p.max_tracks = 2;
    Scene s(p);
    s.step({person(100, 300), person(200, 300), person(300, 300)});
    EXPECT_EQ(s.tracker.track_count(), 2);
    EXPECT_EQ(s.tracker.overflows(), 1);
}

class Counting : public ::testing::Test {
protected:
    Counting() { line = s.tracker.add_line("door", 300, 100, 300, 400); }

    Scene s;
    int line;
};

// Left to right across a line drawn downwards: from its right-hand side to
// its left-hand side, seen along the line, which counts out.
TEST_F(Counting, JitterOnTheLineCountsOnceInItsDirection)
{
    for (int f = 0; f < 20; ++f) s.step({person(260 + 2 * f, 300)});  // up to the line
    for (int f = 0; f < 20; ++f) s.step({person(f % 2 ? 297 : 303, 300)});
    for (int f = 0; f < 20; ++f) s.step({person(302 + 3 * f, 300)});  // and away
    EXPECT_EQ(s.tracker.line_at(line).count_out, 1);
    EXPECT_EQ(s.tracker.line_at(line).count_in, 0);
}

TEST_F(Counting, ACrossingBackCountsTheOtherWay)
{
    for (int f = 0; f < 30; ++f) s.step({person(250 + 5 * f, 300)});
    for (int f = 0; f < 30; ++f) s.step({person(395 - 5 * f, 300)});
    EXPECT_EQ(s.tracker.line_at(line).count_out, 1);
    EXPECT_EQ(s.tracker.line_at(line).count_in, 1);
}

TEST_F(Counting, APassageBeyondTheLinesEndDoesNotCount)
{
    for (int f = 0; f < 40; ++f) s.step({person(200 + 5 * f, 450)});  // below the line's end (y 400)
    EXPECT_EQ(s.tracker.line_at(line).count_out, 0);
}

TEST_F(Counting, ACrossingBeforeConfirmationIsReportedWithIt)
{
    s.step({person(295, 300, 40)});
    s.step({person(311, 300, 40)});  // crossed while tentative
    EXPECT_EQ(s.events(nerva::TRACK_EVENT_LINE), 0);
    s.step({person(327, 300, 40)});
    EXPECT_EQ(s.events(nerva::TRACK_EVENT_LINE), 1);
    EXPECT_EQ(s.tracker.line_at(line).count_out, 1);
}

// Counted once the whole group's blob is past the line.
TEST_F(Counting, AGroupThatCrossesCountsEachMember)
{
    const auto a = [](int f) { return person(160 + 5 * f, 300); };
    const auto b = [](int f) { return person(200 + 5 * f, 300); };
    for (int f = 0; f < 50; ++f) {
        if (f < 12 || f >= 36) s.step({a(f), b(f)});
        else s.step({merged(a(f), b(f))});  // across the line together
    }
    EXPECT_EQ(s.tracker.line_at(line).count_out, 2);
}

TEST(Zones, EnterExitAndDwell)
{
    Scene s;
    const nerva::track_point square[] = {{200, 200}, {300, 200}, {300, 400}, {200, 400}};
    const int zone = s.tracker.add_zone("square", square, 4);
    int enters = 0, exits = 0;
    int64_t dwell = -1;
    for (int f = 0; f < 60; ++f) {
        s.step({person(150 + 5 * f, 300)});
        enters += s.events(nerva::TRACK_EVENT_ZONE_ENTER);
        for (int i = 0; i < s.tracker.event_count(); ++i)
            if (s.tracker.event_at(i).kind == nerva::TRACK_EVENT_ZONE_EXIT) {
                ++exits;
                dwell = s.tracker.event_at(i).dwell;
            }
        if (f == 20) {
            EXPECT_EQ(s.tracker.zone_at(zone).inside, 1);
        }
    }
    EXPECT_EQ(enters, 1);
    EXPECT_EQ(exits, 1);
    EXPECT_NEAR(static_cast<double>(dwell), 20.0, 1.0);  // 100 px at 5 px a frame
    EXPECT_EQ(s.tracker.zone_at(zone).inside, 0);
}

}  // namespace
