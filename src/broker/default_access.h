#pragma once

namespace updater {

/// Gives the Administrators group full access to the objects that this process creates from now on
/// with default security; the rest of the token's default access list stays as it is. Returns
/// whether the group has it now; if not, nothing has changed. Programs that this process starts
/// afterwards get the extended list as well.
bool GrantAdministratorsAccessByDefault();

}  // namespace updater
