#include "floor/download.h"

#include <stdexcept>
#include <vector>

#include "floor/request.h"
#include "support/handle.h"
#include "support/windows_api.h"

// After the Windows types that it needs.
#include <bcrypt.h>

namespace bench {

namespace {

void Require(bool holds) {
    if (!holds) {
        throw std::runtime_error("The download failed");
    }
}

}  // namespace

Digest DownloadFile(const std::wstring& host, std::uint16_t port, const std::wstring& target,
                    const std::filesystem::path& file) {
    const Request request = SendRequest(host, port, target, L"");
    const updater::UniqueHandle handle = updater::OwnHandle(CreateFileW(
        file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    Require(BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, 0) >= 0 &&
            BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0) >= 0);
    std::vector<unsigned char> chunk(kChunkBytes);
    DWORD bytes = 0;
    do {
        DWORD written = 0;
        Require(WinHttpReadData(request.handle.get(), chunk.data(),
                                static_cast<DWORD>(chunk.size()), &bytes) != 0 &&
                BCryptHashData(hash, chunk.data(), bytes, 0) >= 0 &&
                WriteFile(handle.get(), chunk.data(), bytes, &written, nullptr) != 0);
    } while (bytes != 0);
    Digest digest{};
    Require(BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) >= 0 &&
            FlushFileBuffers(handle.get()) != 0);
    BCryptDestroyHash(hash);
    BCryptCloseAlgorithmProvider(provider, 0);
    return digest;
}

}  // namespace bench
