#include "input_kind.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>

namespace fs = std::filesystem;

namespace nerva_pipeline {

bool is_image_name(const std::string& path)
{
    std::string ext = fs::path(path).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    return ext == ".png" || ext == ".pgm" || ext == ".ppm" || ext == ".pnm" || ext == ".pbm" || ext == ".jpg" ||
           ext == ".jpeg";
}

bool is_network_address(const std::string& text)
{
    static const std::regex scheme("^(rtsps?|rtmps?|https?|udp|tcp|rtp|srt)://.+", std::regex::icase);
    return std::regex_match(text, scheme);
}

bool is_v4l2_device(const std::string& path)
{
    constexpr unsigned kVideo4LinuxMajor = 81;
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISCHR(st.st_mode) && major(st.st_rdev) == kVideo4LinuxMajor;
}

InputKind input_kind(const std::string& path)
{
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status)) {
        if (is_network_address(path)) return InputKind::network;
        if (path.find('%') != std::string::npos) return InputKind::pattern;
        return InputKind::missing;
    }
    if (is_v4l2_device(path)) return InputKind::device;
    if (fs::is_directory(status)) return InputKind::directory;
    if (is_image_name(path)) return InputKind::image;
    return InputKind::video;
}

const char* kind_name(InputKind kind)
{
    switch (kind) {
    case InputKind::missing: return "missing";
    case InputKind::network: return "network";
    case InputKind::device: return "device";
    case InputKind::directory: return "directory";
    case InputKind::image: return "image";
    case InputKind::pattern: return "pattern";
    case InputKind::video: return "video";
    }
    return "missing";
}

}  // namespace nerva_pipeline
