// floor-digest file|memory FILE
//
// Prints how many seconds the digest of a file takes, read with bare Windows calls or fed from
// memory that has been filled before.

#include <fstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "floor/bare_calls.h"
#include "program_main.h"
#include "stopwatch.h"

namespace bench {

namespace {

std::vector<unsigned char> ReadWholeFile(const std::filesystem::path& file) {
    std::vector<unsigned char> bytes(std::filesystem::file_size(file));
    std::ifstream stream(file, std::ios::binary);
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!stream) {
        throw std::runtime_error("The file cannot be read");
    }
    return bytes;
}

double TimeFromMemory(const std::filesystem::path& file) {
    std::vector<unsigned char> bytes = ReadWholeFile(file);
    const std::int64_t begin = CounterNow();
    DigestOfMemory(bytes);
    return SecondsSince(begin);
}

double TimeFromFile(const std::filesystem::path& file) {
    const std::int64_t begin = CounterNow();
    DigestOfFile(file);
    return SecondsSince(begin);
}

void Run(std::span<wchar_t*> arguments) {
    const bool memory = std::wstring_view(arguments[0]) == L"memory";
    PrintNumbers({memory ? TimeFromMemory(arguments[1]) : TimeFromFile(arguments[1])});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 2,
                             "floor-digest file|memory FILE", bench::Run);
}
