#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/handle.h"

namespace updater {

/// A user who may be an administrator has two tokens, a limited and an elevated one. Which of them
/// a program gets by itself differs: Wine 8 starts everything elevated, Windows and Wine 10
/// limited.
enum class StartToken { Own, Limited, Elevated };

enum class StartState { Running, Suspended };

struct ProgramStart {
    std::filesystem::path program;
    /// The command line's text after the program, already quoted.
    std::wstring arguments{};
    /// Empty: the caller's own.
    std::filesystem::path workingDirectory{};
    StartToken token = StartToken::Own;
    StartState state = StartState::Running;
};

struct StartedProgram {
    UniqueHandle process;
    UniqueHandle thread;
    std::uint32_t processId = 0;
};

/// Starts a program with the caller's environment and without inherited handles. Raises
/// `std::system_error`.
StartedProgram StartProgram(const ProgramStart& start);

/// Whether a process runs with an elevated token; the handle needs limited-query rights. Raises
/// `std::system_error`.
bool IsElevated(HANDLE process);

/// Returns the value of an environment variable, empty if there is none.
std::wstring EnvironmentVariable(const wchar_t* name);

/// Raises `std::system_error` for the last Windows error; `action` is what could not be done.
[[noreturn]] void RaiseLastError(const std::string& action);

}  // namespace updater
