#pragma once

#include <string>

// What kind of input a path names, decided the same way by nerva-blobs and
// by Python's blobs_in_video.
namespace nerva_pipeline {

enum class InputKind {
    missing,    // nothing by that name, and not an address or a pattern
    network,    // rtsp://, http(s)://, udp://, tcp://, rtmp://, rtp://, srt://
    device,     // a V4L2 camera (/dev/video0)
    directory,  // its PNG/PGM/PPM/JPEG files in name order
    image,      // one image file
    pattern,    // a printf-style image pattern (frame_%04d.png)
    video,      // anything else that exists: a file for FFmpeg
};

// A file that exists is read as a file, whatever its name holds
// ("cam%20view.avi"); only a name that matches nothing is an address or a
// pattern.
InputKind input_kind(const std::string& path);
const char* kind_name(InputKind kind);

bool is_image_name(const std::string& path);
bool is_network_address(const std::string& text);
bool is_v4l2_device(const std::string& path);

}  // namespace nerva_pipeline
