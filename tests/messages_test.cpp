// The message sink: a host takes the library's messages, stream by stream,
// byte for byte, without touching stdout or stderr.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "nerva/nerva.h"

using namespace nerva;

TEST(MessageSink, TakesEveryMessageWithItsStreamAndGivesThemBack)
{
    using Messages = std::vector<std::pair<message_stream_t, std::string>>;
    Messages got;
    set_message_sink([](message_stream_t stream, const char* text, size_t n,
                        void* to) { static_cast<Messages*>(to)->emplace_back(stream, std::string(text, n)); },
                     &got);
    auto s = std::make_shared<MV_RLEsegm>();
    EXPECT_FALSE(RLEsegm_segmentKAP(cv::Mat(4, 4, CV_8UC1, cv::Scalar(0)), s));  // not initialised
    get_occl_type_from_name("NOT-A-NAME");
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    set_message_sink(nullptr);
    get_type_from_name("NOT-A-NAME");
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();

    EXPECT_EQ(got, (Messages{{MESSAGES_STDERR,
                              "RLEsegm_segmentKAP(): segmenter not initialised (call RLEsegm_init_privateKAP "
                              "first); nothing segmented\n"},
                             {MESSAGES_STDOUT, "Warning: unknown occultation type NOT-A-NAME\n"}}));
    EXPECT_EQ(out, "Warning: unknown expected object in context file\n");  // the default is back
    EXPECT_EQ(err, "");
}
