// Counts every heap allocation of the process: the global operator new and
// the C allocation functions are replaced by counting forwarders to glibc.
#include "alloc_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);
}

namespace {
std::atomic<uint64_t> g_allocations{0};
}

uint64_t heap_allocations() { return g_allocations.load(std::memory_order_relaxed); }

extern "C" {
void* malloc(size_t n)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(n);
}
void* calloc(size_t n, size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
void* realloc(void* p, size_t n)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, n);
}
void free(void* p) { __libc_free(p); }
}

void* operator new(size_t n)
{
    void* p = malloc(n ? n : 1);
    if (!p) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t n) { return operator new(n); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }
