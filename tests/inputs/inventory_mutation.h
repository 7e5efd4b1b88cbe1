#pragma once

#include <map>
#include <string>

#include "inputs/random_source.h"

namespace updater {

/// The digests of an installation's files under their relative paths, both as an inventory writes
/// them.
using ListedDigests = std::map<std::string, std::string>;

/// Returns an inventory that lists every file.
std::string FormatInventory(const ListedDigests& files);

/// Returns an inventory of these files that somebody or something has damaged: lines, paths,
/// digests and single bytes are changed, often so that a path would lead elsewhere.
std::string RandomInventory(RandomSource& random, const ListedDigests& files);

}  // namespace updater
