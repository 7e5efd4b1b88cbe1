// product-operation digest FILE
// product-operation backup PROGRAM TARGET
// product-operation verification PROGRAM
//
// Prints how many seconds an operation of the updater takes, and the process's peak of private
// bytes and of pages in memory, in MiB.

#include <iostream>
#include <string_view>

#include "product/memory_use.h"
#include "program_main.h"
#include "snapshot/program_backup.h"
#include "snapshot/program_verification.h"
#include "stopwatch.h"
#include "support/file_digest.h"

namespace bench {

namespace {

template <typename Operation>
void Measure(Operation operation) {
    const std::int64_t begin = CounterNow();
    operation();
    const double seconds = SecondsSince(begin);
    const MemoryUse memory = PeakMemoryUse();
    PrintNumbers({seconds, memory.privatePeak, memory.residentPeak});
}

void Run(std::span<wchar_t*> arguments) {
    const std::wstring_view operation = arguments[0];
    const std::filesystem::path subject = arguments[1];
    if (operation == L"digest") {
        Measure([&] { updater::FileSha256Hex(subject); });
    } else if (operation == L"backup") {
        const std::filesystem::path target = arguments[2];
        Measure([&] { updater::BackupProgram(subject, target); });
    } else {
        Measure([&] { updater::VerifyInstalledProgram(subject); });
    }
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    const bool backup = count > 1 && std::wstring_view(tokens[1]) == L"backup";
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, backup ? 3 : 2,
                             "product-operation digest FILE | backup PROGRAM TARGET | "
                             "verification PROGRAM",
                             bench::Run);
}
