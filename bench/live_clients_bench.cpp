// nerva-blobs --serve with 50 clients of /stream.mjpg, half of them never
// reading, on a 160x120 25 fps camera that ffmpeg serves over loopback:
// frames per second and resident memory without the clients and with them,
// and how long SIGTERM takes with the stalled ones still connected
// (make bench-live; BENCHMARKS.md quotes its lines).
#include "live_test_support.h"

namespace {

long status_kb(int pid, const char* field)
{
    const std::string status = slurp("/proc/" + std::to_string(pid) + "/status");
    const auto at = status.find(field);
    return at == std::string::npos ? -1 : std::stol(status.substr(at + std::strlen(field)));
}

int fail(const std::string& why, const fs::path& dir)
{
    std::fprintf(stderr, "live_clients_bench: %s\n%s", why.c_str(), slurp(dir / "err.txt").c_str());
    return 1;
}

}  // namespace

int main()
{
    const fs::path dir = fs::path(NERVA_BLOBS_SCRATCH) / ("live-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);
    const std::string make_clip = "cd '" + dir.string() +
                                  "' && ffmpeg -nostdin -loglevel error -y -f lavfi -i testsrc=size=160x120:rate=25 "
                                  "-t 3 -c:v mpeg2video -g 5 -f mpegts pattern.ts";
    if (std::system(make_clip.c_str()) != 0) return fail("ffmpeg could not make the clip", dir);
    const std::string url = "http://127.0.0.1:" + std::to_string(free_port()) + "/camera.ts";
    Child server("ffmpeg -nostdin -loglevel quiet -re -stream_loop -1 -i pattern.ts -c copy -f mpegts -listen 1 " + url,
                 dir);
    if (!wait_until([&] { return listening(std::stoi(url.substr(url.rfind(':') + 1))); }, 20s))
        return fail("ffmpeg does not listen", dir);
    Child program("'" NERVA_BLOBS_EXE "' " + url + " -o live.jsonl --serve 0 2>err.txt", dir);
    const auto lines = [&] { return json_lines(slurp(dir / "live.jsonl")).size(); };
    std::string address;
    if (!wait_until([&] { return !(address = page_address(dir / "err.txt")).empty(); }))
        return fail("no live page", dir);
    if (!wait_until([&] { return lines() >= 50; })) return fail("no frames", dir);
    const auto rate = [&](size_t frames) {  // lines per second over the next `frames` lines
        const size_t from = lines();
        const auto start = steady::now();
        wait_until([&] { return lines() >= from + frames; }, 60s);
        return (lines() - from) / std::chrono::duration<double>(steady::now() - start).count();
    };
    const double alone = rate(100);
    const long rss_alone = status_kb(program.pid(), "VmRSS:");

    std::vector<std::unique_ptr<PictureReader>> readers;
    std::vector<int> stalled;
    for (int i = 0; i < 25; ++i) {
        readers.push_back(std::make_unique<PictureReader>(address));
        stalled.push_back(stalled_client(address));
    }
    const double watched = rate(100);
    for (const auto& reader : readers)
        if (!wait_until([&] { return reader->pictures() >= 50; }, 60s)) return fail("a reader gets no pictures", dir);
    const long rss_watched = status_kb(program.pid(), "VmRSS:");
    const long peak = status_kb(program.pid(), "VmHWM:");

    program.signal(SIGTERM);
    const auto asked = steady::now();
    if (program.wait(20s) != 0) return fail("SIGTERM did not end the run cleanly", dir);
    const double stop_s = std::chrono::duration<double>(steady::now() - asked).count();
    for (int fd : stalled) close(fd);
    std::printf(
        "%.1f frames/s alone, %.1f with 50 clients; RSS %ld kB alone, %ld kB with them (peak %ld kB); "
        "stopped in %.2f s\n%s",
        alone, watched, rss_alone, rss_watched, peak, stop_s, slurp(dir / "err.txt").c_str());
    readers.clear();
    fs::remove_all(dir);
    return 0;
}
