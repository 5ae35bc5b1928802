#pragma once

#include <cstdio>
#include <vector>

// What a run did, for the closing lines on standard error.
namespace nerva_blobs {

class Summary {
public:
    // Times in milliseconds for one frame.
    void add(int blobs, double decode_ms, double foreground_ms, double segment_ms);
    void print(std::FILE* to) const;
    long frames() const { return static_cast<long>(blobs_.size()); }

private:
    std::vector<int> blobs_;
    std::vector<double> decode_, foreground_, segment_;
};

}  // namespace nerva_blobs
