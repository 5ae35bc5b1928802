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
    rectangle bbox;                     // inclusive bounds
    int32_t spare_int;                  // not used by the blob functions
    char info[BLOB_INFO_BYTES];         // exchanged whole with prob_rel_data::info
    double info3D[6];                   // exchanged whole with prob_rel_data::info3D
    void* buffer;                       // owned by the blob; forgotten, not freed, by blob_free
    double measures[BLOB_NB_MEASURES];  // exchanged with prob_rel_data m0..m16
    blob_type_t type;
    int32_t xc;  // sumx / npix truncated toward zero
    int32_t yc;  // sumy / npix truncated toward zero
    int32_t npix;
    double prd_extra[3];                // written from prob_rel_data m3..m5 by copy_prd_to_blob only
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
// New zero-filled blob: every field zero or empty.
blob_ptr blob_new();
// New blob with every field of src, but no buffer and no probability lists;
// its links name the same blobs as src's. Empty for an empty src.
blob_ptr copy_blob(blob_ptr src);
// Overwrites dst with src (links included), freeing dst's lists and buffer
// first; prd lists, aux and buffer of dst end null. Returns dst, or null (and
// dst untouched) when either blob is empty.
RLEblob* copy_blob(blob_ptr src, blob_ptr dst);
// Overwrites dst's data with src's, keeping dst's ident and list links;
// dst gets deep copies of src's probability lists and no buffer. Nothing
// happens unless both are non-empty.
void copy_blob_data(blob_ptr src, blob_ptr dst);
// As copy_blob(src), with deep copies of both probability lists.
blob_ptr copy_blob_with_lists(blob_ptr src);
// Copy of a whole list, relinked in order (the new head has no prev),
// without probability lists or buffers. Empty for an empty list.
blob_ptr copy_blob_list(blob_ptr head);
// Frees both probability lists and forgets (does not free) buffer; the blob
// itself goes with its last reference (the caller's own pointer is a copy and
// stays set). The links are left alone: a blob still in a list lives on.
void blob_free(blob_ptr b);
// blob_free on every blob from head along next. Each blob's next and prev are
// cleared as it goes: the two-way links form reference cycles that would
// otherwise keep the whole list alive, so a blob the host still holds comes
// back unlinked.
void free_blob_list(blob_ptr head);
// Frees both probability lists and clears buffer and both list fields.
void blob_clean(blob_ptr b);
// Number of blobs from head along next.
int blob_list_number(blob_ptr head);
// Largest bbox.width * bbox.height; the first of equal areas wins.
blob_ptr blob_get_biggest2D(blob_ptr head);
// Unlinks b from its neighbours and returns the list's head (b.next when b
// was the head). b keeps its own links, so a walk can go on from it.
blob_ptr remove_blob(blob_ptr head, blob_ptr b);
// 1 when the blobs share a region identifier among their first nb_fathers.
int blob_same_father(blob_ptr a, blob_ptr b);

// ---- probability records ----
// Zero-filled record, or null when allocation fails.
prob_rel_data* prdata_new();
// Frees p's nested list, then p; its neighbours stay. Null is ignored.
void prdata_free(prob_rel_data* p);
// Frees every record from head along next. Null is ignored.
void free_prd_list(prob_rel_data* head);
// New record with every field of src (next and prev as they are) and a deep
// copy of its sublist; null for null.
prob_rel_data* copy_prdata(const prob_rel_data* src);
// dst takes every field of src and a deep copy of its sublist, its own
// sublist being freed. Nothing when either is null.
void copy_prdata(const prob_rel_data* src, prob_rel_data* dst);
// Deep copy of a whole list, nested lists included, linked both ways;
// null for null or when an allocation fails (nothing is left behind).
prob_rel_data* copy_prdata_list(const prob_rel_data* head);
// Source first: dst takes every field of src, links and sublist included, so
// it shares src's neighbours and nested list. Returns dst.
prob_rel_data* copy_prdata_no_lists(const prob_rel_data* src, prob_rel_data* dst);
// Destination first: dst takes src's data but keeps its sublist, next, prev.
// Returns dst, or null (nothing copied) when either is null.
prob_rel_data* copy_prdata_only_info(prob_rel_data* dst, const prob_rel_data* src);
// p's hypothesis into b: type, subtype, bbox, info, info3D and the measures,
// m3..m5 included (into prd_extra). b's occlusion is not touched.
void copy_prd_to_blob(const prob_rel_data* p, blob_ptr b);
// The reverse for type, subtype, bbox, info, info3D and the two-way measures;
// p's occlusion, m3..m5 and links are not touched.
void copy_blob_to_prd(blob_ptr b, prob_rel_data* p);
// Clears p except type, subtype and links, then takes b's box.
void set_null_3D_prd(blob_ptr b, prob_rel_data* p);
// Clears p except its links, then sets the four values (box copied).
void set_null_3D_prd(prob_rel_data* p, blob_type_t type, blob_subtype_t subtype, blob_occl_type occlusion,
                     const rectangle* box);

}  // namespace nerva
