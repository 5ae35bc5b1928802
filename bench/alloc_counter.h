#pragma once

#include <cstdint>

// Heap allocations made by this process so far (operator new and malloc
// family), counted by replacements of the global allocation functions.
uint64_t heap_allocations();
