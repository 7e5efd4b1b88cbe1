#pragma once

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <psapi.h>

namespace bench {

constexpr double kMebibyte = 1048576.0;

/// Returns the most memory that this process has had in use so far, in MiB: its private bytes, and
/// its pages in memory, shared and private.
struct MemoryUse {
    double privatePeak;
    double residentPeak;
};

inline MemoryUse PeakMemoryUse() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return {static_cast<double>(counters.PeakPagefileUsage) / kMebibyte,
            static_cast<double>(counters.PeakWorkingSetSize) / kMebibyte};
}

}  // namespace bench
