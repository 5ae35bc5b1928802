// The records of the segmenter's blob pool, carved from zeroed chunks. A blob
// record spans 20 KB, most of it the list of father regions, of which a
// segmentation blob uses the first entry: taken from fresh zeroed memory, the
// pages in between are never touched, where a record of its own would be
// written whole before its first frame.
#include "nerva/segmentation/internal/segmenter_internal.h"

namespace nerva {
namespace detail {

namespace {

// About 650 KB of address space a chunk, of which a frame touches some two
// pages a blob.
constexpr size_t kBlobsPerChunk = 32;

}  // namespace

std::shared_ptr<RLEblob> new_pool_blob(SegmenterWork& work)
{
    if (!zero_bytes_are_value_initialised<RLEblob>()) return blob_new();
    if (!work.blob_chunk || work.blob_chunk_used == kBlobsPerChunk) {
        work.blob_chunk = zeroed_records<RLEblob>(kBlobsPerChunk);
        work.blob_chunk_used = 0;
    }
    RLEblob* blob = work.blob_chunk.get() + work.blob_chunk_used++;
    // Each record has a count of its own, so that the pool's trimming sees
    // who else holds it; the chunk goes with the last of its records. The
    // record's links are cut when its last reference goes, as its
    // destruction would: it may hold the only reference to another blob.
    return std::shared_ptr<RLEblob>(blob, [chunk = work.blob_chunk](RLEblob* b) {
        b->next.reset();
        b->prev.reset();
    });
}

}  // namespace detail
}  // namespace nerva
