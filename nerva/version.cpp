#include "nerva/version.h"

namespace nerva {
const char* version() { return NERVA_VERSION_STRING; }
}  // namespace nerva
