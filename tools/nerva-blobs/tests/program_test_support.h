#pragma once
// What the program's tests share: files read whole, JSON lines read back,
// shell commands run in a folder.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;

inline std::string slurp(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The complete lines of `text`: the last one may still be on its way.
inline std::vector<json> json_lines(const std::string& text)
{
    std::vector<json> lines;
    std::istringstream in(text.substr(0, text.rfind('\n') + 1));
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

struct Result {
    int status = -1;
    std::string out, err;
    std::vector<json> lines() const { return json_lines(out); }
};

// Runs `command` through the shell in `dir`; the command sends what it
// prints to out.txt and err.txt there. A status of -1: a signal ended it.
inline Result run_in(const fs::path& dir, const std::string& command)
{
    fs::remove(dir / "out.txt");
    const int raw = std::system(("cd '" + dir.string() + "' && " + command).c_str());
    EXPECT_TRUE(WIFEXITED(raw)) << "ended by a signal: " << command;
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir / "out.txt"), slurp(dir / "err.txt")};
}
