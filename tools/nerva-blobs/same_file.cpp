#include "same_file.h"

#include <sys/stat.h>

#include <string>

#include "errors.h"

namespace nerva_blobs {
namespace {

bool same_file(const std::string& a, const std::string& b)
{
    struct stat sa {
    }, sb{};
    return !a.empty() && !b.empty() && ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 &&
           sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace

void refuse_overwriting_input(const Options& o)
{
    const std::pair<const char*, const std::string*> outputs[] = {{"--output", &o.output},
                                                                  {"--video-out", &o.video_out},
                                                                  {"--overview", &o.overview},
                                                                  {"--annotate", &o.annotate_dir}};
    for (const auto& [option, path] : outputs)
        if (same_file(*path, o.input))
            throw UsageError(std::string(option) + ": '" + *path + "' is the input itself; it would be overwritten");
}

}  // namespace nerva_blobs
