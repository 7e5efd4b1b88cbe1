#pragma once

#include <string>

#include "application.h"

namespace corvellan {

/// Appends a line to "sessions.log" in the installation directory: the version, the process id, 1
/// if the process is elevated and 0 if not, the working directory, and what the user was told about
/// the last update (often empty), separated by tabs, in UTF-8. An installation directory that
/// cannot be written to has no such log.
void AppendSession(const Application& application, const std::wstring& updateOutcome);

}  // namespace corvellan
