#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "segmenter.h"

// JSON Lines: one object per frame, written and flushed as soon as the frame
// is done, so that whatever has been written stays valid if the run stops.
namespace nerva_blobs {

class JsonLinesWriter {
public:
    // Empty path: standard output. RuntimeError when the file cannot be created.
    explicit JsonLinesWriter(const std::string& path);
    ~JsonLinesWriter();
    JsonLinesWriter(const JsonLinesWriter&) = delete;
    JsonLinesWriter& operator=(const JsonLinesWriter&) = delete;

    // RuntimeError when the line cannot be written (disk full, closed pipe).
    void write(long frame, const std::vector<Blob>& blobs);

private:
    std::string name_;
    std::FILE* file_ = nullptr;
    bool owned_ = false;
};

}  // namespace nerva_blobs
