#include "serve.h"

#include <httplib.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <regex>

#include "errors.h"

namespace nerva_blobs {

extern const char* const kLivePage;  // page.html, built in (live_page.cpp)

namespace {

using namespace std::chrono_literals;

// Streaming clients hold one thread each (their limit is in live_view.cpp);
// a few more threads keep the page, /metrics and /healthz answering.
constexpr int kThreads = 64 + 8;
// A client that takes nothing for this long is stalled and let go.
constexpr auto kWriteTimeout = 2s;
// How often a waiting stream looks whether the run ends.
constexpr auto kPoll = 250ms;
// The state goes to the page at least this often (fps, times).
constexpr auto kStatusEvery = 1s;
constexpr const char* kBoundary = "nervaframe";

std::atomic<bool> abandoned_flag{false};

void serve_pictures(LiveView& view, httplib::Response& res)
{
    res.set_header("Cache-Control", "no-store");
    res.set_chunked_content_provider(
        std::string("multipart/x-mixed-replace; boundary=") + kBoundary,
        [&view, seen = uint64_t{0}](size_t, httplib::DataSink& sink) mutable {
            const Text picture = view.next_picture(seen, kPoll);
            if (view.closed()) return false;
            if (!picture) return true;
            const std::string head =
                std::string("--") + kBoundary +
                "\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture->size()) + "\r\n\r\n";
            return sink.write(head.data(), head.size()) && sink.write(picture->data(), picture->size()) &&
                   sink.write("\r\n", 2);
        },
        [&view](bool) { view.leave(true); });
}

void serve_events(LiveView& view, httplib::Response& res)
{
    res.set_header("Cache-Control", "no-store");
    struct Position {
        uint64_t line = 0, status = ~uint64_t{0};
        std::chrono::steady_clock::time_point status_sent{};
    };
    res.set_chunked_content_provider(
        "text/event-stream",
        [&view, at = Position{}](size_t, httplib::DataSink& sink) mutable {
            for (const Text& line : view.next_lines(at.line, kPoll)) {
                // A JSON line holds no newline, so it is one data field.
                const std::string event = "data: " + *line + "\n\n";
                if (!sink.write(event.data(), event.size())) return false;
            }
            // The last state goes out too when the run ends.
            const bool closed = view.closed();
            uint64_t version = 0;
            const std::string status = view.status_json(&version);
            const auto now = std::chrono::steady_clock::now();
            if (closed || version != at.status || now - at.status_sent >= kStatusEvery) {
                const std::string event = "event: status\ndata: " + status + "\n\n";
                if (!sink.write(event.data(), event.size())) return false;
                at.status = version;
                at.status_sent = now;
            }
            return !closed;
        },
        [&view](bool) { view.leave(false); });
}

}  // namespace

struct LiveServer::State {
    std::shared_ptr<LiveView> view;
    httplib::Server http;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable stopped;
    bool done = false;
};

ListenAddress parse_listen_address(const std::string& text)
{
    static const std::regex form(R"(^(?:(\[[0-9A-Fa-f:.]+\]|[^:\[\]]+):)?([0-9]{1,5})$)");
    std::smatch m;
    if (!std::regex_match(text, m, form) || std::stoi(m[2]) > 65535)
        throw UsageError("--serve: '" + text + "' is not [HOST:]PORT (a port from 0 to 65535)");
    ListenAddress a;
    if (m[1].matched) {
        a.host = m[1];
        if (a.host.front() == '[') a.host = a.host.substr(1, a.host.size() - 2);
    }
    a.port = std::stoi(m[2]);
    return a;
}

LiveServer::LiveServer(const ListenAddress& address, std::shared_ptr<LiveView> view) : state_(std::make_shared<State>())
{
    state_->view = view;
    httplib::Server& http = state_->http;
    http.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    http.set_write_timeout(kWriteTimeout);
    http.set_read_timeout(5s);
    http.set_keep_alive_timeout(2);

    // The handlers keep the view alive: a thread left behind may still use it.
    http.Get("/", [view](const httplib::Request&, httplib::Response& res) {
        res.set_header("Cache-Control", "no-store");
        res.set_content(kLivePage, "text/html; charset=utf-8");
    });
    // The streams: a place among the clients, or 503.
    for (const bool pictures : {true, false})
        http.Get(pictures ? "/stream.mjpg" : "/events",
                 [view, pictures](const httplib::Request&, httplib::Response& res) {
                     if (!view->enter(pictures)) {
                         res.status = 503;
                         res.set_content("too many clients\n", "text/plain");
                     } else if (pictures) {
                         serve_pictures(*view, res);
                     } else {
                         serve_events(*view, res);
                     }
                 });
    http.Get("/metrics", [view](const httplib::Request&, httplib::Response& res) {
        res.set_content(view->metrics(), "text/plain; version=0.0.4; charset=utf-8");
    });
    http.Get("/healthz", [view](const httplib::Request&, httplib::Response& res) {
        const bool healthy = view->healthy();
        res.status = healthy ? 200 : 503;
        res.set_content(healthy ? "ok\n" : std::string(view->closed() ? "ended" : "no frames") + "\n", "text/plain");
    });

    int port = address.port;
    const bool bound =
        port == 0 ? (port = http.bind_to_any_port(address.host)) > 0 : http.bind_to_port(address.host, port);
    if (!bound)
        throw RuntimeError("--serve: cannot listen on " + address.host + ":" + std::to_string(address.port) + ": " +
                           std::strerror(errno));
    const bool v6 = address.host.find(':') != std::string::npos;
    url_ = "http://" + (v6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(port) + "/";
    state_->thread = std::thread([state = state_] {
        state->http.listen_after_bind();
        std::lock_guard<std::mutex> lock(state->mutex);
        state->done = true;
        state->stopped.notify_all();
    });
}

LiveServer::~LiveServer()
{
    state_->view->close();
    // stop() does nothing to a server not yet listening.
    for (int i = 0; i < 100 && !state_->http.is_running(); ++i) {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->done) break;
        std::this_thread::sleep_for(5ms);
    }
    state_->http.stop();
    std::unique_lock<std::mutex> lock(state_->mutex);
    if (state_->stopped.wait_for(lock, 400ms, [&] { return state_->done; })) {
        lock.unlock();
        state_->thread.join();
    } else {
        lock.unlock();
        state_->thread.detach();
        abandoned_flag = true;
    }
}

bool LiveServer::abandoned() { return abandoned_flag; }

}  // namespace nerva_blobs
