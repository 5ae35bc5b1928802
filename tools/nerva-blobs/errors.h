#pragma once

#include <stdexcept>
#include <string>

// The two ways the program gives up. Each carries the one line shown to the
// user; main() turns them into exit status 2 (the command line is wrong) and
// 1 (something went wrong while running).
namespace nerva_blobs {

struct UsageError : std::runtime_error {
    explicit UsageError(const std::string& what) : std::runtime_error(what) {}
};

struct RuntimeError : std::runtime_error {
    explicit RuntimeError(const std::string& what) : std::runtime_error(what) {}
};

constexpr int EXIT_RUNTIME = 1;
constexpr int EXIT_USAGE = 2;

}  // namespace nerva_blobs
