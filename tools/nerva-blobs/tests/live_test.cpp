// Live sources: ffmpeg serves a clip as MPEG-TS over loopback HTTP, read as a
// camera. Waits have generous deadlines: a loaded machine slows, not fails.
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <opencv2/videoio.hpp>
#include <thread>

#include "program_test_support.h"

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

namespace {

// A child process running `command` through the shell; killed if the test
// ends early.
class Child {
public:
    Child(const std::string& command, const fs::path& dir)
    {
        pid_ = fork();
        if (pid_ == 0) {
            if (chdir(dir.c_str()) != 0) _exit(127);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~Child()
    {
        if (pid_ <= 0 || status_ >= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    void signal(int sig) const { kill(pid_, sig); }
    // Exit status, -1 if still running after `timeout`, 128 + n if killed by signal n.
    int wait(std::chrono::duration<double> timeout)
    {
        const auto until = steady::now() + timeout;
        while (status_ < 0) {
            int raw = 0;
            if (waitpid(pid_, &raw, WNOHANG) == pid_) status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            else if (steady::now() > until) break;
            else std::this_thread::sleep_for(20ms);
        }
        return status_;
    }

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

// A port nothing listens on now.
int free_port()
{
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof a;
    bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    close(s);
    return ntohs(a.sin_port);
}

// Whether something listens on the TCP port, read from /proc so as not to
// use up the server's one connection.
bool listening(int port)
{
    char wanted[32];  // local port, any remote, state LISTEN
    std::snprintf(wanted, sizeof wanted, ":%04X 00000000:0000 0A", port);
    return slurp("/proc/net/tcp").find(wanted) != std::string::npos;
}

template <class Condition>
bool wait_until(Condition done, std::chrono::seconds timeout = 30s)
{
    for (const auto until = steady::now() + timeout; steady::now() < until; std::this_thread::sleep_for(50ms))
        if (done()) return true;
    return done();
}

class LiveSource : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (std::system("command -v ffmpeg >/dev/null") != 0) return;
        dir_ = fs::path(NERVA_BLOBS_SCRATCH) / ("live-" + std::to_string(getpid()));
        fs::create_directories(dir_);
        // A moving test pattern, and noise: every pixel changes, so every
        // frame has thousands of blobs and a JSON line of a few hundred KB.
        run_ffmpeg("-f lavfi -i testsrc=size=160x120:rate=25 -t 3 -c:v mpeg2video -g 5 -f mpegts pattern.ts");
        run_ffmpeg(
            "-f lavfi -i 'nullsrc=size=192x144:rate=25,geq=random(1)*255:128:128' -t 2 -c:v mpeg2video -q:v 3 "
            "-g 5 -f mpegts noise.ts");
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

    static inline fs::path dir_;
    int port_ = 0;
};

// The server goes away for longer than the second of stream the client
// holds buffered, and comes back on the same address; then SIGTERM.
TEST_F(LiveSource, ReconnectsNumbersGoOnAndSigtermStopsCleanly)
{
    auto server = serve("pattern.ts");
    const auto run = std::make_unique<Child>(
        "'" NERVA_BLOBS_EXE "' " + url() + " -o live.jsonl --video-out live.mkv 2>err.txt", dir_);
    ASSERT_TRUE(wait_until([&] { return json_lines(slurp(dir_ / "live.jsonl")).size() >= 25; }))
        << slurp(dir_ / "err.txt");
    server->signal(SIGKILL);
    server->wait(10s);
    // The server comes back once the program has seen the loss: its first
    // attempt to reopen comes 1 s later, so the outage lasts at least that.
    ASSERT_TRUE(wait_until([&] { return slurp(dir_ / "err.txt").find("nerva-blobs: lost ") != std::string::npos; }))
        << slurp(dir_ / "err.txt");
    server = serve("pattern.ts", false);
    // Frames already buffered still come first; then the loss, then the new connection.
    const auto outage_at = [](const std::vector<json>& lines, size_t from = 0) {
        while (from < lines.size() && !lines[from].contains("outage")) ++from;
        return from;
    };
    ASSERT_TRUE(wait_until([&] {
        const auto lines = json_lines(slurp(dir_ / "live.jsonl"));
        return outage_at(lines) + 25 <= lines.size();
    })) << slurp(dir_ / "err.txt");
    run->signal(SIGTERM);
    ASSERT_EQ(run->wait(20s), 0) << slurp(dir_ / "err.txt");

    const std::string text = slurp(dir_ / "live.jsonl");
    ASSERT_EQ(text.back(), '\n');
    const auto lines = json_lines(text);
    const size_t outage = outage_at(lines);
    EXPECT_EQ(lines[0]["frame"], 0);
    expect_consistent(lines);
    for (size_t i = 1; i < outage; ++i) EXPECT_FALSE(lines[i]["blobs"].empty()) << "the pattern moves";
    // Before the loss, arrival on the stream's clock: 25 frames a second.
    const json &first = lines.front(), &last = lines[outage - 1];
    EXPECT_NEAR(last["time"].get<double>() - first["time"].get<double>(),
                (last["frame"].get<long>() - first["frame"].get<long>()) / 25.0, 0.05);
    // One outage, at least as long as the wait before the first attempt.
    ASSERT_LT(outage, lines.size());
    EXPECT_GE(lines[outage]["outage"]["seconds"].get<double>(), 1.0) << lines[outage];
    EXPECT_GE(lines[outage]["outage"]["attempts"].get<int>(), 1) << lines[outage];
    EXPECT_EQ(outage_at(lines, outage + 1), lines.size());
    const std::string err = slurp(dir_ / "err.txt");
    for (const std::string& part :
         {std::to_string(lines.size()) + " frames, blobs per frame", std::string("1 outage, ")})
        EXPECT_NE(err.find(part), std::string::npos) << err;

    cv::VideoCapture video((dir_ / "live.mkv").string(), cv::CAP_FFMPEG);
    ASSERT_TRUE(video.isOpened());
    size_t frames = 0;
    for (cv::Mat f; video.read(f); ++frames) ASSERT_EQ(f.size(), cv::Size(160, 120));
    EXPECT_EQ(frames, lines.size()) << "the video holds every frame written as a line";
}

// How many frames a stalled consumer costs depends on the machine's load:
// these tests carry the `timing` label, which `make test` leaves out.
class LiveTiming : public LiveSource {};

// Nobody reads the program's output for 4 s (about 100 frames), then it is
// read until a SIGTERM at 5 s: processing stalls, the camera does not, so
// frames are dropped and counted.
TEST_F(LiveTiming, ASlowConsumerDropsFramesAndCountsThem)
{
    const auto server = serve("noise.ts");
    const std::string cmd = "cd '" + dir_.string() +
                            "' && { timeout --foreground -k 20 --preserve-status 5 '" NERVA_BLOBS_EXE "' " + url() +
                            " 2>err.txt; echo $? >status.txt; } | { sleep 4; cat >slow.jsonl; }";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    ASSERT_EQ(slurp(dir_ / "status.txt"), "0\n") << slurp(dir_ / "err.txt");
    const auto lines = json_lines(slurp(dir_ / "slow.jsonl"));
    ASSERT_GE(lines.size(), 2u);
    expect_consistent(lines);
    long dropped = 0;
    for (const json& line : lines) dropped += line["dropped"].get<long>();
    EXPECT_GT(dropped, 40) << "4 s at 25 frames a second, half a second of them kept";
    const std::string err = slurp(dir_ / "err.txt");
    const auto at = err.find(" frames dropped;");
    ASSERT_NE(at, std::string::npos) << err;
    EXPECT_GE(std::stol(err.substr(err.rfind(' ', at - 1) + 1)), dropped) << err;
}

}  // namespace
