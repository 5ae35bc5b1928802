#pragma once

// Blob operations on the record itself, for the library's own hot paths
// (no shared-pointer copy per call). Internal header.
#include <new>

#include "nerva/blob/RLEblob.h"

namespace nerva {
namespace detail {

// What happens to a blob's `buffer` when its data is released.
enum class BlobBuffer {
    forget,  // blob_free, blob_clean and the segmenter's pool: the host owns it
    free,    // a copy overwriting the blob: the blob owned it
};

// Frees both probability lists and frees or forgets the buffer; the three
// pointers become null. The one way the library releases a blob's data.
void release_blob_data(RLEblob& b, BlobBuffer buffer);

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
