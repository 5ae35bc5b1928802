#include "bench_results.h"

#include <algorithm>
#include <cstdio>

std::map<std::string, std::map<std::string, Result>>& bench_results()
{
    static std::map<std::string, std::map<std::string, Result>> results;
    return results;
}

std::vector<std::string>& table_inputs()
{
    static std::vector<std::string> inputs;
    return inputs;
}

double median(std::vector<double> v)
{
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double median_ns(const std::string& input, const std::string& contender, bool cpu)
{
    auto in = bench_results().find(input);
    if (in == bench_results().end()) return 0;
    auto c = in->second.find(contender);
    if (c == in->second.end()) return 0;
    return median(cpu ? c->second.cpu_ns_per_frame : c->second.ns_per_frame);
}

std::string fastest(const std::string& input, const std::string& prefix)
{
    std::string best;
    double best_ns = 0;
    auto in = bench_results().find(input);
    if (in == bench_results().end()) return best;
    for (auto& [name, r] : in->second) {
        const double t = median(r.ns_per_frame);
        if (name.rfind(prefix, 0) != 0 || t <= 0) continue;
        if (best.empty() || t < best_ns) best = name, best_ns = t;
    }
    return best;
}

std::string ratio(double numerator, double denominator)
{
    if (numerator <= 0 || denominator <= 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.2fx", numerator / denominator);
    return text;
}
