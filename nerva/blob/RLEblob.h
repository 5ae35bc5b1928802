#pragma once

#include <cstdint>
#include <memory>

#include "nerva/blob/blob.h"
#include "nerva/geometry/rectangle.h"

// The blob record that segmentation hands to the later stages, its doubly
// linked lists, and the probability/reliability records attached to blobs.
//
// Blobs are held by shared pointer and linked through shared pointers.
// Copying "as a block" is a member-wise copy of the whole record (never a
// memcpy: the record holds shared pointers) followed by the fix-ups each
// operation names. A blob owns its two probability lists and its buffer only
// through the free functions below; the destructor releases just the links.
namespace nerva {

struct prob_rel_data;

constexpr int BLOB_MAX_FATHERS = 5000;
constexpr int BLOB_INFO_BYTES = 200;
constexpr int BLOB_NB_MEASURES = 17;

struct RLEblob {
    int32_t ident;  // index in the segmenter's blob pool for segmentation blobs
    blob_occl_type occlusion;
    blob_subtype_t subtype;
    rectangle bbox;             // inclusive bounds
    int32_t spare_int;          // not used by the blob functions
    char info[BLOB_INFO_BYTES];  // exchanged whole with prob_rel_data::info
    double info3D[6];           // exchanged whole with prob_rel_data::info3D
    void* buffer;               // owned by the blob; forgotten, not freed, by blob_free
    double measures[BLOB_NB_MEASURES];  // exchanged with prob_rel_data m0..m16
    blob_type_t type;
    int32_t xc;  // sumx / npix truncated toward zero
    int32_t yc;  // sumy / npix truncated toward zero
    int32_t npix;
    double prd_extra[3];  // written from prob_rel_data m3..m5 by copy_prd_to_blob only
    int32_t fathers[BLOB_MAX_FATHERS];  // identifiers of the regions that formed the blob
    int32_t nb_fathers;
    double npix_real;
    double sumy;
    double sumx;
    double spare_reals[2];  // segmentation clears spare_reals[0]
    std::shared_ptr<RLEblob> next;
    std::shared_ptr<RLEblob> prev;
    prob_rel_data* prd_list;
    prob_rel_data* prd_list_2;
    void* aux;
    int64_t spare_tail[2];  // copied with the record
};

// Probability/reliability record: a plain record (calloc/free) chained in
// doubly linked lists; each record owns its nested `sublist`.
struct prob_rel_data {
    blob_type_t type;
    blob_subtype_t subtype;
    blob_occl_type occlusion;
    rectangle bbox;
    int32_t spare_int;
    char info[BLOB_INFO_BYTES];
    double info3D[6];
    double m0, m1, m2, m3, m4, m5, m6, m7, m8, m9, m10, m11, m12, m13, m14, m15, m16;
    prob_rel_data* sublist;
    prob_rel_data* next;
    prob_rel_data* prev;
};

using blob_ptr = std::shared_ptr<RLEblob>;

// ---- blobs and blob lists ----
blob_ptr blob_new();  // zero-filled
// New blob with every field of src, but no buffer and no probability lists;
// its links name the same blobs as src's. Empty for an empty src.
blob_ptr copy_blob(blob_ptr src);
// Overwrites dst with src (links included), dropping dst's lists and buffer;
// prd lists, aux and buffer of dst end null. Returns dst, or null if dst is empty.
RLEblob* copy_blob(blob_ptr src, blob_ptr dst);
// Overwrites dst's data with src's, keeping dst's ident and list links;
// dst gets deep copies of src's probability lists.
void copy_blob_data(blob_ptr src, blob_ptr dst);
// As copy_blob(src), with deep copies of both probability lists.
blob_ptr copy_blob_with_lists(blob_ptr src);
// Copy of a whole list, relinked in order, without probability lists.
blob_ptr copy_blob_list(blob_ptr head);
// Frees both probability lists, forgets buffer, drops the caller's reference.
void blob_free(blob_ptr& b);
void free_blob_list(blob_ptr head);
// Frees both probability lists and clears buffer and both list fields.
void blob_clean(blob_ptr b);
int blob_list_number(blob_ptr head);
// Largest bbox.width * bbox.height; the first of equal areas wins.
blob_ptr blob_get_biggest2D(blob_ptr head);
// Unlinks b and returns the list's head.
blob_ptr remove_blob(blob_ptr head, blob_ptr b);
int blob_same_father(blob_ptr a, blob_ptr b);

// ---- probability records ----
prob_rel_data* prdata_new();
void prdata_free(prob_rel_data* p);
void free_prd_list(prob_rel_data* head);
prob_rel_data* copy_prdata(const prob_rel_data* src);
void copy_prdata(const prob_rel_data* src, prob_rel_data* dst);
prob_rel_data* copy_prdata_list(const prob_rel_data* head);
// Source first: dst takes every field of src, links and sublist included.
prob_rel_data* copy_prdata_no_lists(const prob_rel_data* src, prob_rel_data* dst);
// Destination first: dst takes src's data but keeps its sublist, next, prev.
prob_rel_data* copy_prdata_only_info(prob_rel_data* dst, const prob_rel_data* src);
void copy_prd_to_blob(const prob_rel_data* p, blob_ptr b);
void copy_blob_to_prd(blob_ptr b, prob_rel_data* p);
void set_null_3D_prd(blob_ptr b, prob_rel_data* p);
void set_null_3D_prd(prob_rel_data* p, blob_type_t type, blob_subtype_t subtype, blob_occl_type occlusion,
                     const rectangle* box);

}  // namespace nerva
