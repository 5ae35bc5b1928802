// A few fuzzer-made frames through one segmenter: any region of interest, steps
// and size filter, wide frames, combs, strided views, and an observer that
// meddles. Checks: the list ends, refused frames give nothing, and in exact
// mode boxes stay inside, pixels add up to the runs and, over the whole frame
// unfiltered, the blobs are OpenCV's 4-connected components.
#include <fuzzer/FuzzedDataProvider.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "fuzz_check.h"
#include "nerva/nerva.h"

using namespace nerva;

namespace {

constexpr int kMaxSide = 96;
constexpr int kMaxWide = 1100;  // wide frames are at most kMaxWideRows high
constexpr int kMaxWideRows = 6;
constexpr int kBlobSlots = 2000;

// Random at a density, a few spans in empty rows (long skips), a comb, or the
// input's bits; sometimes a view of a larger all-foreground matrix, so a read
// outside the view shows as wrong blobs, outside the matrix as an ASan report.
cv::Mat make_mask(FuzzedDataProvider& in, int width, int height, cv::Mat& storage)
{
    const int pad = in.ConsumeBool() ? 3 : 0;
    const int row_step = in.ConsumeIntegralInRange(0, 3) == 0 ? 2 : 1;
    storage.create(row_step * (height + 2 * pad), width + 2 * pad, CV_8UC1);
    storage.setTo(255);
    cv::Mat mask(height, width, CV_8UC1, storage.ptr(row_step * pad) + pad, storage.step[0] * row_step);
    mask.setTo(0);
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: {
        std::mt19937 rng(in.ConsumeIntegral<uint32_t>());
        const unsigned density = in.ConsumeIntegralInRange<unsigned>(0, 100);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) mask.at<uint8_t>(y, x) = (rng() % 100 < density) ? 1 + rng() % 255 : 0;
        break;
    }
    case 1: {
        const int spans = in.ConsumeIntegralInRange(0, 12);
        for (int i = 0; i < spans; ++i) {
            const int y = in.ConsumeIntegralInRange(0, height - 1), x = in.ConsumeIntegralInRange(0, width - 1);
            const int len = in.ConsumeIntegralInRange(1, std::min(300, width - x));
            mask(cv::Rect(x, y, len, 1)).setTo(in.ConsumeIntegralInRange(1, 255));
        }
        break;
    }
    case 2: {  // comb: every `gap`-th column a stripe, a bar along the top or bottom row
        const int gap = in.ConsumeIntegralInRange(2, 4);
        for (int x = in.ConsumeIntegralInRange(0, gap - 1); x < width; x += gap) mask.col(x).setTo(255);
        mask.row(in.ConsumeBool() ? height - 1 : 0).setTo(255);
        break;
    }
    default:
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; x += 8) {
                const uint8_t bits = in.ConsumeIntegral<uint8_t>();
                for (int k = 0; k < 8 && x + k < width; ++k) mask.at<uint8_t>(y, x + k) = (bits >> k) & 1 ? 255 : 0;
            }
    }
    return mask;
}

struct Roi {
    int xmin, ymin, xmax, ymax;
};

Roi make_roi(FuzzedDataProvider& in, int width, int height)
{
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: return {0, 0, width - 1, height - 1};
    case 1: {  // inside
        const int x0 = in.ConsumeIntegralInRange(0, width - 1), y0 = in.ConsumeIntegralInRange(0, height - 1);
        return {x0, y0, in.ConsumeIntegralInRange(x0, width - 1), in.ConsumeIntegralInRange(y0, height - 1)};
    }
    case 2: {  // anywhere near the frame, possibly inverted
        auto coord = [&](int side) { return in.ConsumeIntegralInRange(-8, side + 8); };
        return {coord(width), coord(height), coord(width), coord(height)};  // braces: evaluated in order
    }
    default:  // far away
        auto far = [&] { return in.ConsumeIntegral<int32_t>(); };
        return {far(), far(), far(), far()};
    }
}

using Record = std::tuple<int, int, int, int, int>;  // npix, xmin, ymin, width, height

void check_against_opencv(const cv::Mat& mask, const RLEblob* head)
{
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(mask != 0, labels, stats, centroids, 4, CV_32S);
    if (n - 1 > kBlobSlots) return;  // the pool's last blob is reused: no one-to-one list
    std::vector<Record> expected, got;
    for (int l = 1; l < n; ++l) {
        const int* st = stats.ptr<int>(l);
        expected.emplace_back(st[cv::CC_STAT_AREA], st[cv::CC_STAT_LEFT], st[cv::CC_STAT_TOP], st[cv::CC_STAT_WIDTH],
                              st[cv::CC_STAT_HEIGHT]);
    }
    for (const RLEblob* b = head; b; b = b->next.get())
        got.emplace_back(b->npix, b->bbox.xmin, b->bbox.ymin, b->bbox.width, b->bbox.height);
    std::sort(expected.begin(), expected.end());
    std::sort(got.begin(), got.end());
    CHECK(expected == got);
}

void check_frame(const cv::Mat& mask, const segm_ptr& s, const Roi& roi, bool refused, const RLEblob* head)
{
    // The list ends, within the pool.
    int count = 0;
    for (const RLEblob* b = head; b; b = b->next.get()) CHECK(++count <= kBlobSlots);
    CHECK(!refused || !head);
    if (refused) return;
    CHECK(count == s->nb_blobs_cur);
    if (s->step_x != 1 || s->step_y != 1) return;

    const bool empty_roi = roi.xmin > roi.xmax || roi.ymin > roi.ymax;
    long runs = 0;
    if (!empty_roi)
        for (int y = roi.ymin; y <= roi.ymax; ++y) {
            const RLEline& line = *s->rle_img->lines[static_cast<size_t>(y)];
            for (int k = 0; k < line.nb_segs; ++k) {
                const segment& seg = *line.segs[k];
                CHECK(seg.x_start >= roi.xmin);
                CHECK(seg.x_end <= roi.xmax);
                CHECK(seg.x_start <= seg.x_end);
                runs += seg.x_end - seg.x_start + 1;
            }
        }
    if (!empty_roi)
        CHECK(runs ==
              cv::countNonZero(mask(cv::Rect(roi.xmin, roi.ymin, roi.xmax - roi.xmin + 1, roi.ymax - roi.ymin + 1))));
    CHECK(runs != 0 || !head);
    if (runs == 0) return;
    long npix = 0;
    const region* end = s->i2r->last ? s->i2r->last->next.get() : nullptr;
    for (const region* r = s->i2r->first.get(); r && r != end; r = r->next.get())
        if (!r->absorber) npix += r->npix;
    CHECK(npix == runs);

    for (const RLEblob* b = head; b; b = b->next.get()) {
        CHECK(b->bbox.xmin >= roi.xmin);
        CHECK(b->bbox.xmax <= roi.xmax);
        CHECK(b->bbox.ymin >= roi.ymin);
        CHECK(b->bbox.ymax <= roi.ymax);
        CHECK(b->bbox.width == b->bbox.xmax - b->bbox.xmin + 1);
        CHECK(b->bbox.height == b->bbox.ymax - b->bbox.ymin + 1);
        CHECK(b->npix >= 1);
        CHECK(b->npix <= b->bbox.width * b->bbox.height);
        CHECK(b->npix >= s->min_blob_pixels);
        CHECK(b->bbox.width >= s->min_blob_side);
        CHECK(b->bbox.height >= s->min_blob_side);
    }
    const bool whole = roi.xmin == 0 && roi.ymin == 0 && roi.xmax == mask.cols - 1 && roi.ymax == mask.rows - 1 &&
                       mask.cols == s->rle_img->width && mask.rows == static_cast<int>(s->rle_img->lines.size());
    if (whole && s->min_blob_pixels <= 1 && s->min_blob_side <= 1) check_against_opencv(mask, head);
}

// Subregion measures for any region number and rectangle; over the region of
// interest (rows outside it keep earlier runs: only the rows of interest are read) a surviving
// region's own sums come back.
void check_measures(FuzzedDataProvider& in, const segm_ptr& s, const Roi& roi, bool exact)
{
    const int asks = in.ConsumeIntegralInRange(0, 3);
    for (int a = 0; a < asks; ++a) {
        const int ident = in.ConsumeIntegralInRange(-2, s->nb_regs + 2);
        const bool anywhere = in.ConsumeBool();
        const auto coord = [&](int side) {
            return anywhere ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange(-8, side + 8);
        };
        const int x1 = coord(kMaxWide), y1 = coord(kMaxSide), x2 = coord(kMaxWide), y2 = coord(kMaxSide);
        double sx = 0, sy = 0;
        CHECK(subregion_get_sumxsumy(ident, x1, y1, x2, y2, &sx, &sy, s) >= 0);
        CHECK(subregion_get_sumx(ident, x1, y1, x2, y2, s) == sx);
        CHECK(subregion_get_sumy(ident, x1, y1, x2, y2, s) == sy);
        int lo = 0, hi = 0;
        CHECK(subregion_get_xlimit(ident, x1, y1, x2, y2, &lo, &hi, s) != 1 || (lo == x1 && hi == x2));
        lo = hi = 0;
        CHECK(subregion_get_ylimit(ident, x1, y1, x2, y2, &lo, &hi, s) != 1 || (y1 <= lo && lo <= hi && hi <= y2));

        const std::shared_ptr<region> r = RLEsegm_get_region(ident, s);
        if (exact && r && ident < s->nb_regs && !r->absorber) {
            const int whole = subregion_get_sumxsumy(ident, roi.xmin, roi.ymin, roi.xmax, roi.ymax, &sx, &sy, s);
            CHECK(whole == r->npix);
            CHECK(sx == r->sum_x);
            CHECK(sy == r->sum_y);
        }
    }
}

// Changes the segmenter from inside notify, as a host's observer might.
struct MeddlingObserver : Observer<CSegmentMessage> {
    enum Action { none, move_roi, change_steps, segment_again, free_private, remove_itself };
    Action action = none;
    Roi roi{};
    int step_x = 1, step_y = 1;
    segm_ptr shared;
    const cv::Mat* mask = nullptr;
    void notify(CSegmentMessage* msg) override
    {
        CHECK(msg->type == 1);
        CHECK(msg->arg1 == -1);
        CHECK(msg->arg2 == -1);
        switch (action) {
        case move_roi: RLEsegm_set_ROI(roi.xmin, roi.ymin, roi.xmax, roi.ymax, shared); break;
        case change_steps: RLEsegm_set_steps(shared, step_x, step_y); break;
        case segment_again: CHECK(RLEsegm_segmentKAP(*mask, shared) == nullptr); break;
        case free_private: RLEsegm_free_private(shared); break;
        case remove_itself: shared->remove_observer(this); break;
        case none: break;
        }
    }
};

// RLEsegm_init_privateKAP's work with small pools: the default 150000
// records would make the fuzzer crawl, and small pools grow mid-frame.
void initialise(FuzzedDataProvider& in, const segm_ptr& s, int frame_w, int frame_h)
{
    RLEsegm_reg_pool_init(in.ConsumeIntegralInRange(0, 64), s);
    RLEsegm_seg_pool_init(in.ConsumeIntegralInRange(0, 64), s);
    s->i2r = std::make_shared<img2regs>();
    s->last_blob = -1;
    s->rle_img = RLEimage_initialize(s->rle_img, frame_w, frame_h);
}

// An inverted row range reads nothing; otherwise rows and (unless inverted)
// columns must lie in both the mask and the frame.
bool refused_by(const Roi& r, int step_x, int w, int h, int frame_w, int frame_h)
{
    if (step_x < 1) return true;
    if (r.ymin > r.ymax) return false;
    const int cols = std::min(w, frame_w), rows = std::min(h, frame_h);
    return r.ymin < 0 || r.ymax >= rows || (r.xmin <= r.xmax && (r.xmin < 0 || r.xmax >= cols));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Refusals and the pool-full message are expected here.
    silence_library_messages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const bool wide = in.ConsumeIntegralInRange(0, 3) == 0;
    const int frame_w = in.ConsumeIntegralInRange(1, wide ? kMaxWide : kMaxSide);
    const int frame_h = in.ConsumeIntegralInRange(1, wide ? kMaxWideRows : kMaxSide);
    auto s = std::make_shared<MV_RLEsegm>();
    initialise(in, s, frame_w, frame_h);
    MeddlingObserver observer;
    observer.shared = s;
    s->add_observer(&observer);
    for (int f = 0, frames = in.ConsumeIntegralInRange(1, 4); f < frames && in.remaining_bytes() > 0; ++f) {
        // Mostly masks of the frame's size; sometimes smaller or larger ones.
        const bool other_size = in.ConsumeIntegralInRange(0, 7) == 0;
        const int w = other_size ? in.ConsumeIntegralInRange(1, wide ? kMaxWide : kMaxSide) : frame_w;
        const int h = other_size ? in.ConsumeIntegralInRange(1, wide ? kMaxWideRows : kMaxSide) : frame_h;
        Roi roi = make_roi(in, frame_w, frame_h);
        RLEsegm_set_ROI(roi.xmin, roi.ymin, roi.xmax, roi.ymax, s);
        const bool exact = in.ConsumeBool();
        // Column steps up to 40 reach both the 64-column and the one-by-one sampling.
        RLEsegm_set_steps(s, exact ? 1 : in.ConsumeIntegralInRange(-2, 40),
                          exact ? 1 : in.ConsumeIntegralInRange(-2, 6));
        const bool filter = in.ConsumeBool();
        s->min_blob_side = filter ? in.ConsumeIntegralInRange(-1, 5) : 0;
        s->min_blob_pixels = filter ? in.ConsumeIntegralInRange(-1, 30) : 0;
        cv::Mat storage, mask = make_mask(in, w, h, storage);
        if (in.ConsumeIntegralInRange(0, 15) == 0) mask.convertTo(mask, in.ConsumeBool() ? CV_16UC1 : CV_8SC1);

        observer.action = static_cast<MeddlingObserver::Action>(
            in.ConsumeIntegralInRange(0, 9) < 5 ? 0 : in.ConsumeIntegralInRange(1, 5));
        observer.mask = &mask;
        if (observer.action == MeddlingObserver::move_roi) observer.roi = make_roi(in, frame_w, frame_h);
        if (observer.action == MeddlingObserver::change_steps) {
            observer.step_x = in.ConsumeIntegralInRange(-1, 40);
            observer.step_y = in.ConsumeIntegralInRange(-1, 6);
        }

        // Refused before the observers when the frame is bad as given; after
        // them when what they changed makes it so.
        const bool bad_mask = mask.type() != CV_8UC1 && mask.type() != CV_8SC1;
        bool refused = bad_mask || refused_by(roi, s->step_x, w, h, frame_w, frame_h);
        if (!refused) {
            if (observer.action == MeddlingObserver::move_roi) roi = observer.roi;
            const int step_x = observer.action == MeddlingObserver::change_steps ? observer.step_x : s->step_x;
            refused =
                refused_by(roi, step_x, w, h, frame_w, frame_h) || observer.action == MeddlingObserver::free_private;
        }
        std::shared_ptr<RLEblob> head = RLEsegm_segmentKAP(mask, s);
        if (observer.action == MeddlingObserver::remove_itself) s->add_observer(&observer);
        if (!s->i2r) {  // freed from notify: nothing to check but the refusal
            CHECK(head == nullptr);
            initialise(in, s, frame_w, frame_h);
            continue;
        }
        check_frame(mask, s, roi, refused, head.get());
        if (!refused && s->nb_segs > 0) check_measures(in, s, roi, s->step_x == 1 && s->step_y == 1);
    }
    s->remove_observer(&observer);
    observer.shared.reset();  // the observer's copy would keep the segmenter alive
    RLEsegm_free_private(s);
    return 0;
}
