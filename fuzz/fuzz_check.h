#pragma once
// A check that aborts, so libFuzzer keeps the input.
#include <cstdio>
#include <cstdlib>

#include "nerva/messages.h"

#define CHECK(cond) \
    ((cond) ? void(0) : (std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond), std::abort()))

// Drops the library's expected messages so libFuzzer's and the sanitizers'
// output stays readable; NERVA_FUZZ_VERBOSE keeps them.
inline void silence_library_messages()
{
    if (!std::getenv("NERVA_FUZZ_VERBOSE"))
        nerva::set_message_sink([](nerva::message_stream_t, const char*, size_t, void*) {});
}
