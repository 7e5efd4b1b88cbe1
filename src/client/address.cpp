#include "client/address.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <system_error>

#include "client/failure.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

constexpr std::wstring_view kSeparator = L"//";

// An address without its fragment: "scheme:", "//authority", the path, and "?query".
struct AddressParts {
    std::wstring_view scheme;
    std::optional<std::wstring_view> authority;
    std::wstring_view path;
    std::optional<std::wstring_view> query;
};

[[noreturn]] void RefuseAddress(std::wstring_view address) {
    throw ClientFailure(APP_UPDATE_INVALID_ARGUMENT,
                        "Not an address of a file on a server: " + WideToUtf8(address));
}

bool IsLetter(wchar_t character) {
    return (character >= L'a' && character <= L'z') || (character >= L'A' && character <= L'Z');
}

bool IsDigit(wchar_t character) {
    return character >= L'0' && character <= L'9';
}

// Printable ASCII without what no address has as it stands; a backslash is a slash to some readers.
bool IsAddressCharacter(wchar_t character) {
    constexpr std::wstring_view kNever = L"\"<>\\^`{|}";
    return character > L' ' && character < L'\x7F' &&
           kNever.find(character) == std::wstring_view::npos;
}

// Takes the part of the text before the first of these characters.
std::wstring_view TakeUntil(std::wstring_view& text, std::wstring_view characters) {
    const std::wstring_view part = text.substr(0, text.find_first_of(characters));
    text.remove_prefix(part.size());
    return part;
}

std::wstring_view TakeScheme(std::wstring_view& text) {
    const std::size_t colon = text.find_first_of(L":/?");
    if (colon == std::wstring_view::npos || text[colon] != L':' || colon == 0 ||
        !IsLetter(text.front()) ||
        !std::ranges::all_of(text.substr(0, colon), [](wchar_t character) {
            return IsLetter(character) || IsDigit(character) || character == L'+' ||
                   character == L'-' || character == L'.';
        })) {
        return {};
    }
    const std::wstring_view scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
    return scheme;
}

AddressParts SplitAddress(std::wstring_view address) {
    if (!std::ranges::all_of(address, IsAddressCharacter)) {
        RefuseAddress(address);
    }
    std::wstring_view rest = address.substr(0, address.find(L'#'));
    AddressParts parts;
    parts.scheme = TakeScheme(rest);
    if (rest.starts_with(kSeparator)) {
        rest.remove_prefix(kSeparator.size());
        parts.authority = TakeUntil(rest, L"/?");
        if (parts.authority->empty() || parts.authority->find(L'@') != std::wstring_view::npos) {
            RefuseAddress(address);
        }
    }
    parts.path = TakeUntil(rest, L"?");
    if (!rest.empty()) {
        parts.query = rest.substr(1);
    }
    // Such as "mailto:somebody", or "file:name".
    if (!parts.scheme.empty() && !parts.authority) {
        RefuseAddress(address);
    }
    return parts;
}

// Returns a path, which begins with a slash, without its "." and ".." segments.
std::wstring RemoveDotSegments(std::wstring_view path) {
    std::wstring result;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(L'/', 1), path.size());
        const std::wstring_view segment = path.substr(1, end - 1);
        path.remove_prefix(end);
        if (segment == L"..") {
            result.erase(std::min(result.rfind(L'/'), result.size()));
        }
        if (segment != L"." && segment != L"..") {
            result.append(L"/").append(segment);
        } else if (path.empty()) {
            result.append(L"/");
        }
    }
    return result;
}

std::wstring_view DirectoryOf(std::wstring_view path) {
    return path.substr(0, path.rfind(L'/') + 1);
}

std::wstring JoinedPath(const AddressParts& base, std::wstring_view relative) {
    if (relative.starts_with(L'/')) {
        return RemoveDotSegments(relative);
    }
    const std::wstring_view directory = DirectoryOf(base.path);
    return RemoveDotSegments(std::wstring(directory.empty() ? L"/" : directory).append(relative));
}

std::wstring JoinParts(std::wstring_view scheme, std::wstring_view authority,
                       const std::wstring& path, const std::optional<std::wstring_view>& query) {
    std::wstring address(scheme);
    address.append(L"://").append(authority).append(path);
    if (query) {
        address.append(L"?").append(*query);
    }
    return address;
}

std::uint16_t ReadPort(std::wstring_view text, std::wstring_view address) {
    const std::string digits = WideToUtf8(text);
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (error != std::errc() || end != digits.data() + digits.size() || port == 0) {
        RefuseAddress(address);
    }
    return port;
}

bool BeginsWithHttps(std::wstring_view address) {
    constexpr std::wstring_view kStart = L"https://";
    return std::ranges::equal(
        address.substr(0, kStart.size()), kStart, [](wchar_t given, wchar_t wanted) {
            return given == wanted || (IsLetter(given) && (given | 0x20) == wanted);
        });
}

}  // namespace

HttpsAddress ReadHttpsAddress(std::wstring_view address) {
    const AddressParts parts = SplitAddress(address);
    if (!BeginsWithHttps(address)) {
        RefuseAddress(address);
    }
    HttpsAddress result;
    std::wstring_view host = *parts.authority;
    // The colons within an address of the Internet's version 6 stand between brackets.
    const std::size_t colon = host.find(L':', host.starts_with(L'[') ? host.find(L']') : 0);
    if (colon != std::wstring_view::npos) {
        result.port = ReadPort(host.substr(colon + 1), address);
        host = host.substr(0, colon);
    }
    if (host.empty()) {
        RefuseAddress(address);
    }
    result.host = host;
    result.target = parts.path.empty() ? L"/" : parts.path;
    if (parts.query) {
        result.target.append(L"?").append(*parts.query);
    }
    return result;
}

std::wstring ResolveAddress(std::wstring_view base, std::wstring_view relative) {
    const AddressParts from = SplitAddress(base);
    const AddressParts to = SplitAddress(relative);
    if (from.scheme.empty()) {
        RefuseAddress(base);
    }
    if (!to.scheme.empty() || to.authority) {
        return JoinParts(to.scheme.empty() ? from.scheme : to.scheme, *to.authority,
                         RemoveDotSegments(to.path), to.query);
    }
    if (to.path.empty()) {
        return JoinParts(from.scheme, *from.authority, std::wstring(from.path),
                         to.query ? to.query : from.query);
    }
    return JoinParts(from.scheme, *from.authority, JoinedPath(from, to.path), to.query);
}

}  // namespace updater
