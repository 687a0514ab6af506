#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

// The statistics the benchmarks print: times in seconds and the spread of repeated runs.
namespace BenchStats
{
using Clock = std::chrono::steady_clock;

inline double Seconds(Clock::duration i_span)
{
    return std::chrono::duration<double>(i_span).count();
}

inline double Percentile(std::vector<double> i_values, double i_fraction)
{
    if (i_values.empty())
        return 0;
    auto const l_at = i_values.begin() + static_cast<std::ptrdiff_t>(i_fraction * double(i_values.size() - 1));
    std::nth_element(i_values.begin(), l_at, i_values.end());
    return *l_at;
}

inline double Median(std::vector<double> i_values)
{
    return Percentile(std::move(i_values), 0.5);
}
} // namespace BenchStats
