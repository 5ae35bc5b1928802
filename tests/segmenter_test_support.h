#pragma once
// Helpers shared by the segmenter's tests.
#include <algorithm>
#include <string>
#include <vector>

#include "nerva/messages.h"
#include "nerva/nerva.h"

namespace segmenter_test {

using namespace nerva;

// A segmenter over the whole width x height frame, exact unless steps are given.
inline segm_ptr segmenter_for(int width, int height, int step_x = 1, int step_y = 1)
{
    auto s = std::make_shared<MV_RLEsegm>();
    RLEsegm_init_privateKAP(s, 0, width - 1, 0, height - 1, width, height);
    RLEsegm_set_steps(s, step_x, step_y);
    return s;
}
inline segm_ptr segmenter_for(const cv::Mat& m, int step_x = 1, int step_y = 1)
{
    return segmenter_for(m.cols, m.rows, step_x, step_y);
}

// Any character but '.' is foreground.
inline cv::Mat mask_from(const std::vector<std::string>& rows)
{
    cv::Mat m(static_cast<int>(rows.size()), static_cast<int>(rows[0].size()), CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < m.rows; ++y)
        for (int x = 0; x < m.cols; ++x) m.at<uchar>(y, x) = rows[y][x] == '.' ? 0 : 200;
    return m;
}

// The blobs of a list, at most one past the pool's 2000 (a loop shows as 2001).
inline std::vector<RLEblob*> blobs_of(const std::shared_ptr<RLEblob>& head)
{
    std::vector<RLEblob*> v;
    for (RLEblob* b = head.get(); b && v.size() <= 2000; b = b->next.get()) v.push_back(b);
    return v;
}
inline int count_blobs(const std::shared_ptr<RLEblob>& head) { return static_cast<int>(blobs_of(head).size()); }

// Takes the library's messages for the life of the object.
struct CapturedMessages {
    std::string text;
    CapturedMessages()
    {
        set_message_sink([](message_stream_t, const char* t, size_t n,
                            void* self) { static_cast<CapturedMessages*>(self)->text.append(t, n); },
                         this);
    }
    ~CapturedMessages() { set_message_sink(nullptr); }
    long lines() const { return std::count(text.begin(), text.end(), '\n'); }
};

}  // namespace segmenter_test
