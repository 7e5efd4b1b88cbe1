#include "elevation/program_start.h"

#include <system_error>

#include "support/argument_quoting.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

UniqueHandle TokenOf(HANDLE process, DWORD access) {
    HANDLE opened = nullptr;
    if (OpenProcessToken(process, access, &opened) == 0) {
        RaiseLastError("Cannot open the process token");
    }
    return OwnHandle(opened);
}

// The caller's other token. It comes as one to impersonate with; a process needs a primary one.
UniqueHandle LinkedToken() {
    const UniqueHandle own = TokenOf(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE);
    TOKEN_LINKED_TOKEN linked{};
    DWORD length = 0;
    if (GetTokenInformation(own.get(), TokenLinkedToken, &linked, sizeof(linked), &length) == 0) {
        RaiseLastError("Cannot get the linked token");
    }
    const UniqueHandle impersonation = OwnHandle(linked.LinkedToken);
    HANDLE primary = nullptr;
    if (DuplicateTokenEx(impersonation.get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                         TokenPrimary, &primary) == 0) {
        RaiseLastError("Cannot duplicate the linked token");
    }
    return OwnHandle(primary);
}

// Null if the caller has the wanted token itself.
UniqueHandle TokenToStartWith(StartToken wanted) {
    const bool isOwn = wanted == StartToken::Own ||
                       (wanted == StartToken::Elevated) == IsElevated(GetCurrentProcess());
    return isOwn ? nullptr : LinkedToken();
}

}  // namespace

StartedProgram StartProgram(const ProgramStart& start) {
    std::wstring commandLine = QuoteArgument(start.program.native());
    if (!start.arguments.empty()) {
        commandLine += L' ' + start.arguments;
    }
    const UniqueHandle token = TokenToStartWith(start.token);
    const wchar_t* const directory =
        start.workingDirectory.empty() ? nullptr : start.workingDirectory.c_str();
    const DWORD flags = start.state == StartState::Suspended ? CREATE_SUSPENDED : 0;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION created{};
    const BOOL done =
        token
            ? CreateProcessAsUserW(token.get(), start.program.c_str(), commandLine.data(), nullptr,
                                   nullptr, FALSE, flags, nullptr, directory, &startup, &created)
            : CreateProcessW(start.program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                             flags, nullptr, directory, &startup, &created);
    if (done == 0) {
        RaiseLastError("Cannot start " + WideToUtf8(start.program.native()));
    }
    return {OwnHandle(created.hProcess), OwnHandle(created.hThread), created.dwProcessId};
}

bool IsElevated(HANDLE process) {
    const UniqueHandle token = TokenOf(process, TOKEN_QUERY);
    TOKEN_ELEVATION elevation{};
    DWORD length = 0;
    if (GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &length) ==
        0) {
        RaiseLastError("Cannot query a token's elevation");
    }
    return elevation.TokenIsElevated != 0;
}

std::wstring EnvironmentVariable(const wchar_t* name) {
    std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

void RaiseLastError(const std::string& action) {
    const auto number = static_cast<int>(GetLastError());
    throw std::system_error(number, std::system_category(), action);
}

}  // namespace updater
