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

// Reads a name with standard output captured; returns what was printed.
template <typename Read>
std::string printed_by(Read read, const char* name, uint32_t* value)
{
    testing::internal::CaptureStdout();
    *value = static_cast<uint32_t>(read(name));
    return testing::internal::GetCapturedStdout();
}

blob_type_t type(int t) { return static_cast<blob_type_t>(t); }
blob_occl_type occl(uint32_t v) { return static_cast<blob_occl_type>(v); }

}  // namespace

TEST(BlobVocabulary, TypeSubtypeAndOcclusionTablesWithOneWayNames)
{
    const std::pair<uint32_t, const char*> read_only[] = {{5, "CONTEXT_OBJECT"},
                                                          {22, "LEFT_FOOD_CUPBOARD_DOOR"},
                                                          {23, "RIGHT_FOOD_CUPBOARD_DOOR"},
                                                          {24, "LEFT_DISH_CUPBOARD_DOOR"},
                                                          {25, "RIGHT_DISH_CUPBOARD_DOOR"},
                                                          {28, "MICROWAVE_DOOR"},
                                                          {29, "LUGGAGE"}};
    uint32_t v;
    for (auto [value, name] : read_only) {
        EXPECT_EQ(printed_by(get_type_from_name, name, &v), "") << name;
        EXPECT_EQ(v, value) << name;
        EXPECT_EQ(get_name_from_type(type(value)), value == 5 ? "CONTEXT" : "UNKNOWN") << value;
    }
    EXPECT_EQ(get_name_from_type(PERSON), std::string("PERSON"));
    EXPECT_EQ(get_type_from_name("TWO-PERSONS"), TWO_PERSONS);

    const char* produced[] = {"UNKNOWN", "UNDEFINED", "GLOBAL", "STANDING", "CROUCHING", "LYING", "ARMUP"};
    const char* accepted[] = {"UNKNOWN", nullptr, "NO_SUBTYPES", "STANDING", "CROUCHING", "LYING", "ARMUP"};
    for (uint32_t s = 0; s < 7; ++s) {
        EXPECT_EQ(get_name_from_subtype(static_cast<blob_subtype_t>(s)), produced[s]) << s;
        if (!accepted[s]) continue;
        EXPECT_EQ(printed_by(get_subtype_from_name, accepted[s], &v), "") << accepted[s];
        EXPECT_EQ(v, s) << accepted[s];
    }

    const std::pair<uint32_t, const char*> pinned[] = {{0x0, "MM_OCCL_NONE"},
                                                       {0x6, "MM_CAM_OCCL_TOP_LEFT"},
                                                       {0x50, "MM_OBJECT_BOTTOM_LEFT"},
                                                       {0x90, "MM_OBJECT_BOTTOM_RIGHT"},
                                                       {0x60, "MM_OBJECT_TOP_LEFT"},
                                                       {0xA0, "MM_OBJECT_TOP_RIGHT"},
                                                       {0x40000000, "MM_BLOB_ON_VEHICLE_AOI"},
                                                       {0x80000000u, "MM_CAM_TOP_VIEW"}};
    for (auto [value, name] : pinned) EXPECT_EQ(get_occl_name_from_type(occl(value)), name) << value;

    // The names fuzzer holds the round trips; the object corners are only written.
    for (uint32_t o : {0x50u, 0x90u, 0x60u, 0xA0u}) {
        const std::string name = get_occl_name_from_type(occl(o));
        EXPECT_EQ(printed_by(get_occl_type_from_name, name.c_str(), &v),
                  "Warning: unknown occultation type " + name + "\n");
        EXPECT_EQ(v, 0u) << name;
    }
}

TEST(BlobVocabulary, FallbacksForUnknownNamesAndCodesAndTheDetailedForm)
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
    EXPECT_EQ(get_name_from_type(type(-1)), std::string("UNKNOWN"));
    EXPECT_EQ(get_occl_name_from_type(occl(0x11)), std::string("MM_OCCL_OTHER"));

    // Warnings land in order with the host's own standard output.
    testing::internal::CaptureStdout();
    std::printf("a\n");
    get_type_from_name("x");
    std::printf("b\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("a\n") + kUnknownType + "b\n");

    // Every code's detailed form is held by the names fuzzer; these are the quirks:
    // object-top leading the list reads as camera-top (later it does not),
    // the fixed order is not the order of the values, "OTHER" comes last.
    const std::pair<uint32_t, const char*> rows[] = {{0x0, "OCC:NONE"},
                                                     {0x20, "OCC:CAM_TOP"},
                                                     {0x22, "OCC:CAM_TOP-OBJ_TOP"},
                                                     {0xC0, "OCC:OBJ_RIG-OBJ_LEF"},
                                                     {0x1001, "OCC:CAM_BOT-OTHER"}};
    for (auto [value, text] : rows) EXPECT_EQ(get_occl_name_from_type_detailed(occl(value)), text) << value;
}
