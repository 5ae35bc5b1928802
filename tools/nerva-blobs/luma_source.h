#pragma once

#include <memory>
#include <string>

#include "input.h"

// A video file decoded by FFmpeg's own libraries, handing out the decoder's
// luma plane as the grey frame: no conversion to colour and back. Colour
// (BGR) is made from the same decoded picture only when `colour` is asked
// (for drawing, or for a detector that needs it); the grey frame is then
// still the luma, so blobs do not depend on what is drawn.
namespace nerva_blobs {

// RuntimeError "cannot decode '<path>': ..." when the file is not a
// container and codec FFmpeg reads, or holds no decodable frame.
std::unique_ptr<FrameSource> open_luma_video(const std::string& path, bool colour);

}  // namespace nerva_blobs
