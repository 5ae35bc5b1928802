#pragma once

// The single place the library's version is written; CMake reads it from here.
#define NERVA_VERSION_MAJOR 0
#define NERVA_VERSION_MINOR 1
#define NERVA_VERSION_PATCH 0
#define NERVA_VERSION_STRING "0.1.0"

namespace nerva {
// Version of the library the program is linked against (may differ from the
// header's NERVA_VERSION_STRING when an older shared library is picked up).
const char* version();
}  // namespace nerva
