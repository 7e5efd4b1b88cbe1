#include "client/part_file.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "client/digest.h"
#include "client/json_reading.h"
#include "client/whole_file.h"
#include "support/json_text.h"
#include "support/text_conversion.h"
#include "support/windows_api.h"

namespace updater {

namespace {

constexpr char kAddressName[] = "address";
constexpr char kConditionName[] = "condition";
constexpr char kSizeName[] = "size";
constexpr char kDigestName[] = "sha256";

constexpr std::size_t kLargestOrigin = 65536;
constexpr std::size_t kLongestCondition = 1024;

std::filesystem::path OriginPath(const std::filesystem::path& part) {
    return std::filesystem::path(part).replace_extension(L".json");
}

// What can be a header of a request, and nothing more than that.
bool IsHeaderText(std::wstring_view text) {
    return text.size() <= kLongestCondition && std::ranges::all_of(text, [](wchar_t character) {
               return character >= L' ' && character <= L'~';
           });
}

// A weak entity tag stays the same when bytes change.
std::wstring ConditionOf(const HttpsHead& head) {
    const std::wstring& condition =
        head.entityTag.starts_with(L'"') ? head.entityTag : head.lastModified;
    return IsHeaderText(condition) ? condition : std::wstring();
}

void WriteOrigin(const PartFile& part, const DownloadOrder& order) {
    ReplaceWholeFile(OriginPath(part.file),
                     JsonObject({{kAddressName, JsonString(WideToUtf8(order.address))},
                                 {kConditionName, JsonString(WideToUtf8(part.condition))},
                                 {kSizeName, std::to_string(order.size)},
                                 {kDigestName, JsonString(order.sha256)}}));
}

template <typename Content>
bool Has(const JsonFields& fields, std::string_view name, const Content& wanted) {
    const auto* const content = FindJson<Content>(fields, name);
    return content != nullptr && *content == wanted;
}

// Returns the condition for going on; an empty one for a part file of something else.
std::wstring ReadCondition(const std::filesystem::path& part, const DownloadOrder& order) {
    const std::optional<std::string> text = ReadFileUpTo(OriginPath(part), kLargestOrigin);
    const JsonReading reading = ReadJsonObject(text.value_or(""));
    if (!reading.object || !Has(*reading.object, kAddressName, WideToUtf8(order.address)) ||
        !Has(*reading.object, kSizeName, order.size) ||
        !Has(*reading.object, kDigestName, order.sha256)) {
        return {};
    }
    const auto* const condition = FindJson<std::string>(*reading.object, kConditionName);
    const std::wstring wide = condition == nullptr ? std::wstring() : Utf8ToWide(*condition);
    return IsHeaderText(wide) ? wide : std::wstring();
}

void MoveToPosition(const PartFile& part, std::uint64_t position) {
    LARGE_INTEGER distance{};
    distance.QuadPart = static_cast<LONGLONG>(position);
    if (SetFilePointerEx(part.handle.get(), distance, nullptr, FILE_BEGIN) == 0) {
        RaiseFileFailure(kCannotWrite, part.file, GetLastError());
    }
}

std::uint64_t LengthOf(const PartFile& part) {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(part.handle.get(), &size) == 0) {
        RaiseFileFailure(kCannotRead, part.file, GetLastError());
    }
    return static_cast<std::uint64_t>(size.QuadPart);
}

}  // namespace

void EmptyPartFile(PartFile& part) {
    MoveToPosition(part, 0);
    if (SetEndOfFile(part.handle.get()) == 0) {
        RaiseFileFailure(kCannotWrite, part.file, GetLastError());
    }
    part.length = 0;
    part.condition.clear();
}

PartFile OpenPartFile(const DownloadOrder& order) {
    PartFile part;
    part.file = SetupPath(order.directory, order.sha256).replace_extension(L".part");
    part.handle =
        OwnHandle(CreateFileW(part.file.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                              nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!part.handle) {
        RaiseFileFailure(kCannotWrite, part.file, GetLastError());
    }
    part.length = LengthOf(part);
    part.condition = ReadCondition(part.file, order);
    if (part.condition.empty() || part.length > order.size) {
        EmptyPartFile(part);
    }
    MoveToPosition(part, part.length);
    return part;
}

void BeginPartFile(PartFile& part, const DownloadOrder& order, const HttpsHead& head) {
    EmptyPartFile(part);
    part.digest = StartSha256();
    part.condition = ConditionOf(head);
    if (part.condition.empty()) {
        DeleteFileW(OriginPath(part.file).c_str());
    } else {
        WriteOrigin(part, order);
    }
}

void ContinuePartFile(PartFile& part) {
    part.digest.reset();
}

void AppendToPartFile(PartFile& part, std::span<const char> bytes) {
    std::string_view rest(bytes.data(), bytes.size());
    if (part.digest) {
        FeedSha256(*part.digest, rest);
    }
    while (!rest.empty()) {
        DWORD written = 0;
        if (WriteFile(part.handle.get(), rest.data(), static_cast<DWORD>(rest.size()), &written,
                      nullptr) == 0) {
            RaiseFileFailure(kCannotWrite, part.file, GetLastError());
        }
        if (written == 0) {
            RaiseFileFailure(kCannotWrite, part.file, ERROR_DISK_FULL);
        }
        part.length += written;
        rest.remove_prefix(written);
    }
}

std::string PartFileDigest(const PartFile& part, const Cancellation& cancellation) {
    if (part.digest) {
        return Sha256Text(EndSha256(*part.digest));
    }
    MoveToPosition(part, 0);
    return Sha256OfFile(part.handle, part.file, cancellation);
}

void FinishPartFile(PartFile& part, const std::filesystem::path& setup) {
    // Else a power cut could leave the final name with less behind it.
    if (FlushFileBuffers(part.handle.get()) == 0) {
        RaiseFileFailure(kCannotWrite, part.file, GetLastError());
    }
    part.handle.reset();
    if (!MoveWholeFile(part.file, setup)) {
        RaiseFileFailure(kCannotWrite, setup, GetLastError());
    }
    DeletePartFile(part);
}

void LeavePartFile(PartFile& part) noexcept {
    if (part.length == 0 || part.condition.empty()) {
        DeletePartFile(part);
    }
    part.handle.reset();
}

void DeletePartFile(PartFile& part) noexcept {
    part.handle.reset();
    DeleteFileW(part.file.c_str());
    DeleteFileW(OriginPath(part.file).c_str());
}

}  // namespace updater
