#include "demo/screenshot.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include "end_to_end/waiting.h"

// After the Windows types that they need.
#include <objbase.h>

#include <algorithm>

// The header calls these by their bare names.
namespace Gdiplus {
using std::max;
using std::min;
}  // namespace Gdiplus

#include <gdiplus.h>

namespace updater {

namespace {

struct BitmapDeleter {
    using pointer = HBITMAP;
    void operator()(HBITMAP bitmap) const noexcept { DeleteObject(bitmap); }
};
using UniqueBitmap = std::unique_ptr<void, BitmapDeleter>;

struct Size {
    int width = 0;
    int height = 0;
};

UniqueBitmap CopyFromScreen(const RECT& place, const Size& size) {
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    UniqueBitmap bitmap(CreateCompatibleBitmap(screen, size.width, size.height));
    HGDIOBJ before = SelectObject(memory, bitmap.get());
    const BOOL copied =
        BitBlt(memory, 0, 0, size.width, size.height, screen, place.left, place.top, SRCCOPY);
    SelectObject(memory, before);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    if (copied == 0) {
        throw std::runtime_error("The screen cannot be copied");
    }
    return bitmap;
}

std::vector<std::byte> BytesOf(const UniqueBitmap& bitmap, const Size& size) {
    constexpr LONG kBytesOfPixel = 4;
    std::vector<std::byte> bytes(static_cast<std::size_t>(size.width * size.height) *
                                 kBytesOfPixel);
    GetBitmapBits(bitmap.get(), static_cast<LONG>(bytes.size()), bytes.data());
    return bytes;
}

void SavePng(const UniqueBitmap& bitmap, const std::filesystem::path& file) {
    ULONG_PTR token = 0;
    const Gdiplus::GdiplusStartupInput input;
    if (Gdiplus::GdiplusStartup(&token, &input, nullptr) != Gdiplus::Ok) {
        throw std::runtime_error("There is no library for pictures");
    }
    CLSID png{};
    CLSIDFromString(L"{557CF406-1A04-11D3-9A73-0000F81EF32E}", &png);
    const Gdiplus::Status status = [&] {
        Gdiplus::Bitmap picture(bitmap.get(), nullptr);
        return picture.Save(file.c_str(), &png, nullptr);
    }();
    Gdiplus::GdiplusShutdown(token);
    if (status != Gdiplus::Ok) {
        throw std::runtime_error("The picture cannot be saved");
    }
}

}  // namespace

void SaveScreenshot(HWND window, const std::filesystem::path& file) {
    constexpr DWORD kPause = 300;
    RECT place{};
    GetWindowRect(window, &place);
    const Size size{place.right - place.left, place.bottom - place.top};
    UniqueBitmap bitmap;
    std::vector<std::byte> bytes;
    AwaitCondition("a picture that stays the same", [&] {
        Sleep(kPause);
        bitmap = CopyFromScreen(place, size);
        std::vector<std::byte> next = BytesOf(bitmap, size);
        std::swap(bytes, next);
        return bytes == next;
    });
    SavePng(bitmap, file);
}

}  // namespace updater
