#pragma once

#include <cstdint>

#include "support/windows_api.h"

namespace bench {

/// Returns the system's performance counter, which is the same for all processes.
inline std::int64_t CounterNow() {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return counter.QuadPart;
}

/// Returns the seconds between two readings of the performance counter.
inline double SecondsBetween(std::int64_t begin, std::int64_t end) {
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(end - begin) / static_cast<double>(frequency.QuadPart);
}

inline double SecondsSince(std::int64_t begin) {
    return SecondsBetween(begin, CounterNow());
}

}  // namespace bench
