#pragma once

#include <cstdint>
#include <string>

// The vocabulary of blobs: object types, postures (subtypes) and occlusion
// flags, with the names used in the host's context files. The name tables are
// deliberately asymmetric (some names are only read, some only written) and
// hosts depend on that; see the conversion functions below.
namespace nerva {

enum blob_type_t : int32_t {
    UNKNOWN = 0,
    CROWD = 1,
    PERSON_GROUP = 2,
    A_GROUP = 3,
    PERSON = 4,
    CONTEXT_OBJECT = 5,  // read as "CONTEXT_OBJECT", written as "CONTEXT"
    VEHICLE = 6,
    NOISE = 7,
    VALIDATION = 8,
    CAR = 9,
    TRUCK = 10,
    MOTORCYCLE = 11,
    CHILD = 15,
    PARKED_VEHICLE = 16,
    FACE = 17,
    TWO_PERSONS = 18,    // "TWO-PERSONS"
    THREE_PERSONS = 19,  // "THREE-PERSONS"
    PERSON_BENDING = 21,
    LEFT_FOOD_CUPBOARD_DOOR = 22,  // 22-25, 28, 29 are read but written as "UNKNOWN"
    RIGHT_FOOD_CUPBOARD_DOOR = 23,
    LEFT_DISH_CUPBOARD_DOOR = 24,
    RIGHT_DISH_CUPBOARD_DOOR = 25,
    CHAIR = 26,
    FRIDGEDOOR = 27,
    MICROWAVE_DOOR = 28,
    LUGGAGE = 29,
    ANY2D = 30,
    ANY3D = 31,
    CARGO_VEHICLE = 32,  // "CARGO-VEHICLE"
};

// Subtypes share names with types in the tables ("UNKNOWN"), hence the prefix.
enum blob_subtype_t : int32_t {
    SUBTYPE_UNKNOWN = 0,
    SUBTYPE_UNDEFINED = 1,  // result of an unrecognised name; no name reads as it
    NO_SUBTYPES = 2,        // read as "NO_SUBTYPES", written as "GLOBAL"
    STANDING = 3,
    CROUCHING = 4,
    LYING = 5,
    ARMUP = 6,
};

// A set of flags: values combine with bitwise or. The top bit is a flag, so
// the pattern is unsigned.
enum blob_occl_type : uint32_t {
    MM_OCCL_NONE = 0,
    MM_CAM_OCCL_BOTTOM = 0x1,
    MM_CAM_OCCL_TOP = 0x2,
    MM_CAM_OCCL_LEFT = 0x4,
    MM_CAM_OCCL_RIGHT = 0x8,
    MM_CAM_OCCL_BOTTOM_LEFT = 0x5,
    MM_CAM_OCCL_BOTTOM_RIGHT = 0x9,
    MM_CAM_OCCL_TOP_LEFT = 0x6,
    MM_CAM_OCCL_TOP_RIGHT = 0xA,
    MM_OBJECT_BOTTOM = 0x10,
    MM_OBJECT_TOP = 0x20,
    MM_OBJECT_LEFT = 0x40,
    MM_OBJECT_RIGHT = 0x80,
    MM_OBJECT_BOTTOM_LEFT = 0x50,   // written only
    MM_OBJECT_BOTTOM_RIGHT = 0x90,  // written only
    MM_OBJECT_TOP_LEFT = 0x60,      // written only
    MM_OBJECT_TOP_RIGHT = 0xA0,     // written only
    // Flags without a name of their own (they appear only as tokens of the
    // detailed form).
    MM_DYN_OCCL_BOTTOM = 0x100,
    MM_DYN_OCCL_TOP = 0x200,
    MM_DYN_OCCL_LEFT = 0x400,
    MM_DYN_OCCL_RIGHT = 0x800,
    MM_TOTAL_OCCLUSION = 0x10000,
    MM_OBJECT_LOST = 0x20000,
    MM_PARTIAL_DETECTION = 0x40000,
    MM_PARTIAL_BIG = 0x80000,
    MM_AOI_OUTSIDE = 0x2000000,
    MM_AOI_REINSIDE = 0x4000000,
    MM_OBJECT_ON_TOP = 0x8000000,
    MM_OBJECT_INSIDE = 0x10000000,
    MM_OBJECT_SIT = 0x20000000,
    MM_BLOB_ON_VEHICLE_AOI = 0x40000000,
    MM_CAM_TOP_VIEW = 0x80000000u,
};

// Exact, case-sensitive name to code. Unknown names print a warning line on
// standard output and give UNKNOWN / SUBTYPE_UNDEFINED / MM_OCCL_NONE.
blob_type_t get_type_from_name(const char* name);
blob_subtype_t get_subtype_from_name(const char* name);
blob_occl_type get_occl_type_from_name(const char* name);

// Code to name; codes without a name of their own give "UNKNOWN",
// "UNDEFINED" or "MM_OCCL_OTHER". Occlusion combinations are named only when
// the table names the exact value.
std::string get_name_from_type(blob_type_t t);
std::string get_name_from_subtype(blob_subtype_t s);
std::string get_occl_name_from_type(blob_occl_type o);
// Every flag as a token: "OCC:CAM_BOT-OBJ_BOT", "OCC:NONE", "...-OTHER".
// Object-top as the first token is written "CAM_TOP" (a kept slip).
std::string get_occl_name_from_type_detailed(blob_occl_type o);

}  // namespace nerva
