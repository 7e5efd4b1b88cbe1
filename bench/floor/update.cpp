// floor-update SETUP PROGRAM TARGET
//
// Prints how many seconds the files of an update take with bare Windows calls: a copy of the setup
// program and its digest, the program's copies with two digests each, a flush of their volume, and
// one digest of each installed file. Then how many seconds of these the flush took, and 1 if the
// system did it.

#include "floor/bare_calls.h"
#include "floor/program_copy.h"
#include "program_main.h"
#include "stopwatch.h"

namespace bench {

namespace {

void Run(std::span<wchar_t*> arguments) {
    const std::filesystem::path program = arguments[1];
    const std::filesystem::path target = arguments[2];
    const FileList list = ReadFileList(program);
    const std::vector<std::filesystem::path> unlisted = UnlistedFiles(program);
    const std::int64_t begin = CounterNow();
    MakeDirectory(target);
    CopyWholeFile(arguments[0], target / L"installer.exe");
    DigestOfFile(target / L"installer.exe");
    CopyWithDigests(program, target / L"backup", list, unlisted);
    const std::int64_t flushBegin = CounterNow();
    const bool flushed = FlushVolume(target);
    const double flushSeconds = SecondsSince(flushBegin);
    CheckDigests(program, list);
    PrintNumbers({SecondsSince(begin), flushSeconds, flushed ? 1.0 : 0.0});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 3,
                             "floor-update SETUP PROGRAM TARGET", bench::Run);
}
