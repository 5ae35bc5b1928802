#pragma once
// Shared by the fuzz harnesses: a check that aborts (so libFuzzer keeps the
// input) and a way to silence the library's expected messages without
// silencing libFuzzer or the sanitizers.
#include <cstdio>
#include <cstdlib>

namespace fuzz {
// Where failed checks are reported: the process's original standard error.
inline FILE*& report_stream()
{
    static FILE* stream = stderr;
    return stream;
}
}  // namespace fuzz

#define CHECK(cond)                                                                             \
    do {                                                                                        \
        if (!(cond)) {                                                                          \
            std::fprintf(fuzz::report_stream(), "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (0)

// The library prints through the C streams stdout and stderr; libFuzzer
// keeps its own handle on standard error, taken at start-up, and the
// sanitizers write to descriptor 2 directly. Pointing the C stream variable
// elsewhere therefore quietens the library alone. NERVA_FUZZ_VERBOSE keeps it.
#define silence_library_stream(stream)                            \
    do {                                                          \
        fuzz::report_stream();                                    \
        if (!std::getenv("NERVA_FUZZ_VERBOSE")) {                 \
            if (FILE* sink = std::fopen("/dev/null", "w")) stream = sink; \
        }                                                         \
    } while (0)
