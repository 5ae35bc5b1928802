#pragma once

#include "nerva/geometry/rectangle.h"
#include "nerva/image/image.h"

namespace nerva {

// Change detection of one grey frame against a running-average background,
// in one pass over the bytes: mask becomes 255 where |current - background|
// >= threshold and 0 elsewhere, then the background learns the frame at
// `rate`. The mask and the background are those of
//     abs_difference(current, background, rect, difference);
//     grey_thresholding(difference, threshold, rect, mask);
//     update(background, current, rate, rect);
// with no difference image and each byte read once. The mask is
// initialised as a GREY_IMG of the background's size; pixels outside the
// clipped rectangle keep what they held. -1 when an image is null or not a
// GREY_IMG, the sizes or origins differ, a capacity is 0 or the mask cannot
// be initialised; else 0.
int detect_changes(image* background, image* current, float rate, unsigned threshold, rectangle* rect, image* mask);

}  // namespace nerva
