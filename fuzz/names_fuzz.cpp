// The blob vocabulary: any 32-bit code named, any NUL-terminated piece of the
// input read as a name. Checks: no read past a string; names read back to
// their code but for the fallbacks and one-way names; the detailed occlusion
// form lists each set flag once, in the fixed order, "OTHER" last and exactly
// when unnamed bits are left.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "nerva/nerva.h"

using namespace nerva;

namespace {

// The detailed form's flags, in the order it lists them.
const std::pair<uint32_t, const char*> kTokens[] = {
    {0x1, "CAM_BOT"},       {0x2, "CAM_TOP"},        {0x4, "CAM_LEF"},         {0x8, "CAM_RIG"},
    {0x2000000, "AOI_OUT"}, {0x4000000, "AOI_REI"},  {0x10, "OBJ_BOT"},        {0x20, "OBJ_TOP"},
    {0x8000000, "OBJ_ONT"}, {0x10000000, "OBJ_INS"}, {0x20000000, "OBJ_SIT"},  {0x40000000, "AOI_VEH"},
    {0x80, "OBJ_RIG"},      {0x40, "OBJ_LEF"},       {0x100, "DYN_BOT"},       {0x200, "DYN_TOP"},
    {0x400, "DYN_LEF"},     {0x800, "DYN_RIG"},      {0x10000, "TOT_OCC"},     {0x20000, "OBJ_LOS"},
    {0x40000, "PAR_DET"},   {0x80000, "PAR_BIG"},    {0x80000000u, "TOP_VIE"},
};

void check_detailed(uint32_t code)
{
    const std::string text = get_occl_name_from_type_detailed(static_cast<blob_occl_type>(code));
    if (code == 0) {
        CHECK(text == "OCC:NONE");
        return;
    }
    CHECK(text.compare(0, 4, "OCC:") == 0);
    CHECK(text.size() > 4);
    CHECK(text.back() != '-');
    std::vector<std::string> tokens;
    std::istringstream list(text.substr(4));
    for (std::string token; std::getline(list, token, '-');) tokens.push_back(token);
    uint32_t named = 0;
    size_t next = 0;  // tokens come in the table's order, each once
    bool other = false;
    for (size_t i = 0; i < tokens.size(); ++i) {
        CHECK(!other);  // "OTHER" comes last
        if (tokens[i] == "OTHER") {
            other = true;
            continue;
        }
        // Object top listed first reads "CAM_TOP": the one slip hosts match on.
        const bool slip = i == 0 && tokens[i] == "CAM_TOP" && !(code & 0x2);
        const char* token = slip ? "OBJ_TOP" : tokens[i].c_str();
        while (next < sizeof kTokens / sizeof kTokens[0] && std::strcmp(kTokens[next].second, token) != 0) ++next;
        CHECK(next < sizeof kTokens / sizeof kTokens[0]);
        named |= kTokens[next++].first;
    }
    uint32_t all = 0;
    for (const auto& t : kTokens) all |= t.first;
    CHECK(named == (code & all));
    CHECK(other == ((code & ~all) != 0));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    silence_library_messages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const uint32_t code = in.ConsumeIntegral<uint32_t>();

    const std::string type_name = get_name_from_type(static_cast<blob_type_t>(code));
    const blob_type_t type_back = get_type_from_name(type_name.c_str());
    CHECK(type_back == static_cast<blob_type_t>(code) || type_name == "UNKNOWN" ||
          (type_name == "CONTEXT" && type_back == UNKNOWN));

    const std::string sub_name = get_name_from_subtype(static_cast<blob_subtype_t>(code));
    const blob_subtype_t sub_back = get_subtype_from_name(sub_name.c_str());
    CHECK(sub_back == static_cast<blob_subtype_t>(code) || sub_name == "UNDEFINED" ||
          (sub_name == "GLOBAL" && sub_back == SUBTYPE_UNDEFINED));

    const std::string occl_name = get_occl_name_from_type(static_cast<blob_occl_type>(code));
    const blob_occl_type occl_back = get_occl_type_from_name(occl_name.c_str());
    const bool one_way = occl_name == "MM_OCCL_OTHER" || occl_name.rfind("MM_OBJECT_", 0) == 0;
    CHECK(occl_back == static_cast<blob_occl_type>(code) || (one_way && occl_back == MM_OCCL_NONE));

    check_detailed(code);

    // The rest of the input, cut at NUL bytes, as names: each piece gets its
    // own exactly sized buffer so ASan sees a read past its terminator.
    std::istringstream pieces(in.ConsumeRemainingBytesAsString());
    for (std::string piece; std::getline(pieces, piece, '\0');) {
        const std::vector<char> name(piece.c_str(), piece.c_str() + piece.size() + 1);
        const blob_type_t t = get_type_from_name(name.data());
        const blob_subtype_t st = get_subtype_from_name(name.data());
        const blob_occl_type o = get_occl_type_from_name(name.data());
        // A name accepted on input names a known code.
        CHECK(t >= 0);
        CHECK(t <= 32);
        CHECK(st >= 0);
        CHECK(st <= 6);
        if (o != MM_OCCL_NONE) CHECK(get_occl_name_from_type(o) == name.data());
    }
    return 0;
}
