#pragma once

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace updater {

/// Ends the program unless the property holds; the fuzzer stores the input as a finding.
inline void Require(bool holds, std::string_view property) {
    if (!holds) {
        std::cerr << "Violated: " << property << '\n';
        std::abort();
    }
}

}  // namespace updater
