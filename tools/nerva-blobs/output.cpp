#include "output.h"

#include <cerrno>
#include <cstring>

#include <nlohmann/json.hpp>

#include "errors.h"

namespace nerva_blobs {

JsonLinesWriter::JsonLinesWriter(const std::string& path) : name_(path.empty() ? "standard output" : path)
{
    if (path.empty()) {
        file_ = stdout;
        return;
    }
    file_ = std::fopen(path.c_str(), "w");
    if (!file_) throw RuntimeError("cannot write '" + path + "': " + std::strerror(errno));
    owned_ = true;
}

JsonLinesWriter::~JsonLinesWriter()
{
    if (owned_) std::fclose(file_);
}

void JsonLinesWriter::write(long frame, const std::vector<Blob>& blobs)
{
    nlohmann::ordered_json line = {{"frame", frame}, {"blobs", nlohmann::ordered_json::array()}};
    for (const Blob& b : blobs)
        line["blobs"].push_back({{"id", b.id},
                                 {"bbox", {b.xmin, b.ymin, b.xmax, b.ymax}},
                                 {"width", b.width},
                                 {"height", b.height},
                                 {"npix", b.npix},
                                 {"xc", b.xc},
                                 {"yc", b.yc}});
    const std::string text = line.dump() + '\n';
    if (std::fwrite(text.data(), 1, text.size(), file_) != text.size() || std::fflush(file_) != 0)
        throw RuntimeError("cannot write to " + name_ + ": " + std::strerror(errno));
}

}  // namespace nerva_blobs
