#pragma once

#include "options.h"

// A run must never write over what it reads: `nerva-blobs cam.avi -o cam.avi`
// would replace the video with JSON lines. Files are compared by device and
// inode, so links and other spellings of a path are caught too.
namespace nerva_blobs {

// UsageError naming the option when an output is the input itself, or when
// annotated frames would be written into the directory being read.
void refuse_overwriting_input(const Options& options);

}  // namespace nerva_blobs
