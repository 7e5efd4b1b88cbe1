#include "worker/worker_options.h"

#include "support/canonical_path.h"
#include "support/number_text.h"
#include "support/text_conversion.h"

namespace updater {

WorkerOptions ReadWorkerOptions(const UpdaterArguments& arguments) {
    WorkerOptions options;
    options.setupProgram = RequireArgument(arguments, kInstallerOption);
    options.installDirectory = CanonicalPath(RequireArgument(arguments, kInstallDirOption));
    options.jobDirectory = RequireArgument(arguments, kJobDirOption);
    options.version = RequireArgument(arguments, kVersionOption);
    options.sha256 = WideToUtf8(RequireArgument(arguments, kSha256Option));
    options.size = ParseUnsigned64(RequireArgument(arguments, kSizeOption));
    options.parentProcessId = ParseUnsigned32(RequireArgument(arguments, kParentPidOption));
    return options;
}

}  // namespace updater
