#pragma once

#include <algorithm>
#include <vector>

// The middle value (the upper one of an even count), 0 for none.
inline double medianOf(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}
