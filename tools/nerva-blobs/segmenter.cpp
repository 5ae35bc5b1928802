#include "segmenter.h"

#include <string>

#include "errors.h"
#include "nerva/segmentation/blob_shape.h"
#include "nerva/segmentation/segment_rows.h"

namespace nerva_blobs {

cv::Rect region_of_interest(const Options& options, cv::Size frame_size)
{
    const std::string wrong = nerva_pipeline::check_for_frame(pipeline_settings(options), frame_size.width,
                                                              frame_size.height, nerva_pipeline::Naming::flags);
    if (!wrong.empty()) throw UsageError(wrong);
    if (!options.roi) return cv::Rect(0, 0, frame_size.width, frame_size.height);
    const Roi& r = *options.roi;
    return cv::Rect(r.x, r.y, r.width, r.height);
}

Segmenter::Segmenter(const Options& o, cv::Size size, cv::Rect roi)
    : segm_(std::make_shared<nerva::MV_RLEsegm>()), size_(size), measures_(o.measures)
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
    return copy_blobs(nerva::RLEsegm_segmentKAP(mask, segm_).get());
}

const std::vector<Blob>& Segmenter::segment(nerva::ChangeRows& rows)
{
    const std::shared_ptr<nerva::RLEblob> head = nerva::RLEsegm_segment_rows(rows, size_.width, size_.height, segm_);
    rows.finish();
    return copy_blobs(head.get());
}

const std::vector<Blob>& Segmenter::copy_blobs(nerva::RLEblob* head)
{
    blobs_.clear();
    for (nerva::RLEblob* b = head; b; b = b->next.get()) {
        blobs_.push_back(Blob{b->ident, b->bbox.xmin, b->bbox.ymin, b->bbox.xmax, b->bbox.ymax, b->bbox.width,
                              b->bbox.height, b->npix, b->xc, b->yc, std::nullopt});
        nerva::blob_shape shape;
        if (measures_ && nerva::RLEsegm_blob_shape(segm_->blob_pool[static_cast<size_t>(b->ident)], segm_, &shape) == 0)
            blobs_.back().shape = nerva_pipeline::ShapeRecord{
                shape.mu20,       shape.mu11,         shape.mu02,      shape.orientation, shape.major_axis,
                shape.minor_axis, shape.eccentricity, shape.perimeter, shape.extent,      shape.boundary_edges};
    }
    return blobs_;
}

long Segmenter::components() const
{
    const int reused = nerva::RLEsegm_get_reused_blobs(segm_);
    return reused > 0 ? static_cast<long>(blobs_.size()) + reused : -1;
}

}  // namespace nerva_blobs
