#pragma once

namespace corvellan {

// What the application and its updater are called.

/// What its windows call the application.
extern const wchar_t kApplicationName[];

/// The application's executable, in the installation directory.
extern const wchar_t kExecutable[];

/// The application's directory in the user's local data.
extern const wchar_t kLocalDirectory[];

}  // namespace corvellan
