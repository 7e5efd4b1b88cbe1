#include "updatectl/protected_directory.h"

#include "support/windows_api.h"

// After the Windows types that it needs.
#include <aclapi.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/directory_listing.h"
#include "support/extended_length_path.h"
#include "support/file_system.h"
#include "updatectl/output.h"
#include "updatectl/windows_error.h"

namespace updater {

namespace {

using std::filesystem::file_type;

// What lets its holder change nothing. Every other right counts as one to write, also one that
// Windows may add.
constexpr DWORD kReading = FILE_LIST_DIRECTORY | FILE_READ_EA | FILE_TRAVERSE |
                           FILE_READ_ATTRIBUTES | READ_CONTROL | SYNCHRONIZE | GENERIC_READ |
                           GENERIC_EXECUTE;

bool IsTrusted(PSID account) {
    return IsWellKnownSid(account, WinBuiltinAdministratorsSid) != 0 ||
           IsWellKnownSid(account, WinLocalSystemSid) != 0;
}

// Two kinds of entry are understood; any other may give anything to anybody.
bool LetsOthersWrite(ACE_HEADER& entry) {
    if (entry.AceType == ACCESS_DENIED_ACE_TYPE) {
        return false;
    }
    if (entry.AceType != ACCESS_ALLOWED_ACE_TYPE) {
        return true;
    }
    auto& allowed = reinterpret_cast<ACCESS_ALLOWED_ACE&>(entry);
    return (allowed.Mask & ~kReading) != 0 && !IsTrusted(&allowed.SidStart);
}

bool LetsOthersWrite(PACL accessList) {
    // Without a list everybody may do everything.
    if (accessList == nullptr) {
        return true;
    }
    for (DWORD index = 0; index < accessList->AceCount; ++index) {
        void* entry = nullptr;
        if (GetAce(accessList, index, &entry) == 0 ||
            LetsOthersWrite(*static_cast<ACE_HEADER*>(entry))) {
            return true;
        }
    }
    return false;
}

std::string NameOf(const std::filesystem::path& path) {
    return PrintableText(OrdinaryPath(path).native());
}

[[noreturn]] void Refuse(const std::filesystem::path& path, const char* why) {
    throw std::runtime_error(NameOf(path) + why);
}

// Only a handle that can list the directory counts when somebody else wants to delete or rename it.
// With one that can only ask about it, the refusal to share deletion would mean nothing.
UniqueHandle OpenWithoutFollowing(const std::filesystem::path& directory) {
    UniqueHandle handle = OwnHandle(
        CreateFileW(directory.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | READ_CONTROL,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!handle) {
        const DWORD error = GetLastError();
        RaiseWindowsError("Cannot open the directory " + NameOf(directory), error);
    }
    return handle;
}

// Returns when the directory was made.
std::uint64_t CheckKind(const ProtectedDirectory& directory) {
    FILE_BASIC_INFO info{};
    if (GetFileInformationByHandleEx(directory.handle.get(), FileBasicInfo, &info, sizeof(info)) ==
        0) {
        const DWORD error = GetLastError();
        RaiseWindowsError("Cannot inspect " + NameOf(directory.path), error);
    }
    if ((info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        Refuse(directory.path, " is a link");
    }
    if ((info.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        Refuse(directory.path, " is no directory");
    }
    return static_cast<std::uint64_t>(info.CreationTime.QuadPart);
}

void CheckProtection(const ProtectedDirectory& directory) {
    PSID owner = nullptr;
    PACL accessList = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetSecurityInfo(directory.handle.get(), SE_FILE_OBJECT,
                                        OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                        &owner, nullptr, &accessList, nullptr, &descriptor);
    const UniqueLocalMemory owned(descriptor);
    if (error != ERROR_SUCCESS) {
        RaiseWindowsError("Cannot read the owner and the access list of " + NameOf(directory.path),
                          error);
    }
    // Some file systems know no owners.
    if (owner == nullptr || !IsTrusted(owner)) {
        Refuse(directory.path, " belongs neither to the administrators nor to the system");
    }
    if (LetsOthersWrite(accessList)) {
        Refuse(directory.path, " can be changed by others than administrators and the system");
    }
}

}  // namespace

ProtectedDirectory OpenProtectedDirectory(const std::filesystem::path& directory) {
    ProtectedDirectory opened = {directory, OpenWithoutFollowing(directory)};
    opened.created = CheckKind(opened);
    CheckProtection(opened);
    return opened;
}

ProtectedTree OpenProtectedTree(ProtectedDirectory root) {
    ProtectedTree tree;
    // A backup's paths are longer than those of the program, which may be as long as the system
    // allows.
    root.path = ExtendedLengthPath(root.path);
    tree.directories.push_back(std::move(root));
    // Each is open before it is listed: nobody can put a link in its place any more.
    for (std::size_t index = 0; index < tree.directories.size(); ++index) {
        const std::filesystem::path directory = tree.directories[index].path;
        VisitDirectory(directory, [&tree, &directory](const ListedEntry& entry) {
            const std::filesystem::path path = directory / entry.relativePath;
            if (entry.type == file_type::directory) {
                tree.directories.push_back(OpenProtectedDirectory(path));
            } else if (entry.type == file_type::regular) {
                tree.files.push_back(path);
            } else {
                // An update makes none. What else has come here should be looked at by a person.
                Refuse(path, " is a link");
            }
        });
    }
    return tree;
}

void RemoveProtectedTree(ProtectedTree tree) {
    for (const std::filesystem::path& file : tree.files) {
        RemoveFile(file);
    }
    for (; !tree.directories.empty(); tree.directories.pop_back()) {
        // An open directory cannot be deleted, not even by this process. The one above is still
        // open, so that nothing can come in the place of this one; above the first one only
        // administrators could do that.
        tree.directories.back().handle.reset();
        RemoveTree(tree.directories.back().path);
    }
}

void DistrustLinksOfUsers() noexcept {
    PROCESS_MITIGATION_REDIRECTION_TRUST_POLICY policy{};
    policy.EnforceRedirectionTrust = 1;
    SetProcessMitigationPolicy(ProcessRedirectionTrustPolicy, &policy, sizeof(policy));
}

}  // namespace updater
