// Live sources: ffmpeg serves a clip as MPEG-TS over loopback HTTP, read as a
// camera. Waits have generous deadlines: a loaded machine slows, not fails.
#include <ctime>
#include <map>
#include <opencv2/videoio.hpp>
#include <regex>

#include "live_test_support.h"

namespace {

class LiveSource : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (std::system("command -v ffmpeg >/dev/null") != 0) return;
        dir_ = fs::path(NERVA_BLOBS_SCRATCH) / ("live-" + std::to_string(getpid()));
        fs::create_directories(dir_);
        // A moving test pattern.
        run_ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25 -t 3 -c:v mpeg2video -g 5 -f mpegts pattern.ts");
        // A camera giving a frame in two seconds.
        run_ffmpeg("-f lavfi -i testsrc=size=160x120:rate=0.5 -t 12 -c:v libx264 -g 1 -f mpegts slow.ts");
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }  // nothing when ffmpeg is missing
    void SetUp() override
    {
        if (dir_.empty()) GTEST_SKIP() << "ffmpeg is not installed (scripts/setup.sh installs it)";
        port_ = free_port();
        for (const char* name : {"live.jsonl", "live.mkv", "err.txt"}) fs::remove(dir_ / name);  // earlier tests'
    }

    static void run_ffmpeg(const std::string& args)
    {
        const std::string cmd = "cd '" + dir_.string() + "' && ffmpeg -nostdin -loglevel error -y " + args;
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/camera.ts"; }

    // Serves `clip` in a loop at its frame rate to one client, as a camera
    // would. The first time, waits until it listens (a client retrying may
    // take the one connection before the listening socket is seen).
    std::unique_ptr<Child> serve(const std::string& clip, bool first = true) const
    {
        auto server = std::make_unique<Child>(
            "ffmpeg -nostdin -loglevel quiet -re -stream_loop -1 -i " + clip + " -c copy -f mpegts -listen 1 " + url(),
            dir_);
        if (first && !wait_until([&] { return listening(port_); }, 20s)) ADD_FAILURE() << "ffmpeg does not listen";
        return server;
    }

    // Frame numbers grow, and skip exactly the frames said to be dropped.
    static void expect_consistent(const std::vector<json>& lines)
    {
        for (size_t i = 1; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i]["frame"].get<long>() - lines[i - 1]["frame"].get<long>() - 1,
                      lines[i]["dropped"].get<long>())
                << lines[i - 1]["frame"] << " then " << lines[i]["frame"];
            EXPECT_GE(lines[i]["time"].get<double>(), lines[i - 1]["time"].get<double>());
        }
    }

    // The program reading url() with `args`, its JSON lines in live.jsonl,
    // its standard error in err.txt.
    std::unique_ptr<Child> run(const std::string& args) const
    {
        return std::make_unique<Child>("'" NERVA_BLOBS_EXE "' " + url() + " -o live.jsonl " + args + " 2>err.txt",
                                       dir_);
    }
    std::vector<json> lines() const { return json_lines(slurp(dir_ / "live.jsonl")); }
    std::string err() const { return slurp(dir_ / "err.txt"); }

    static inline fs::path dir_;
    int port_ = 0;
};

// The server goes away for longer than the second of stream the client
// holds buffered, and comes back on the same address; then SIGTERM.
TEST_F(LiveSource, ReconnectsNumbersGoOnAndSigtermStopsCleanly)
{
    auto server = serve("pattern.ts");
    const auto program = run("--preset raw --video-out live.mkv");
    ASSERT_TRUE(wait_until([&] { return lines().size() >= 25; })) << err();
    server->signal(SIGKILL);
    server->wait(10s);
    // The server comes back once the program has seen the loss: its first
    // attempt to reopen comes 1 s later, so the outage lasts at least that.
    ASSERT_TRUE(wait_until([&] { return err().find("nerva-blobs: lost ") != std::string::npos; })) << err();
    server = serve("pattern.ts", false);
    // Frames already buffered still come first; then the loss, then the new connection.
    const auto outage_at = [](const std::vector<json>& lines, size_t from = 0) {
        while (from < lines.size() && !lines[from].contains("outage")) ++from;
        return from;
    };
    ASSERT_TRUE(wait_until([&] { return outage_at(lines()) + 25 <= lines().size(); })) << err();
    program->signal(SIGTERM);
    ASSERT_EQ(program->wait(20s), 0) << err();

    const std::string text = slurp(dir_ / "live.jsonl");
    ASSERT_EQ(text.back(), '\n');
    const auto lines = json_lines(text);
    const size_t outage = outage_at(lines);
    EXPECT_EQ(lines[0]["frame"], 0);
    expect_consistent(lines);
    // Before the loss, arrival on the stream's clock: 25 frames a second.
    const json &first = lines.front(), &last = lines[outage - 1];
    EXPECT_NEAR(last["time"].get<double>() - first["time"].get<double>(),
                (last["frame"].get<long>() - first["frame"].get<long>()) / 25.0, 0.05);
    // One outage, at least as long as the wait before the first attempt.
    ASSERT_LT(outage, lines.size());
    EXPECT_GE(lines[outage]["outage"]["seconds"].get<double>(), 1.0) << lines[outage];
    EXPECT_GE(lines[outage]["outage"]["attempts"].get<int>(), 1) << lines[outage];
    EXPECT_EQ(outage_at(lines, outage + 1), lines.size());
    EXPECT_NE(err().find(std::to_string(lines.size()) + " frames, blobs per frame"), std::string::npos) << err();
    EXPECT_NE(err().find("1 outage, "), std::string::npos) << err();

    cv::VideoCapture video((dir_ / "live.mkv").string(), cv::CAP_FFMPEG);
    ASSERT_TRUE(video.isOpened());
    size_t frames = 0;
    for (cv::Mat f; video.read(f); ++frames) ASSERT_EQ(f.size(), cv::Size(160, 120));
    EXPECT_EQ(frames, lines.size()) << "the video holds every frame written as a line";
}

// A camera giving a frame every two seconds: probing it must fit in the
// open timeout, and the gaps between its frames are no outages.
TEST_F(LiveSource, ASlowCameraIsReadWithoutOutages)
{
    const auto server = serve("slow.ts");
    const auto program = run("");
    ASSERT_TRUE(wait_until([&] { return lines().size() >= 3; }, 90s)) << err();
    program->signal(SIGTERM);
    ASSERT_EQ(program->wait(20s), 0) << err();
    EXPECT_EQ(err().find("lost"), std::string::npos) << err();
    EXPECT_EQ(err().find("gave no frame"), std::string::npos) << err();
    EXPECT_EQ(lines()[0]["frame"], 0);
}

// Nobody answers: a line per attempt; stopped, the run fails and says why.
TEST_F(LiveSource, ACameraThatNeverAnsweredIsAFailureEvenWhenStopped)
{
    const auto program = run("");
    ASSERT_TRUE(wait_until([&] { return err().find("(attempt 2, next in 2 s)") != std::string::npos; })) << err();
    program->signal(SIGTERM);
    EXPECT_EQ(program->wait(20s), 1) << err();
    EXPECT_NE(err().find("stopped before '" + url() + "' gave a frame ("), std::string::npos) << err();
    EXPECT_EQ(slurp(dir_ / "live.jsonl"), "");
}

// A server that answers every connection with the first bytes of a stream
// (no whole frame) and then silence: the attempts succeed in opening but
// bring no frame, so --reconnect must still end the run.
TEST_F(LiveSource, AttemptsThatOpenButBringNoFrameAreCounted)
{
    const std::string head = slurp(dir_ / "pattern.ts").substr(0, 188 * 8);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{AF_INET, htons(static_cast<uint16_t>(port_)), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    listen(listener, 8);
    std::vector<int> clients;
    std::thread answering([&] {
        for (int c; (c = accept(listener, nullptr, nullptr)) >= 0;) {
            char request[4096];
            (void)!read(c, request, sizeof request);
            const std::string reply = "HTTP/1.0 200 OK\r\nContent-Type: video/mp2t\r\n\r\n" + head;
            (void)!write(c, reply.data(), reply.size());
            clients.push_back(c);  // kept open, silent
        }
    });
    const auto program = run("--reconnect 1");
    const int status = program->wait(150s);
    shutdown(listener, SHUT_RDWR);
    close(listener);
    answering.join();
    for (int c : clients) close(c);
    EXPECT_EQ(status, 1) << err();
    EXPECT_NE(err().find("(2 attempts)"), std::string::npos) << err();
}

// Prometheus text: every sample ("name{labels} value") of a family whose
// type was given, keyed by name and labels; a failure for any other line.
struct Metrics {
    std::map<std::string, double> samples;
    std::map<std::string, std::string> types;  // family -> counter, gauge, histogram
};

Metrics parse_metrics(const std::string& text)
{
    static const std::regex type_line(R"(# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge|histogram|summary|untyped))");
    static const std::regex sample_line(R"(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{[^}]*\})? (\S+))");
    Metrics m;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::smatch part;
        if (std::regex_match(line, part, type_line)) {
            m.types[part[1]] = part[2];
        } else if (std::regex_match(line, part, sample_line)) {
            std::string family = part[1];
            for (const char* suffix : {"_bucket", "_sum", "_count"})
                if (!m.types.count(family) && family.size() > std::strlen(suffix) &&
                    family.compare(family.size() - std::strlen(suffix), std::string::npos, suffix) == 0)
                    family.resize(family.size() - std::strlen(suffix));
            EXPECT_EQ(m.types.count(family), 1u) << "no TYPE before " << line;
            m.samples[part[1].str() + part[2].str()] = std::stod(part[3]);
        } else if (line.rfind("# HELP ", 0) != 0) {
            ADD_FAILURE() << "not Prometheus text: " << line;
        }
    }
    return m;
}

// The system clock `offset_s` from now as the program writes it
// ("2026-11-24T01:02:03.456Z"): such times compare in order as text.
std::string wall_text(double offset_s)
{
    const auto t = std::chrono::system_clock::now() + std::chrono::milliseconds(static_cast<long>(offset_s * 1000));
    const std::time_t seconds = std::chrono::system_clock::to_time_t(t);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000Z", &utc);
    return text;
}

// Health and metrics while the camera comes and goes (the page is tried in a browser).
TEST_F(LiveSource, ServedEndpointsFollowTheStream)
{
    auto server = serve("pattern.ts");
    const std::string begun = wall_text(-1);
    const auto program = run("--serve 0");
    std::string address;
    ASSERT_TRUE(wait_until([&] { return !(address = page_address(dir_ / "err.txt")).empty(); })) << err();
    EXPECT_EQ(address.rfind("127.0.0.1:", 0), 0u) << "loopback unless asked";
    httplib::Client http("http://" + address);
    const auto health = [&] {
        const auto r = http.Get("/healthz");
        return r ? r->status : 0;
    };
    ASSERT_TRUE(wait_until([&] { return health() == 200; })) << err();

    const auto scrape = [&] {
        const auto r = http.Get("/metrics");
        return r ? parse_metrics(r->body) : Metrics{};
    };
    const Metrics first = scrape();
    const size_t seen = lines().size();
    ASSERT_TRUE(wait_until([&] { return lines().size() >= seen + 10; })) << err();
    const Metrics later = scrape();
    EXPECT_GT(later.samples.at("nerva_frames_total"), first.samples.at("nerva_frames_total"));
    EXPECT_EQ(later.samples.at("nerva_source_up"), 1);
    EXPECT_EQ(later.types.at("nerva_stage_seconds"), "histogram");
    for (const auto& [name, value] : first.samples) {
        const std::string family = name.substr(0, name.find_first_of("{"));
        const bool grows = family.find("_total") != std::string::npos || family.rfind("nerva_stage_seconds", 0) == 0;
        if (grows) {
            EXPECT_GE(later.samples.at(name), value) << name;
        }
    }

    server->signal(SIGKILL);
    server->wait(10s);
    ASSERT_TRUE(wait_until([&] { return health() == 503; }, 60s)) << err();
    EXPECT_EQ(scrape().samples.at("nerva_source_up"), 0);
    program->signal(SIGTERM);
    ASSERT_EQ(program->wait(20s), 0) << err();
    const std::string ended = wall_text(+1);

    // Wall-clock times: UTC, never going back, within the run.
    std::string previous = begun;
    for (const json& line : lines()) {
        const std::string t = line["wall"];
        EXPECT_LE(previous, t);
        EXPECT_LE(t, ended);
        previous = t;
    }
    EXPECT_NE(err().find("nerva-blobs: first frame at 20"), std::string::npos) << err();
}

}  // namespace
