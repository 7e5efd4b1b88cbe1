#pragma once

#include <string>
#include <vector>

namespace updater::faults {

/// Returns the names, without namespaces, of the updater's functions that are active below
/// `RunUpdater`, the innermost first. The names come from the list that the build made of this
/// program's symbols, beside the program, with ".symbols" behind its name.
std::vector<std::string> UpdaterFunctionsOnStack();

}  // namespace updater::faults
