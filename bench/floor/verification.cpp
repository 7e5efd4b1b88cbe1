// floor-verification PROGRAM
//
// Prints how many seconds it takes to compare the digests of a program's files with its list, with
// bare Windows calls.

#include "floor/program_copy.h"
#include "program_main.h"
#include "stopwatch.h"

namespace bench {

namespace {

void Run(std::span<wchar_t*> arguments) {
    const std::filesystem::path program = arguments[0];
    const FileList list = ReadFileList(program);
    const std::int64_t begin = CounterNow();
    CheckDigests(program, list);
    PrintNumbers({SecondsSince(begin)});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 1,
                             "floor-verification PROGRAM", bench::Run);
}
