#pragma once

#include <memory>
#include <string>

#include "input.h"
#include "io_module.h"

// Live sources: network streams opened by OpenCV's FFmpeg backend (rtsp,
// rtmp, http(s), udp, tcp) and V4L2 cameras (/dev/videoN). They are opened
// by connect(), reopened after an outage by the reader (reader.h), and never
// end on their own.
namespace nerva_blobs {

enum class LiveKind { network, device };

std::unique_ptr<FrameSource> make_live_source(const std::string& address, LiveKind kind);

// The capture's frame rate when it gives a plausible one, else 25.
double frame_rate(const Capture& capture);

}  // namespace nerva_blobs
