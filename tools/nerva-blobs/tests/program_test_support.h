#pragma once
// What the program's tests share: files read whole, JSON lines read back.
#include <gtest/gtest.h>

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
