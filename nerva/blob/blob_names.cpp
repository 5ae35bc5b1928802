#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nerva/blob/blob.h"
#include "nerva/internal/report.h"

// The context files name objects by text. Reading and writing use separate
// tables because the two directions disagree on purpose: some codes are read
// but written as the fallback, some names are written but never read.
namespace nerva {

namespace {

template <typename Code>
struct named_code {
    Code code;
    const char* name;
};

const named_code<blob_type_t> type_names_read[] = {
    {UNKNOWN, "UNKNOWN"},
    {CROWD, "CROWD"},
    {PERSON_GROUP, "PERSON_GROUP"},
    {A_GROUP, "A_GROUP"},
    {PERSON, "PERSON"},
    {CONTEXT_OBJECT, "CONTEXT_OBJECT"},
    {VEHICLE, "VEHICLE"},
    {NOISE, "NOISE"},
    {VALIDATION, "VALIDATION"},
    {CAR, "CAR"},
    {TRUCK, "TRUCK"},
    {MOTORCYCLE, "MOTORCYCLE"},
    {CHILD, "CHILD"},
    {PARKED_VEHICLE, "PARKED_VEHICLE"},
    {FACE, "FACE"},
    {TWO_PERSONS, "TWO-PERSONS"},
    {THREE_PERSONS, "THREE-PERSONS"},
    {PERSON_BENDING, "PERSON_BENDING"},
    {LEFT_FOOD_CUPBOARD_DOOR, "LEFT_FOOD_CUPBOARD_DOOR"},
    {RIGHT_FOOD_CUPBOARD_DOOR, "RIGHT_FOOD_CUPBOARD_DOOR"},
    {LEFT_DISH_CUPBOARD_DOOR, "LEFT_DISH_CUPBOARD_DOOR"},
    {RIGHT_DISH_CUPBOARD_DOOR, "RIGHT_DISH_CUPBOARD_DOOR"},
    {CHAIR, "CHAIR"},
    {FRIDGEDOOR, "FRIDGEDOOR"},
    {MICROWAVE_DOOR, "MICROWAVE_DOOR"},
    {LUGGAGE, "LUGGAGE"},
    {ANY2D, "ANY2D"},
    {ANY3D, "ANY3D"},
    {CARGO_VEHICLE, "CARGO-VEHICLE"},
};

// The kitchen furniture codes (22-25, 28) and LUGGAGE have no written name.
const named_code<blob_type_t> type_names_written[] = {
    {UNKNOWN, "UNKNOWN"},
    {CROWD, "CROWD"},
    {PERSON_GROUP, "PERSON_GROUP"},
    {A_GROUP, "A_GROUP"},
    {PERSON, "PERSON"},
    {CONTEXT_OBJECT, "CONTEXT"},
    {VEHICLE, "VEHICLE"},
    {NOISE, "NOISE"},
    {VALIDATION, "VALIDATION"},
    {CAR, "CAR"},
    {TRUCK, "TRUCK"},
    {MOTORCYCLE, "MOTORCYCLE"},
    {CHILD, "CHILD"},
    {PARKED_VEHICLE, "PARKED_VEHICLE"},
    {FACE, "FACE"},
    {TWO_PERSONS, "TWO-PERSONS"},
    {THREE_PERSONS, "THREE-PERSONS"},
    {PERSON_BENDING, "PERSON_BENDING"},
    {CHAIR, "CHAIR"},
    {FRIDGEDOOR, "FRIDGEDOOR"},
    {ANY2D, "ANY2D"},
    {ANY3D, "ANY3D"},
    {CARGO_VEHICLE, "CARGO-VEHICLE"},
};

// No name reads as SUBTYPE_UNDEFINED: it is what an unknown name becomes.
const named_code<blob_subtype_t> subtype_names_read[] = {
    {SUBTYPE_UNKNOWN, "UNKNOWN"},
    {NO_SUBTYPES, "NO_SUBTYPES"},
    {STANDING, "STANDING"},
    {CROUCHING, "CROUCHING"},
    {LYING, "LYING"},
    {ARMUP, "ARMUP"},
};

const named_code<blob_subtype_t> subtype_names_written[] = {
    {SUBTYPE_UNKNOWN, "UNKNOWN"},
    {SUBTYPE_UNDEFINED, "UNDEFINED"},
    {NO_SUBTYPES, "GLOBAL"},
    {STANDING, "STANDING"},
    {CROUCHING, "CROUCHING"},
    {LYING, "LYING"},
    {ARMUP, "ARMUP"},
};

// The object combinations (0x50, 0x90, 0x60, 0xA0) are written but not read.
const named_code<blob_occl_type> occl_names_read[] = {
    {MM_OCCL_NONE, "MM_OCCL_NONE"},
    {MM_CAM_OCCL_BOTTOM, "MM_CAM_OCCL_BOTTOM"},
    {MM_CAM_OCCL_TOP, "MM_CAM_OCCL_TOP"},
    {MM_CAM_OCCL_LEFT, "MM_CAM_OCCL_LEFT"},
    {MM_CAM_OCCL_RIGHT, "MM_CAM_OCCL_RIGHT"},
    {MM_CAM_OCCL_BOTTOM_LEFT, "MM_CAM_OCCL_BOTTOM_LEFT"},
    {MM_CAM_OCCL_BOTTOM_RIGHT, "MM_CAM_OCCL_BOTTOM_RIGHT"},
    {MM_CAM_OCCL_TOP_LEFT, "MM_CAM_OCCL_TOP_LEFT"},
    {MM_CAM_OCCL_TOP_RIGHT, "MM_CAM_OCCL_TOP_RIGHT"},
    {MM_OBJECT_BOTTOM, "MM_OBJECT_BOTTOM"},
    {MM_OBJECT_TOP, "MM_OBJECT_TOP"},
    {MM_OBJECT_LEFT, "MM_OBJECT_LEFT"},
    {MM_OBJECT_RIGHT, "MM_OBJECT_RIGHT"},
    {MM_AOI_OUTSIDE, "MM_AOI_OUTSIDE"},
    {MM_AOI_REINSIDE, "MM_AOI_REINSIDE"},
    {MM_OBJECT_ON_TOP, "MM_OBJECT_ON_TOP"},
    {MM_OBJECT_INSIDE, "MM_OBJECT_INSIDE"},
    {MM_OBJECT_SIT, "MM_OBJECT_SIT"},
    {MM_BLOB_ON_VEHICLE_AOI, "MM_BLOB_ON_VEHICLE_AOI"},
    {MM_CAM_TOP_VIEW, "MM_CAM_TOP_VIEW"},
};

const named_code<blob_occl_type> occl_names_written[] = {
    {MM_OCCL_NONE, "MM_OCCL_NONE"},
    {MM_CAM_OCCL_BOTTOM, "MM_CAM_OCCL_BOTTOM"},
    {MM_CAM_OCCL_TOP, "MM_CAM_OCCL_TOP"},
    {MM_CAM_OCCL_LEFT, "MM_CAM_OCCL_LEFT"},
    {MM_CAM_OCCL_RIGHT, "MM_CAM_OCCL_RIGHT"},
    {MM_CAM_OCCL_BOTTOM_LEFT, "MM_CAM_OCCL_BOTTOM_LEFT"},
    {MM_CAM_OCCL_BOTTOM_RIGHT, "MM_CAM_OCCL_BOTTOM_RIGHT"},
    {MM_CAM_OCCL_TOP_LEFT, "MM_CAM_OCCL_TOP_LEFT"},
    {MM_CAM_OCCL_TOP_RIGHT, "MM_CAM_OCCL_TOP_RIGHT"},
    {MM_OBJECT_BOTTOM, "MM_OBJECT_BOTTOM"},
    {MM_OBJECT_TOP, "MM_OBJECT_TOP"},
    {MM_OBJECT_LEFT, "MM_OBJECT_LEFT"},
    {MM_OBJECT_RIGHT, "MM_OBJECT_RIGHT"},
    {MM_OBJECT_BOTTOM_LEFT, "MM_OBJECT_BOTTOM_LEFT"},
    {MM_OBJECT_BOTTOM_RIGHT, "MM_OBJECT_BOTTOM_RIGHT"},
    {MM_OBJECT_TOP_LEFT, "MM_OBJECT_TOP_LEFT"},
    {MM_OBJECT_TOP_RIGHT, "MM_OBJECT_TOP_RIGHT"},
    {MM_AOI_OUTSIDE, "MM_AOI_OUTSIDE"},
    {MM_AOI_REINSIDE, "MM_AOI_REINSIDE"},
    {MM_OBJECT_ON_TOP, "MM_OBJECT_ON_TOP"},
    {MM_OBJECT_INSIDE, "MM_OBJECT_INSIDE"},
    {MM_OBJECT_SIT, "MM_OBJECT_SIT"},
    {MM_BLOB_ON_VEHICLE_AOI, "MM_BLOB_ON_VEHICLE_AOI"},
    {MM_CAM_TOP_VIEW, "MM_CAM_TOP_VIEW"},
};

// The detailed form lists the flags in this order, which is not the order
// of their values: hosts compare these strings.
const named_code<uint32_t> occl_tokens[] = {
    {0x1, "CAM_BOT"},       {0x2, "CAM_TOP"},        {0x4, "CAM_LEF"},         {0x8, "CAM_RIG"},
    {0x2000000, "AOI_OUT"}, {0x4000000, "AOI_REI"},  {0x10, "OBJ_BOT"},        {0x20, "OBJ_TOP"},
    {0x8000000, "OBJ_ONT"}, {0x10000000, "OBJ_INS"}, {0x20000000, "OBJ_SIT"},  {0x40000000, "AOI_VEH"},
    {0x80, "OBJ_RIG"},      {0x40, "OBJ_LEF"},       {0x100, "DYN_BOT"},       {0x200, "DYN_TOP"},
    {0x400, "DYN_LEF"},     {0x800, "DYN_RIG"},      {0x10000, "TOT_OCC"},     {0x20000, "OBJ_LOS"},
    {0x40000, "PAR_DET"},   {0x80000, "PAR_BIG"},    {0x80000000u, "TOP_VIE"},
};

template <typename Code, size_t N>
bool find_code(const named_code<Code> (&table)[N], const char* name, Code* code)
{
    for (const auto& entry : table) {
        if (std::strcmp(entry.name, name) == 0) {
            *code = entry.code;
            return true;
        }
    }
    return false;
}

template <typename Code, size_t N>
const char* find_name(const named_code<Code> (&table)[N], Code code, const char* fallback)
{
    for (const auto& entry : table)
        if (entry.code == code) return entry.name;
    return fallback;
}

const char kTokenPrefix[] = "OCC:";

}  // namespace

blob_type_t get_type_from_name(const char* name)
{
    blob_type_t code;
    if (find_code(type_names_read, name, &code)) return code;
    detail::report(MESSAGES_STDOUT, "Warning: unknown expected object in context file\n");
    return UNKNOWN;
}

blob_subtype_t get_subtype_from_name(const char* name)
{
    blob_subtype_t code;
    if (find_code(subtype_names_read, name, &code)) return code;
    detail::report(MESSAGES_STDOUT,
                   "Warning: undefined expected object subtype in context file. It must be defined in blob.h and in "
                   "functions get_subtype_from_name and get_name_from_subtype\n");
    return SUBTYPE_UNDEFINED;
}

blob_occl_type get_occl_type_from_name(const char* name)
{
    blob_occl_type code;
    if (find_code(occl_names_read, name, &code)) return code;
    detail::report(MESSAGES_STDOUT, "Warning: unknown occultation type %s\n", name);
    return MM_OCCL_NONE;
}

std::string get_name_from_type(blob_type_t t) { return find_name(type_names_written, t, "UNKNOWN"); }

std::string get_name_from_subtype(blob_subtype_t s) { return find_name(subtype_names_written, s, "UNDEFINED"); }

std::string get_occl_name_from_type(blob_occl_type o) { return find_name(occl_names_written, o, "MM_OCCL_OTHER"); }

std::string get_occl_name_from_type_detailed(blob_occl_type o)
{
    if (o == MM_OCCL_NONE) return "OCC:NONE";

    std::string text = kTokenPrefix;
    uint32_t left = static_cast<uint32_t>(o);
    for (const auto& token : occl_tokens) {
        if (!(left & token.code)) continue;
        left &= ~token.code;
        const bool first = text.size() == sizeof(kTokenPrefix) - 1;
        if (first) {
            // Object-top leading the list is written as camera-top: the text
            // hosts' context files hold (docs/reference.md, deliberate behaviours).
            text += token.code == MM_OBJECT_TOP ? "CAM_TOP" : token.name;
        } else {
            text += '-';
            text += token.name;
        }
    }
    if (left) text += text.size() == sizeof(kTokenPrefix) - 1 ? "OTHER" : "-OTHER";
    return text;
}

}  // namespace nerva
