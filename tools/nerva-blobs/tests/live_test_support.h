#pragma once
// What the live tests and the live clients benchmark share: child processes,
// free ports, waits on events, clients of the live server.
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include <httplib.h>

#include "program_test_support.h"

using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

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
    int pid() const { return pid_; }
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
inline int free_port()
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
inline bool listening(int port)
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

// The address the program's live page is served on, once it says so.
inline std::string page_address(const fs::path& err)
{
    const std::string text = slurp(err);
    const std::string mark = "live page on http://";
    const auto at = text.find(mark);
    if (at == std::string::npos) return "";
    const auto end = text.find('/', at + mark.size());
    return end == std::string::npos ? "" : text.substr(at + mark.size(), end - at - mark.size());
}

// A client of /stream.mjpg reading every picture, counting them.
class PictureReader {
public:
    explicit PictureReader(const std::string& address)
        : thread_([this, address] {
              httplib::Client http("http://" + address);
              http.set_read_timeout(1, 0);
              std::string tail;
              http.Get("/stream.mjpg", [&](const char* data, size_t n) {
                  tail.append(data, n);
                  for (size_t at; (at = tail.find("--nervaframe")) != std::string::npos; tail.erase(0, at + 12))
                      ++pictures_;
                  if (tail.size() > 16) tail.erase(0, tail.size() - 16);
                  return !stop_;
              });
          })
    {}
    ~PictureReader()
    {
        stop_ = true;
        thread_.join();
    }
    int pictures() const { return pictures_; }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> pictures_{0};
    std::thread thread_;  // last: starts once the counters exist
};

// A client that asks for /stream.mjpg and never reads; its small window
// lets the server's writes block soon. Returns the socket to close.
inline int stalled_client(const std::string& address)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int window = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
    const auto port = static_cast<uint16_t>(std::stoi(address.substr(address.find(':') + 1)));
    sockaddr_in a{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) {
        const std::string request = "GET /stream.mjpg HTTP/1.1\r\nHost: " + address + "\r\n\r\n";
        (void)!write(fd, request.data(), request.size());
    }
    return fd;
}
