#pragma once

#include <algorithm>
#include <utility>
#include <vector>

// The value below which `fraction` of the values lie (the one at index
// fraction * count, counted from the smallest), 0 for none.
inline double percentileOf(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0;
    const auto at =
        std::min(values.size() - 1, static_cast<std::size_t>(fraction * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<long>(at), values.end());
    return values[at];
}

// The middle value (the upper one of an even count), 0 for none.
inline double medianOf(std::vector<double> values)
{
    return percentileOf(std::move(values), 0.5);
}
