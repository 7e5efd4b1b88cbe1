#pragma once

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <aclapi.h>

#include <filesystem>

namespace updater {

// Wine keeps neither an owner nor the entries of a file's access list. What it shows, it makes from
// the host's permissions: everything belongs to a user of its own, the only one; this one and the
// system have full access; and everybody has what the host lets others do. So nothing belongs to
// the administrators there, and the tool takes no directory for the updater's.

/// Writes the group Administrators in the place of the user who runs this, into an owner and an
/// access list that Windows has returned; either may be null. With this the rest of what Wine shows
/// is as on Windows: a directory that others can write to is told from one that they cannot.
void NameAdministrators(PSID owner, PACL accessList);

// A directory's access list; the owner stays. Both raise `std::system_error`.

/// Gives full access to the administrators and the system alone, as the updater does to a staging
/// directory. On Windows what is made in it later inherits that; under Wine nobody but the user has
/// rights to write anyway.
void LetAdministratorsWrite(const std::filesystem::path& directory);

/// Gives full access to everybody.
void LetEverybodyWrite(const std::filesystem::path& directory);

}  // namespace updater
