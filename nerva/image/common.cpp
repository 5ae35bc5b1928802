#include "nerva/image/common.h"

namespace nerva {

void init_CamStamp_st(CamStamp* c)
{
    for (int64_t& v : c->values) v = 0;
    for (int32_t& v : c->small_values) v = 0;
}

void init_TimeStamp_st(TimeStamp* t)
{
    for (int64_t& v : t->values) v = TIMESTAMP_UNSET;
}

void init_JpegHeader_st(JpegHeader* h)
{
    init_CamStamp_st(&h->cam);
    init_TimeStamp_st(&h->time);
}

bool atob(const std::string& s)
{
    // Only these three spellings of the prefix count, so "fAlse" and "no"
    // read as true: settings files parse the same everywhere (docs/reference.md,
    // deliberate behaviours).
    const std::string head = s.substr(0, 5);
    if (head == "false" || head == "FALSE" || head == "False") return false;
    return s.empty() || s[0] != '0';
}

}  // namespace nerva
