#include <gtest/gtest.h>

#include <string>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

const char kUnknownType[] = "Warning: unknown expected object in context file\n";
const char kUndefinedSubtype[] =
    "Warning: undefined expected object subtype in context file. It must be defined in blob.h and in "
    "functions get_subtype_from_name and get_name_from_subtype\n";

struct Row {
    uint32_t value;
    const char* accepted;  // null: not accepted on input
    const char* produced;
};

const Row kTypes[] = {
    {0, "UNKNOWN", "UNKNOWN"}, {1, "CROWD", "CROWD"}, {2, "PERSON_GROUP", "PERSON_GROUP"},
    {3, "A_GROUP", "A_GROUP"}, {4, "PERSON", "PERSON"}, {5, "CONTEXT_OBJECT", "CONTEXT"},
    {6, "VEHICLE", "VEHICLE"}, {7, "NOISE", "NOISE"}, {8, "VALIDATION", "VALIDATION"}, {9, "CAR", "CAR"},
    {10, "TRUCK", "TRUCK"}, {11, "MOTORCYCLE", "MOTORCYCLE"}, {15, "CHILD", "CHILD"},
    {16, "PARKED_VEHICLE", "PARKED_VEHICLE"}, {17, "FACE", "FACE"}, {18, "TWO-PERSONS", "TWO-PERSONS"},
    {19, "THREE-PERSONS", "THREE-PERSONS"}, {21, "PERSON_BENDING", "PERSON_BENDING"},
    {22, "LEFT_FOOD_CUPBOARD_DOOR", "UNKNOWN"}, {23, "RIGHT_FOOD_CUPBOARD_DOOR", "UNKNOWN"},
    {24, "LEFT_DISH_CUPBOARD_DOOR", "UNKNOWN"}, {25, "RIGHT_DISH_CUPBOARD_DOOR", "UNKNOWN"},
    {26, "CHAIR", "CHAIR"}, {27, "FRIDGEDOOR", "FRIDGEDOOR"}, {28, "MICROWAVE_DOOR", "UNKNOWN"},
    {29, "LUGGAGE", "UNKNOWN"}, {30, "ANY2D", "ANY2D"}, {31, "ANY3D", "ANY3D"},
    {32, "CARGO-VEHICLE", "CARGO-VEHICLE"},
};

const Row kSubtypes[] = {{0, "UNKNOWN", "UNKNOWN"}, {1, nullptr, "UNDEFINED"}, {2, "NO_SUBTYPES", "GLOBAL"},
                         {3, "STANDING", "STANDING"}, {4, "CROUCHING", "CROUCHING"}, {5, "LYING", "LYING"},
                         {6, "ARMUP", "ARMUP"}};

const Row kOcclusions[] = {
    {0x0, "MM_OCCL_NONE", "MM_OCCL_NONE"}, {0x1, "MM_CAM_OCCL_BOTTOM", "MM_CAM_OCCL_BOTTOM"},
    {0x2, "MM_CAM_OCCL_TOP", "MM_CAM_OCCL_TOP"}, {0x4, "MM_CAM_OCCL_LEFT", "MM_CAM_OCCL_LEFT"},
    {0x8, "MM_CAM_OCCL_RIGHT", "MM_CAM_OCCL_RIGHT"}, {0x5, "MM_CAM_OCCL_BOTTOM_LEFT", "MM_CAM_OCCL_BOTTOM_LEFT"},
    {0x9, "MM_CAM_OCCL_BOTTOM_RIGHT", "MM_CAM_OCCL_BOTTOM_RIGHT"}, {0x6, "MM_CAM_OCCL_TOP_LEFT", "MM_CAM_OCCL_TOP_LEFT"},
    {0xA, "MM_CAM_OCCL_TOP_RIGHT", "MM_CAM_OCCL_TOP_RIGHT"}, {0x10, "MM_OBJECT_BOTTOM", "MM_OBJECT_BOTTOM"},
    {0x20, "MM_OBJECT_TOP", "MM_OBJECT_TOP"}, {0x40, "MM_OBJECT_LEFT", "MM_OBJECT_LEFT"},
    {0x80, "MM_OBJECT_RIGHT", "MM_OBJECT_RIGHT"}, {0x50, nullptr, "MM_OBJECT_BOTTOM_LEFT"},
    {0x90, nullptr, "MM_OBJECT_BOTTOM_RIGHT"}, {0x60, nullptr, "MM_OBJECT_TOP_LEFT"},
    {0xA0, nullptr, "MM_OBJECT_TOP_RIGHT"}, {0x2000000, "MM_AOI_OUTSIDE", "MM_AOI_OUTSIDE"},
    {0x4000000, "MM_AOI_REINSIDE", "MM_AOI_REINSIDE"}, {0x8000000, "MM_OBJECT_ON_TOP", "MM_OBJECT_ON_TOP"},
    {0x10000000, "MM_OBJECT_INSIDE", "MM_OBJECT_INSIDE"}, {0x20000000, "MM_OBJECT_SIT", "MM_OBJECT_SIT"},
    {0x40000000, "MM_BLOB_ON_VEHICLE_AOI", "MM_BLOB_ON_VEHICLE_AOI"},
    {0x80000000u, "MM_CAM_TOP_VIEW", "MM_CAM_TOP_VIEW"},
};

// Reads a name with standard output captured; returns what was printed.
template <typename Read>
std::string printed_by(Read read, const char* name, uint32_t* value)
{
    testing::internal::CaptureStdout();
    *value = static_cast<uint32_t>(read(name));
    return testing::internal::GetCapturedStdout();
}

blob_occl_type occl(uint32_t v) { return static_cast<blob_occl_type>(v); }

}  // namespace

TEST(BlobVocabulary, EveryTableRowBothDirections)
{
    uint32_t v;
    for (const Row& r : kTypes) {
        EXPECT_EQ(printed_by(get_type_from_name, r.accepted, &v), "") << r.accepted;
        EXPECT_EQ(v, r.value) << r.accepted;
        EXPECT_EQ(get_name_from_type(static_cast<blob_type_t>(r.value)), r.produced) << r.value;
    }
    for (const Row& r : kSubtypes) {
        EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(r.value)), r.produced) << r.value;
        if (!r.accepted) continue;
        EXPECT_EQ(printed_by(get_subtype_from_name, r.accepted, &v), "") << r.accepted;
        EXPECT_EQ(v, r.value) << r.accepted;
    }
    for (const Row& r : kOcclusions) {
        EXPECT_EQ(get_occl_name_from_type(occl(r.value)), r.produced) << r.value;
        const char* name = r.accepted ? r.accepted : r.produced;  // written-only names warn
        const std::string out = printed_by(get_occl_type_from_name, name, &v);
        EXPECT_EQ(v, r.accepted ? r.value : 0u) << name;
        EXPECT_EQ(out, r.accepted ? "" : std::string("Warning: unknown occultation type ") + name + "\n");
    }
}

TEST(BlobVocabulary, FallbacksForUnknownNamesAndCodes)
{
    uint32_t v;
    // "CONTEXT" is only written; names are exact and case-sensitive.
    for (const char* name : {"CONTEXT", "person", "PERSON ", "", "CARGO_VEHICLE"}) {
        EXPECT_EQ(printed_by(get_type_from_name, name, &v), kUnknownType) << name;
        EXPECT_EQ(v, 0u);
    }
    // An unknown subtype name gives the undefined subtype (1), not 0.
    for (const char* name : {"GLOBAL", "UNDEFINED", "standing"}) {
        EXPECT_EQ(printed_by(get_subtype_from_name, name, &v), kUndefinedSubtype) << name;
        EXPECT_EQ(v, 1u);
    }
    EXPECT_EQ(printed_by(get_occl_type_from_name, "MM_OCCL_OTHER", &v),
              "Warning: unknown occultation type MM_OCCL_OTHER\n");

    for (int t : {12, 13, 14, 20, 33, -1}) EXPECT_EQ(get_name_from_type(static_cast<blob_type_t>(t)), "UNKNOWN");
    for (int s : {7, -3}) EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(s)), "UNDEFINED");
    for (uint32_t o : {0x3u, 0x11u, 0x100u, 0x1000u, 0xFFFFFFFFu})
        EXPECT_EQ(get_occl_name_from_type(occl(o)), "MM_OCCL_OTHER") << o;

    // Warnings land in order with the host's own standard output.
    testing::internal::CaptureStdout();
    std::printf("a\n");
    get_type_from_name("x");
    std::printf("b\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("a\n") + kUnknownType + "b\n");
}

TEST(BlobVocabulary, DetailedOcclusionForm)
{
    const struct {
        uint32_t value;
        const char* text;
    } rows[] = {
        {0x0, "OCC:NONE"}, {0x3, "OCC:CAM_BOT-CAM_TOP"}, {0x11, "OCC:CAM_BOT-OBJ_BOT"},
        {0x80000000u, "OCC:TOP_VIE"}, {0x1000, "OCC:OTHER"}, {0x1001, "OCC:CAM_BOT-OTHER"},
        // Object-top leading the list reads as camera-top; later it does not.
        {0x20, "OCC:CAM_TOP"}, {0x30, "OCC:OBJ_BOT-OBJ_TOP"}, {0x22, "OCC:CAM_TOP-OBJ_TOP"},
        // Fixed order, not the order of the values.
        {0x2000010, "OCC:AOI_OUT-OBJ_BOT"}, {0xC0, "OCC:OBJ_RIG-OBJ_LEF"}, {0x40000080, "OCC:AOI_VEH-OBJ_RIG"},
        {0xF0F00, "OCC:DYN_BOT-DYN_TOP-DYN_LEF-DYN_RIG-TOT_OCC-OBJ_LOS-PAR_DET-PAR_BIG"},
        {0x3C000008, "OCC:CAM_RIG-AOI_REI-OBJ_ONT-OBJ_INS-OBJ_SIT"}, {0x80000004u, "OCC:CAM_LEF-TOP_VIE"},
    };
    for (const auto& r : rows) EXPECT_EQ(get_occl_name_from_type_detailed(occl(r.value)), r.text) << r.value;
}
