#pragma once

// The vector instruction sets the kernels may use. The library is built for
// the baseline (SSE2 on x86-64); wider sets are compiled per function with
// target attributes and chosen at run time, where NERVA_X86_DISPATCH is
// defined.
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define NERVA_X86_DISPATCH 1
#endif
