// download-time floor|product FILE SHA256 DIRECTORY
//
// Prints how many seconds it takes to download a file into a directory from a server on this
// machine, with bare calls of WinHTTP or as the application's half of an update does it, and the
// process's peak of private bytes and of pages in memory, in MiB. The file is not copied: it has to
// be on the same volume as the system's directory for temporary files.

#include <stdexcept>
#include <string_view>

#include "client/download.h"
#include "client/https_server.h"
#include "floor/download.h"
#include "product/memory_use.h"
#include "program_main.h"
#include "stopwatch.h"
#include "support/text_conversion.h"

namespace bench {

namespace {

void DownloadBare(const updater::HttpsServers& servers, const std::filesystem::path& directory) {
    DownloadFile(L"localhost", servers.ports.find(updater::kNginx)->second, L"/file",
                 directory / L"file");
}

void DownloadAsTheProduct(const updater::HttpsServers& servers, std::uint64_t size,
                          const std::wstring& sha256, const std::filesystem::path& directory) {
    const updater::Cancellation cancellation = updater::CreateCancellation();
    const updater::UniqueTransport transport = updater::OpenTransport({}, cancellation);
    updater::DownloadSetup(*transport,
                           {.address = servers.Address(updater::kNginx, L"file"),
                            .size = size,
                            .sha256 = updater::WideToUtf8(sha256),
                            .directory = directory},
                           cancellation, {});
}

void Run(std::span<wchar_t*> arguments) {
    const updater::HttpsServers servers;
    const std::filesystem::path directory = arguments[3];
    if (CreateHardLinkW((servers.files / L"file").c_str(), arguments[1], nullptr) == 0) {
        throw std::runtime_error("The file cannot be put on the server");
    }
    const std::uint64_t size = std::filesystem::file_size(arguments[1]);
    std::filesystem::create_directories(directory);
    const std::int64_t begin = CounterNow();
    if (arguments[0] == std::wstring_view(L"floor")) {
        DownloadBare(servers, directory);
    } else {
        DownloadAsTheProduct(servers, size, arguments[2], directory);
    }
    const double seconds = SecondsSince(begin);
    const MemoryUse memory = PeakMemoryUse();
    PrintNumbers({seconds, memory.privatePeak, memory.residentPeak});
}

}  // namespace

}  // namespace bench

int wmain(int count, wchar_t** tokens) {
    return bench::RunProgram({tokens, static_cast<std::size_t>(count)}, 4,
                             "download-time floor|product FILE SHA256 DIRECTORY", bench::Run);
}
