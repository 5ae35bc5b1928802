#pragma once

// Blob operations on the record itself, for the library's own hot paths
// (no shared-pointer copy per call). Internal header.
#include <new>

#include "nerva/blob/RLEblob.h"

namespace nerva {
namespace detail {

// What blob_clean does: frees both probability lists, forgets the buffer.
void clean_blob_record(RLEblob& b);

// Makes a recycled record what blob_new gives: every field zero or null.
// Done in place, because assigning a zeroed temporary would also copy its
// 20 KB. The record must hold no links, lists or buffer of its own.
inline void renew_blob_record(RLEblob& b)
{
    b.~RLEblob();
    ::new (static_cast<void*>(&b)) RLEblob();
}

}  // namespace detail
}  // namespace nerva
