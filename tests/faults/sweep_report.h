#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "faults/call_sweep.h"

namespace updater::faults {

/// Prints how many calls of a mode were swept, and how many of them were survived. At the end of
/// the program follows the sum over all modes; by then every function that the updater calls must
/// have been swept in one of them, if all ran.
void ReportSweep(const std::string& mode, const std::vector<Call>& calls, std::size_t survived);

}  // namespace updater::faults
