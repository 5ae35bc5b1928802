#include "nerva/blob/RLEblob.h"

// Placeholder until the blob operations land: segmentation needs blob_new,
// blob_clean and blob_free.
namespace nerva {

blob_ptr blob_new() { return std::make_shared<RLEblob>(); }

void blob_clean(blob_ptr b)
{
    b->buffer = nullptr;
    b->prd_list = nullptr;
    b->prd_list_2 = nullptr;
}

void blob_free(blob_ptr& b)
{
    if (b) blob_clean(b);
    b.reset();
}

}  // namespace nerva
