#include "segmenter.h"

#include <string>

#include "errors.h"

namespace nerva_blobs {

cv::Rect region_of_interest(const Options& options, cv::Size frame_size)
{
    const cv::Rect frame(0, 0, frame_size.width, frame_size.height);
    if (!options.roi) return frame;
    const Roi& r = *options.roi;
    const cv::Rect roi(r.x, r.y, r.width, r.height);
    if ((roi & frame) != roi)
        throw UsageError("--roi " + std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) +
                         "," + std::to_string(r.height) + " lies outside the " + std::to_string(frame_size.width) +
                         "x" + std::to_string(frame_size.height) + " frame");
    return roi;
}

Segmenter::Segmenter(const Options& o, cv::Size size, cv::Rect roi)
    : segm_(std::make_shared<nerva::MV_RLEsegm>()), measures_(o.measures)
{
    nerva::RLEsegm_init_privateKAP(segm_, 0, size.width - 1, 0, size.height - 1, size.width, size.height);
    nerva::RLEsegm_set_steps(segm_, o.step_x, o.step_y);
    nerva::RLEsegm_set_ROI(roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1, segm_);
    segm_->min_blob_side = o.min_side;
    segm_->min_blob_pixels = o.min_pixels;
    nerva::RLEsegm_count_reused_blobs(segm_, true);  // one pool-full line per frame, with the count
}

Segmenter::~Segmenter() { nerva::RLEsegm_free_private(segm_); }

const std::vector<Blob>& Segmenter::segment(const cv::Mat& mask)
{
    blobs_.clear();
    for (nerva::RLEblob* b = nerva::RLEsegm_segmentKAP(mask, segm_).get(); b; b = b->next.get()) {
        blobs_.push_back(Blob{b->ident, b->bbox.xmin, b->bbox.ymin, b->bbox.xmax, b->bbox.ymax, b->bbox.width,
                              b->bbox.height, b->npix, b->xc, b->yc, std::nullopt});
        nerva::blob_shape shape;
        if (measures_ && nerva::RLEsegm_blob_shape(segm_->blob_pool[static_cast<size_t>(b->ident)], segm_, &shape) == 0)
            blobs_.back().shape = shape;
    }
    return blobs_;
}

}  // namespace nerva_blobs
