#include "floor/bare_calls.h"

// After the Windows types that it needs.
#include <bcrypt.h>

#include <algorithm>
#include <memory>
#include <string>
#include <system_error>

#include "support/handle.h"

namespace bench {

namespace {

[[noreturn]] void Raise(const char* call, DWORD error) {
    throw std::system_error(static_cast<int>(error), std::system_category(), call);
}

void RequireSuccess(NTSTATUS status, const char* call) {
    if (status < 0) {
        throw std::system_error(status, std::generic_category(), call);
    }
}

// Opened once, where the updater opens it for every digest.
BCRYPT_ALG_HANDLE Provider() {
    static const BCRYPT_ALG_HANDLE provider = [] {
        BCRYPT_ALG_HANDLE opened = nullptr;
        RequireSuccess(BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0),
                       "BCryptOpenAlgorithmProvider");
        return opened;
    }();
    return provider;
}

struct HashDestroyer {
    using pointer = BCRYPT_HASH_HANDLE;
    void operator()(BCRYPT_HASH_HANDLE hash) const noexcept { BCryptDestroyHash(hash); }
};
using UniqueHash = std::unique_ptr<void, HashDestroyer>;

UniqueHash MakeHash() {
    BCRYPT_HASH_HANDLE hash = nullptr;
    RequireSuccess(BCryptCreateHash(Provider(), &hash, nullptr, 0, nullptr, 0, 0),
                   "BCryptCreateHash");
    return UniqueHash(hash);
}

void AddBytes(const UniqueHash& hash, unsigned char* bytes, std::size_t count) {
    RequireSuccess(BCryptHashData(hash.get(), bytes, static_cast<ULONG>(count), 0),
                   "BCryptHashData");
}

Digest Finish(const UniqueHash& hash) {
    Digest digest{};
    RequireSuccess(
        BCryptFinishHash(hash.get(), digest.data(), static_cast<ULONG>(digest.size()), 0),
        "BCryptFinishHash");
    return digest;
}

}  // namespace

Digest DigestOfFile(const std::filesystem::path& file) {
    static std::array<unsigned char, kChunkBytes> chunk;
    const UniqueHash hash = MakeHash();
    const updater::UniqueHandle opened = updater::OwnHandle(
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!opened) {
        Raise("CreateFileW", GetLastError());
    }
    DWORD count = 0;
    do {
        if (ReadFile(opened.get(), chunk.data(), kChunkBytes, &count, nullptr) == 0) {
            Raise("ReadFile", GetLastError());
        }
        AddBytes(hash, chunk.data(), count);
    } while (count > 0);
    return Finish(hash);
}

Digest DigestOfMemory(std::span<unsigned char> bytes) {
    const UniqueHash hash = MakeHash();
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kChunkBytes);
        AddBytes(hash, bytes.data(), count);
        bytes = bytes.subspan(count);
    }
    return Finish(hash);
}

void CopyWholeFile(const std::filesystem::path& source, const std::filesystem::path& target) {
    if (CopyFileW(source.c_str(), target.c_str(), FALSE) == 0) {
        Raise("CopyFileW", GetLastError());
    }
}

bool FlushVolume(const std::filesystem::path& entry) {
    // \\?\Volume{GUID}\ and its end; without the last separator it is the volume.
    std::array<wchar_t, MAX_PATH> root{};
    std::array<wchar_t, 50> volume{};
    if (GetVolumePathNameW(entry.c_str(), root.data(), MAX_PATH) == 0 ||
        GetVolumeNameForVolumeMountPointW(root.data(), volume.data(),
                                          static_cast<DWORD>(volume.size())) == 0) {
        return false;
    }
    std::wstring name = volume.data();
    name.pop_back();
    const updater::UniqueHandle handle = updater::OwnHandle(
        CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, 0, nullptr));
    return handle != nullptr && FlushFileBuffers(handle.get()) != 0;
}

void MakeDirectory(const std::filesystem::path& directory) {
    if (CreateDirectoryW(directory.c_str(), nullptr) == 0) {
        const DWORD error = GetLastError();
        if (error != ERROR_ALREADY_EXISTS) {
            Raise("CreateDirectoryW", error);
        }
    }
}

}  // namespace bench
