// What Windows is asked for when a volume is flushed. Wine has no volume that can be opened, so the
// answers are a double's.

#include "support/volume_flush.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fixtures/doubles/windows_doubles.h"
#include "support/handle.h"
#include "support/windows_api.h"

namespace updater {
namespace {

using testing::ElementsAre;

BOOL Answer(const std::wstring& text, LPWSTR buffer, DWORD units) {
    EXPECT_GT(units, text.size());
    std::copy(text.c_str(), text.c_str() + text.size() + 1, buffer);
    return TRUE;
}

/// A volume that can be flushed, and the calls that were made for it.
struct FlushableVolume {
    std::wstring mountPoint = L"D:\\";
    std::wstring volume = L"\\\\?\\Volume{01234567-89AB-CDEF-0123-456789ABCDEF}\\";
    /// The call that fails.
    std::string refused;
    std::vector<std::string> calls;
    UniqueHandle handle = OwnHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));

    bool Made(const char* call) {
        calls.emplace_back(call);
        SetLastError(ERROR_ACCESS_DENIED);
        return refused != call;
    }

    HANDLE Opened() { return Made("open") ? handle.get() : INVALID_HANDLE_VALUE; }

    ScopedReplacement<decltype(GetVolumePathNameW)> path{
        doubles::GetVolumePathNameW, [this](LPCWSTR directory, LPWSTR buffer, DWORD units) {
            EXPECT_STREQ(directory, L"D:\\data\\x");
            return Made("path") ? Answer(mountPoint, buffer, units) : FALSE;
        }};
    ScopedReplacement<decltype(GetVolumeNameForVolumeMountPointW)> name{
        doubles::GetVolumeNameForVolumeMountPointW,
        [this](LPCWSTR asked, LPWSTR buffer, DWORD units) {
            EXPECT_EQ(asked, mountPoint);
            return Made("name") ? Answer(volume, buffer, units) : FALSE;
        }};
    ScopedReplacement<decltype(CreateFileW)> open{
        doubles::CreateFileW,
        [this](LPCWSTR file, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
               DWORD disposition, DWORD flags, HANDLE model) -> HANDLE {
            EXPECT_EQ(file + std::wstring(L"\\"), volume) << "the volume, not its root directory";
            EXPECT_EQ(access, GENERIC_WRITE);
            EXPECT_EQ(share, static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE));
            EXPECT_EQ(security, nullptr);
            EXPECT_EQ(disposition, static_cast<DWORD>(OPEN_EXISTING));
            EXPECT_EQ(flags, 0U);
            EXPECT_EQ(model, nullptr);
            return Opened();
        }};
    ScopedReplacement<decltype(FlushFileBuffers)> flush{doubles::FlushFileBuffers,
                                                        [this](HANDLE flushed) {
                                                            EXPECT_EQ(flushed, handle.get());
                                                            return Made("flush") ? TRUE : FALSE;
                                                        }};
    ScopedReplacement<decltype(CloseHandle)> close{doubles::CloseHandle, [this](HANDLE closed) {
                                                       EXPECT_EQ(closed, handle.get());
                                                       return Made("close") ? TRUE : FALSE;
                                                   }};
};

TEST(VolumeFlush, IsAskedForOnceOfTheVolumeThatHoldsTheDirectory) {
    FlushableVolume volume;
    EXPECT_TRUE(FlushVolumeOf(L"D:\\data\\x"));
    EXPECT_THAT(volume.calls, ElementsAre("path", "name", "open", "flush", "close"));
}

TEST(VolumeFlush, FailsWhenAnyStepDoesAndTriesNothingTwice) {
    const std::vector<std::vector<std::string>> callsUntilRefusal = {
        {"path"},
        {"path", "name"},
        {"path", "name", "open"},
        {"path", "name", "open", "flush", "close"},
    };
    const char* refusals[] = {"path", "name", "open", "flush"};
    for (std::size_t index = 0; index < std::size(refusals); ++index) {
        FlushableVolume volume;
        volume.refused = refusals[index];
        EXPECT_FALSE(FlushVolumeOf(L"D:\\data\\x")) << volume.refused;
        EXPECT_EQ(volume.calls, callsUntilRefusal[index]);
    }
}

TEST(VolumeFlush, OfADirectoryThatDoesNotExistRaisesNothing) {
    EXPECT_NO_THROW(FlushVolumeOf(L""));
    EXPECT_NO_THROW(FlushVolumeOf(L"no such:directory?"));
    EXPECT_NO_THROW(FlushVolumeOf(std::wstring(40000, L'x')));
}

}  // namespace
}  // namespace updater
