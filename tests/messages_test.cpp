// The message sink: a host takes the library's messages, stream by stream,
// byte for byte, without touching stdout or stderr.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

namespace {

using Messages = std::vector<std::pair<message_stream_t, std::string>>;

void keep(message_stream_t stream, const char* text, size_t n, void* to)
{
    static_cast<Messages*>(to)->emplace_back(stream, std::string(text, n));
}

}  // namespace

TEST(MessageSink, TakesEveryMessageWithItsStream)
{
    Messages got;
    set_message_sink(keep, &got);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    auto s = std::make_shared<MV_RLEsegm>();
    EXPECT_FALSE(RLEsegm_segmentKAP(cv::Mat(4, 4, CV_8UC1, cv::Scalar(0)), s));  // not initialised
    get_occl_type_from_name("NOT-A-NAME");
    set_message_sink(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].first, MESSAGES_STDERR);
    EXPECT_EQ(got[0].second,
              "RLEsegm_segmentKAP(): segmenter not initialised (call RLEsegm_init_privateKAP first); nothing "
              "segmented\n");
    EXPECT_EQ(got[1].first, MESSAGES_STDOUT);
    EXPECT_EQ(got[1].second, "Warning: unknown occultation type NOT-A-NAME\n");
}

TEST(MessageSink, WithoutASinkMessagesGoBackToTheirStreams)
{
    Messages got;
    set_message_sink(keep, &got);
    set_message_sink(nullptr);
    testing::internal::CaptureStdout();
    get_type_from_name("NOT-A-NAME");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: unknown expected object in context file\n");
    EXPECT_TRUE(got.empty());
}
