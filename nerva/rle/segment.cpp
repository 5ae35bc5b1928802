#include "nerva/rle/segment.h"

namespace nerva {

std::shared_ptr<segment> segment_new() { return std::make_shared<segment>(); }

void segment_free(std::shared_ptr<segment> seg) { seg.reset(); }

}  // namespace nerva
