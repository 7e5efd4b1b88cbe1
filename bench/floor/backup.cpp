// floor-backup PROGRAM TARGET
//
// Prints how many seconds it takes to copy a program's files to a new directory and to compare the
// digests of copies and sources, with bare Windows calls.

#include "floor/program_copy.h"
#include "program_main.h"
#include "stopwatch.h"

namespace bench {

namespace {

void Run(std::span<wchar_t*> arguments) {
    const std::filesystem::path program = arguments[0];
    const FileList list = ReadFileList(program);
    const std::vector<std::filesystem::path> unlisted = UnlistedFiles(program);
    const std::int64_t begin = CounterNow();
    CopyWithDigests(program, arguments[1], list, unlisted);
    PrintNumbers({SecondsSince(begin)});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 2,
                             "floor-backup PROGRAM TARGET", bench::Run);
}
