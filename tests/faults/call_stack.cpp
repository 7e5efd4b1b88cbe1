#include "faults/call_stack.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>

#include "app/dispatch.h"
#include "support/process_utilities.h"
#include "support/windows_api.h"

namespace updater::faults {

namespace {

constexpr std::string_view kNamespace = "_ZN7updater";
constexpr std::string_view kAnonymousNamespace = "12_GLOBAL__N_1";
constexpr std::string_view kOutermostFunction = "RunUpdater";

// Addresses as the linker gave them, each with its function's name; no name for what is not the
// updater's.
using Symbols = std::map<std::uintptr_t, std::string>;

// The updater's functions are free functions of one namespace:
// "_ZN7updater12_GLOBAL__N_18RollBackE…" is RollBack.
std::string FunctionName(std::string_view symbol) {
    if (!symbol.starts_with(kNamespace)) {
        return {};
    }
    symbol.remove_prefix(kNamespace.size());
    if (symbol.starts_with(kAnonymousNamespace)) {
        symbol.remove_prefix(kAnonymousNamespace.size());
    }
    std::size_t length = 0;
    const char* end = symbol.data() + symbol.size();
    const auto number = std::from_chars(symbol.data(), end, length);
    return std::string(number.ptr, static_cast<std::size_t>(end - number.ptr)).substr(0, length);
}

// A line reads "0000000140001450 T _ZN7updater10RunUpdaterEv".
Symbols ReadSymbols() {
    const std::filesystem::path program = GetProcessImagePath(GetCurrentProcess());
    std::ifstream listing(std::filesystem::path(program.native() + L".symbols"), std::ios::binary);
    Symbols symbols;
    for (std::string line; std::getline(listing, line);) {
        if (line.size() > 19 && (line[17] == 't' || line[17] == 'T')) {
            symbols[std::stoull(line.substr(0, 16), nullptr, 16)] =
                FunctionName(std::string_view(line).substr(19));
        }
    }
    return symbols;
}

// How far the program was loaded from where the linker had put it.
std::uintptr_t LoadOffset(const Symbols& symbols) {
    const auto outermost =
        std::ranges::find(symbols, kOutermostFunction, &Symbols::value_type::second);
    if (outermost == symbols.end()) {
        throw std::runtime_error("The list of this program's symbols is missing");
    }
    return reinterpret_cast<std::uintptr_t>(&RunUpdater) - outermost->first;
}

std::string FunctionAt(std::uintptr_t address) {
    static const Symbols symbols = ReadSymbols();
    static const std::uintptr_t offset = LoadOffset(symbols);
    auto symbol = symbols.upper_bound(address - offset);
    return symbol == symbols.begin() ? std::string() : (--symbol)->second;
}

}  // namespace

std::vector<std::string> UpdaterFunctionsOnStack() {
    std::array<void*, 62> addresses{};
    const USHORT depth = RtlCaptureStackBackTrace(1, static_cast<DWORD>(addresses.size()),
                                                  addresses.data(), nullptr);
    std::vector<std::string> functions;
    for (USHORT frame = 0; frame < depth; ++frame) {
        const std::string name = FunctionAt(reinterpret_cast<std::uintptr_t>(addresses[frame]));
        if (name == kOutermostFunction) {
            return functions;
        }
        if (!name.empty() && name != "faults") {
            functions.push_back(name);
        }
    }
    throw std::runtime_error("A call outside the updater's run was recorded");
}

}  // namespace updater::faults
