#pragma once

#include <memory>
#include <string>
#include <thread>

#include "live_view.h"

// --serve: a small HTTP server beside the pipeline, on its own threads.
//   /             the live page (page.html, built in)
//   /stream.mjpg  the annotated frames as MJPEG
//   /events       the JSON lines as Server-Sent Events, and the state
//   /metrics      Prometheus text
//   /healthz      200 while frames arrive, else 503
namespace nerva_blobs {

struct ListenAddress {
    std::string host = "127.0.0.1";
    int port = 0;  // 0: any free port
};

// "[HOST:]PORT", HOST a name, an IPv4 address or [IPv6]; the loopback
// address when absent, so that nothing is exposed unless asked.
// UsageError when it cannot be read.
ListenAddress parse_listen_address(const std::string& text);

class LiveServer {
public:
    // Listens at once; RuntimeError when the address cannot be bound.
    LiveServer(const ListenAddress& address, std::shared_ptr<LiveView> view);
    // Ends every client and stops within half a second: a thread still blocked
    // writing to a stalled client is left to the process's end (abandoned()).
    ~LiveServer();
    LiveServer(const LiveServer&) = delete;
    LiveServer& operator=(const LiveServer&) = delete;

    std::string url() const { return url_; }
    static bool abandoned();

private:
    struct State;
    std::shared_ptr<State> state_;
    std::string url_;
};

}  // namespace nerva_blobs
