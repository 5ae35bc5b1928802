#pragma once

#include <cstdint>
#include <string>

// Records the host attaches to frames on the capture side. The library gives
// them their initial values and nothing more: what each field means is the
// host's business, so the fields are named by position.
namespace nerva {

struct CamStamp {
    int64_t values[3];
    int32_t small_values[2];
};

// A field holding TIMESTAMP_UNSET (all bits set) has not been filled in.
constexpr int64_t TIMESTAMP_UNSET = -1;

struct TimeStamp {
    int64_t values[4];
};

struct JpegHeader {
    CamStamp cam;
    TimeStamp time;
};

// Every field of c becomes 0. c must not be null.
void init_CamStamp_st(CamStamp* c);
// Every field of t becomes TIMESTAMP_UNSET. t must not be null.
void init_TimeStamp_st(TimeStamp* t);
// Camera part to 0, time part to TIMESTAMP_UNSET. h must not be null.
void init_JpegHeader_st(JpegHeader* h);

// Text setting to boolean by prefix: false when s starts with "false",
// "FALSE" or "False" or with the character '0'; true otherwise, the empty
// string included. So "False!" and "01" are false, "no" and "fAlse" true.
bool atob(const std::string& s);

}  // namespace nerva
