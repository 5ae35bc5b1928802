#pragma once

// Blob operations on the record itself, for the library's own hot paths
// (no shared-pointer copy per call). Internal header.
#include "nerva/blob/RLEblob.h"

namespace nerva {
namespace detail {

// What blob_clean does: frees both probability lists, forgets the buffer.
void clean_blob_record(RLEblob& b);

}  // namespace detail
}  // namespace nerva
