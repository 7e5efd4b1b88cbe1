#pragma once

namespace corvellan {

// What the application and its updater are called.

/// What its windows call the application.
extern const wchar_t kApplicationName[];

/// The application's executable and the updater, both in the installation directory.
extern const wchar_t kExecutable[];
extern const wchar_t kUpdaterExecutable[];

/// The application's directory in the user's local data.
extern const wchar_t kLocalDirectory[];

/// The mutex that the updater holds while it installs.
extern const wchar_t kInstallMutex[];

}  // namespace corvellan
