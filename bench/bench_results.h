#pragma once

#include <map>
#include <string>
#include <vector>

// What the benchmarks measured, gathered by the reporter and read by the
// tables printed at the end of the run.
struct Result {
    std::vector<double> ns_per_frame;      // one per repetition
    std::vector<double> cpu_ns_per_frame;  // the benchmark's threads' CPU time
    double allocs_per_frame = 0;
};

// input -> contender -> result; a benchmark named "input | contender" is
// recorded here.
std::map<std::string, std::map<std::string, Result>>& bench_results();

// The inputs that get a full table (every contender) at the end, in order.
std::vector<std::string>& table_inputs();

// The median of the repetitions: on a shared machine one slow repetition
// should not decide a ratio.
double median(std::vector<double> v);

// Median time per frame of one contender on one input (`cpu`: CPU time of
// its threads); 0 if it did not run.
double median_ns(const std::string& input, const std::string& contender, bool cpu = false);

// The contender of the input, among those whose name starts with `prefix`,
// with the lowest median time; empty if none ran.
std::string fastest(const std::string& input, const std::string& prefix);

// "2.41x", or "-" if either time is missing.
std::string ratio(double numerator, double denominator);
