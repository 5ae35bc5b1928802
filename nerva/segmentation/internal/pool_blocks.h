#pragma once

// Pools of records carved from one allocation. Every record of a block shares
// the block's reference count, so the shared pointers the labelling copies
// touch one hot counter instead of one cold counter per record, and the
// records lie next to each other in memory. A block lives as long as any of
// its records is referenced. Internal header.
#include <cstddef>
#include <memory>
#include <vector>

#include "nerva/segmentation/internal/zeroed_memory.h"

namespace nerva {
namespace detail {

// Fills slots [from, to) of `pool` with value-initialised records of one new
// block. The records stay untouched until used, unless `written` says the
// caller is about to write every one of them: their pages are then faulted
// in at once.
template <class T>
void fill_from_block(std::vector<std::shared_ptr<T>>& pool, size_t from, size_t to, bool written = false)
{
    if (to <= from) return;
    std::shared_ptr<T> block = zeroed_records<T>(to - from);
    if (written) prefault_for_writing(block.get(), (to - from) * sizeof(T));
    for (size_t i = from; i < to; ++i) pool[i] = std::shared_ptr<T>(block, block.get() + (i - from));
}

// Resizes a pool vector to `n` slots, the pages of the new slots faulted in
// at once: each is written twice right after (emptied, then filled).
template <class T>
void resize_pool(std::vector<std::shared_ptr<T>>& pool, size_t n)
{
    const size_t old = pool.size();
    if (n > old) {
        pool.reserve(n);
        prefault_for_writing(pool.data() + old, (n - old) * sizeof(pool[0]));
    }
    pool.resize(n);
}

// Assigns only when the value changes, so an unchanged link costs no
// reference-count update. Pool records are only ever referenced through the
// pool's own shared pointers, so equal addresses mean equal pointers.
template <class T>
inline void set_link(std::shared_ptr<T>& field, const std::shared_ptr<T>& value)
{
    if (field.get() != value.get()) field = value;
}

}  // namespace detail
}  // namespace nerva
