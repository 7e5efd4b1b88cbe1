#pragma once

#include <filesystem>

#include "application.h"
#include "handle.h"
#include "update_feed.h"

namespace corvellan {

/// Starts the updater, in its unelevated mode, on a new update; it asks for administrator rights
/// itself. `jobDirectory` must be new: the updater is copied there and runs from there, because the
/// setup program replaces the one in the installation directory. Returns the updater's process.
///
/// The environment variable CORVELLAN_UPDATER may name another updater than the installed one.
UniqueHandle StartUpdater(const Application& application, const UpdateOffer& offer,
                          const std::filesystem::path& jobDirectory);

}  // namespace corvellan
