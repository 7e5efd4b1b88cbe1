#pragma once

#include <filesystem>
#include <string>

namespace corvellan {

/// What the running application knows about itself.
struct Application {
    std::filesystem::path installDirectory;
    std::wstring version;
};

/// Asks Windows where the application's executable lies and reads the version from its resources.
Application DescribeApplication();

/// Returns the value of an environment variable, or an empty text when it is not set.
std::wstring ReadEnvironment(const wchar_t* name);

/// Returns %LOCALAPPDATA%\Corvellan, which is created if it is missing.
std::filesystem::path UserDataDirectory();

}  // namespace corvellan
