#pragma once

// Memory that starts as zero bytes without being written. A segmenter's
// pools and scratch arrays are sized for the worst frame (some 13 MB) while
// an ordinary frame uses a few hundred kilobytes of them; fresh memory from
// calloc is zero on every page the process has not touched yet, so records
// and entries left unwritten cost no page fault until a frame uses them.
// That is most of what a new segmenter costs before its first frame.
// Internal header.
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace nerva {
namespace detail {

// True when a value-initialised T is all zero bytes, so that zero-filled
// memory already holds one (checked once per type, on the heap: a blob
// record is too large for a thread's stack).
template <class T>
bool zero_bytes_are_value_initialised()
{
    static const bool zero = [] {
        std::unique_ptr<unsigned char[]> raw(new unsigned char[sizeof(T)]);
        // Volatile stores, so that the fill is not dropped as dead before the
        // object's construction.
        volatile unsigned char* fill = raw.get();
        for (size_t i = 0; i < sizeof(T); ++i) fill[i] = 0xA5;
        T* object = new (raw.get()) T();
        bool all_zero = true;
        for (size_t i = 0; i < sizeof(T); ++i) all_zero = all_zero && raw[i] == 0;
        object->~T();
        return all_zero;
    }();
    return zero;
}

// Faults the whole pages of [data, data + bytes) in with one system call
// instead of one trap per page, for memory about to be written from end to
// end. Only a hint: where the kernel cannot do it, the writes fault the
// pages in as usual.
inline void prefault_for_writing(const void* data, size_t bytes)
{
#if defined(__linux__)
    constexpr int kPopulateWrite = 23;  // MADV_POPULATE_WRITE (Linux 5.14), absent from older headers
    const uintptr_t page = 4096;
    const uintptr_t first = (reinterpret_cast<uintptr_t>(data) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(page - 1);
    if (end > first) (void)madvise(reinterpret_cast<void*>(first), end - first, kPopulateWrite);
#else
    (void)data;
    (void)bytes;
#endif
}

// `count` value-initialised records in one zero-filled block, destroyed and
// freed together when the returned pointer's last copy goes. Records whose
// value-initialised form is all zero bytes are not written at all.
template <class T>
std::shared_ptr<T> zeroed_records(size_t count)
{
    T* records = static_cast<T*>(std::calloc(count, sizeof(T)));
    if (!records) throw std::bad_alloc();
    if (!zero_bytes_are_value_initialised<T>())
        for (size_t i = 0; i < count; ++i) new (records + i) T();
    return std::shared_ptr<T>(records, [count](T* p) {
        for (size_t i = 0; i < count; ++i) p[i].~T();
        std::free(p);
    });
}

// An allocator for scratch arrays of plain values: storage comes zeroed from
// calloc and growing the array writes nothing, so its unused tail stays
// untouched. Arrays that only grow read zero in every new entry, as with the
// standard allocator; one that shrank and grew again would read its old
// values there.
template <class T>
struct ZeroedAllocator {
    static_assert(std::is_trivially_copyable<T>::value, "scratch arrays hold plain values");
    using value_type = T;

    ZeroedAllocator() = default;
    template <class U>
    ZeroedAllocator(const ZeroedAllocator<U>&) noexcept
    {}

    T* allocate(size_t n)
    {
        void* p = std::calloc(n, sizeof(T));
        if (!p) throw std::bad_alloc();
        return static_cast<T*>(p);
    }
    void deallocate(T* p, size_t) noexcept { std::free(p); }

    // Value-initialisation of a new entry: the memory is already zero.
    template <class U>
    void construct(U*) noexcept
    {}
    template <class U, class... Args>
    void construct(U* p, Args&&... args)
    {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }

    template <class U>
    bool operator==(const ZeroedAllocator<U>&) const noexcept
    {
        return true;
    }
    template <class U>
    bool operator!=(const ZeroedAllocator<U>&) const noexcept
    {
        return false;
    }
};

template <class T>
using ScratchVector = std::vector<T, ZeroedAllocator<T>>;

}  // namespace detail
}  // namespace nerva
