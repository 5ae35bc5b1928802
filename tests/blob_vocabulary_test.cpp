#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

const char kUnknownType[] = "Warning: unknown expected object in context file\n";
const char kUndefinedSubtype[] =
    "Warning: undefined expected object subtype in context file. It must be defined in blob.h and in "
    "functions get_subtype_from_name and get_name_from_subtype\n";

struct TypeRow {
    int value;
    const char* accepted;
    const char* produced;
};

const std::vector<TypeRow> kTypes = {
    {0, "UNKNOWN", "UNKNOWN"},
    {1, "CROWD", "CROWD"},
    {2, "PERSON_GROUP", "PERSON_GROUP"},
    {3, "A_GROUP", "A_GROUP"},
    {4, "PERSON", "PERSON"},
    {5, "CONTEXT_OBJECT", "CONTEXT"},
    {6, "VEHICLE", "VEHICLE"},
    {7, "NOISE", "NOISE"},
    {8, "VALIDATION", "VALIDATION"},
    {9, "CAR", "CAR"},
    {10, "TRUCK", "TRUCK"},
    {11, "MOTORCYCLE", "MOTORCYCLE"},
    {15, "CHILD", "CHILD"},
    {16, "PARKED_VEHICLE", "PARKED_VEHICLE"},
    {17, "FACE", "FACE"},
    {18, "TWO-PERSONS", "TWO-PERSONS"},
    {19, "THREE-PERSONS", "THREE-PERSONS"},
    {21, "PERSON_BENDING", "PERSON_BENDING"},
    {22, "LEFT_FOOD_CUPBOARD_DOOR", "UNKNOWN"},
    {23, "RIGHT_FOOD_CUPBOARD_DOOR", "UNKNOWN"},
    {24, "LEFT_DISH_CUPBOARD_DOOR", "UNKNOWN"},
    {25, "RIGHT_DISH_CUPBOARD_DOOR", "UNKNOWN"},
    {26, "CHAIR", "CHAIR"},
    {27, "FRIDGEDOOR", "FRIDGEDOOR"},
    {28, "MICROWAVE_DOOR", "UNKNOWN"},
    {29, "LUGGAGE", "UNKNOWN"},
    {30, "ANY2D", "ANY2D"},
    {31, "ANY3D", "ANY3D"},
    {32, "CARGO-VEHICLE", "CARGO-VEHICLE"},
};

struct OcclRow {
    uint32_t value;
    const char* name;
    bool accepted;
};

const std::vector<OcclRow> kNamedOcclusions = {
    {0x0, "MM_OCCL_NONE", true},
    {0x1, "MM_CAM_OCCL_BOTTOM", true},
    {0x2, "MM_CAM_OCCL_TOP", true},
    {0x4, "MM_CAM_OCCL_LEFT", true},
    {0x8, "MM_CAM_OCCL_RIGHT", true},
    {0x5, "MM_CAM_OCCL_BOTTOM_LEFT", true},
    {0x9, "MM_CAM_OCCL_BOTTOM_RIGHT", true},
    {0x6, "MM_CAM_OCCL_TOP_LEFT", true},
    {0xA, "MM_CAM_OCCL_TOP_RIGHT", true},
    {0x10, "MM_OBJECT_BOTTOM", true},
    {0x20, "MM_OBJECT_TOP", true},
    {0x40, "MM_OBJECT_LEFT", true},
    {0x80, "MM_OBJECT_RIGHT", true},
    {0x50, "MM_OBJECT_BOTTOM_LEFT", false},
    {0x90, "MM_OBJECT_BOTTOM_RIGHT", false},
    {0x60, "MM_OBJECT_TOP_LEFT", false},
    {0xA0, "MM_OBJECT_TOP_RIGHT", false},
    {0x2000000, "MM_AOI_OUTSIDE", true},
    {0x4000000, "MM_AOI_REINSIDE", true},
    {0x8000000, "MM_OBJECT_ON_TOP", true},
    {0x10000000, "MM_OBJECT_INSIDE", true},
    {0x20000000, "MM_OBJECT_SIT", true},
    {0x40000000, "MM_BLOB_ON_VEHICLE_AOI", true},
    {0x80000000u, "MM_CAM_TOP_VIEW", true},
};

blob_occl_type occl(uint32_t v) { return static_cast<blob_occl_type>(v); }

}  // namespace

TEST(BlobVocabulary, TypesBothDirections)
{
    for (const auto& row : kTypes) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_type_from_name(row.accepted), row.value) << row.accepted;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << row.accepted;
        EXPECT_EQ(get_name_from_type(static_cast<blob_type_t>(row.value)), row.produced) << row.value;
    }
    for (int unused : {12, 13, 14, 20, 33, -1})
        EXPECT_EQ(get_name_from_type(static_cast<blob_type_t>(unused)), "UNKNOWN") << unused;
}

TEST(BlobVocabulary, UnknownTypeNamesWarnAndGiveUnknown)
{
    // "CONTEXT" is only ever written; names are case-sensitive and exact.
    for (const char* name : {"CONTEXT", "person", "PERSON ", "", "CARGO_VEHICLE", "TWO_PERSONS"}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_type_from_name(name), UNKNOWN) << name;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), kUnknownType) << name;
    }
}

TEST(BlobVocabulary, SubtypesBothDirections)
{
    const struct {
        int value;
        const char* accepted;
        const char* produced;
    } rows[] = {{0, "UNKNOWN", "UNKNOWN"}, {2, "NO_SUBTYPES", "GLOBAL"}, {3, "STANDING", "STANDING"},
                {4, "CROUCHING", "CROUCHING"}, {5, "LYING", "LYING"},  {6, "ARMUP", "ARMUP"}};
    for (const auto& row : rows) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_subtype_from_name(row.accepted), row.value);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(row.value)), row.produced);
    }
    EXPECT_EQ(get_name_from_subtype(SUBTYPE_UNDEFINED), "UNDEFINED");
    EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(7)), "UNDEFINED");
    EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(-3)), "UNDEFINED");

    // An unknown name gives the undefined subtype (1), not UNKNOWN (0).
    for (const char* name : {"GLOBAL", "UNDEFINED", "standing"}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_subtype_from_name(name), SUBTYPE_UNDEFINED) << name;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), kUndefinedSubtype) << name;
    }
}

TEST(BlobVocabulary, OcclusionNamesBothDirections)
{
    for (const auto& row : kNamedOcclusions) {
        EXPECT_EQ(get_occl_name_from_type(occl(row.value)), row.name) << row.value;
        testing::internal::CaptureStdout();
        const blob_occl_type read = get_occl_type_from_name(row.name);
        const std::string out = testing::internal::GetCapturedStdout();
        if (row.accepted) {
            EXPECT_EQ(static_cast<uint32_t>(read), row.value) << row.name;
            EXPECT_EQ(out, "") << row.name;
        } else {
            EXPECT_EQ(read, MM_OCCL_NONE) << row.name;
            EXPECT_EQ(out, std::string("Warning: unknown occultation type ") + row.name + "\n");
        }
    }
    // Only exact values are named.
    for (uint32_t other : {0x3u, 0x11u, 0x100u, 0x10000u, 0x1000u, 0xFFFFFFFFu})
        EXPECT_EQ(get_occl_name_from_type(occl(other)), "MM_OCCL_OTHER") << other;

    testing::internal::CaptureStdout();
    EXPECT_EQ(get_occl_type_from_name("MM_OCCL_OTHER"), MM_OCCL_NONE);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: unknown occultation type MM_OCCL_OTHER\n");
}

TEST(BlobVocabulary, WarningsInterleaveWithOtherStdout)
{
    testing::internal::CaptureStdout();
    std::printf("before\n");
    get_type_from_name("nothing");
    std::printf("between\n");
    get_occl_type_from_name("x");
    std::printf("after\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("before\n") + kUnknownType + "between\nWarning: unknown occultation type x\nafter\n");
}

TEST(BlobVocabulary, DetailedOcclusionForm)
{
    const struct {
        uint32_t value;
        const char* text;
    } rows[] = {
        {0x0, "OCC:NONE"},
        {0x1, "OCC:CAM_BOT"},
        {0x3, "OCC:CAM_BOT-CAM_TOP"},
        {0x11, "OCC:CAM_BOT-OBJ_BOT"},
        {0x80000000u, "OCC:TOP_VIE"},
        {0x1000, "OCC:OTHER"},
        {0x1001, "OCC:CAM_BOT-OTHER"},
        // Object-top leading the list reads as camera-top; later it does not.
        {0x20, "OCC:CAM_TOP"},
        {0x30, "OCC:OBJ_BOT-OBJ_TOP"},
        {0x22, "OCC:CAM_TOP-OBJ_TOP"},
        // Fixed order, not the order of the values.
        {0x2000010, "OCC:AOI_OUT-OBJ_BOT"},
        {0xC0, "OCC:OBJ_RIG-OBJ_LEF"},
        {0x40000080, "OCC:AOI_VEH-OBJ_RIG"},
        {0xF0F00, "OCC:DYN_BOT-DYN_TOP-DYN_LEF-DYN_RIG-TOT_OCC-OBJ_LOS-PAR_DET-PAR_BIG"},
        {0x3C000000, "OCC:AOI_REI-OBJ_ONT-OBJ_INS-OBJ_SIT"},
        {0x80000004u, "OCC:CAM_LEF-TOP_VIE"},
        {0x8, "OCC:CAM_RIG"},
    };
    for (const auto& row : rows) EXPECT_EQ(get_occl_name_from_type_detailed(occl(row.value)), row.text) << row.value;
}
