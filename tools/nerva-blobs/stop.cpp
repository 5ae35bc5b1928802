#include "stop.h"

#include <atomic>
#include <csignal>

namespace nerva_blobs {
namespace {

std::atomic<bool> stop_flag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the flag is set from a signal handler");

extern "C" void on_stop_signal(int sig)
{
    if (stop_flag.exchange(true)) {
        std::signal(sig, SIG_DFL);
        std::raise(sig);
    }
}

}  // namespace

void install_stop_handlers()
{
    struct sigaction action {};
    action.sa_handler = on_stop_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool stop_requested() { return stop_flag.load(std::memory_order_relaxed); }

}  // namespace nerva_blobs
