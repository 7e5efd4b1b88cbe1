#include "world/process_command_line.h"

namespace updater {

Replacement<decltype(GetCommandLineW)> getCommandLine;

extern "C" {
extern decltype(&GetCommandLineW) __real___imp_GetCommandLineW;
decltype(&GetCommandLineW) __wrap___imp_GetCommandLineW =
    ImportDouble<getCommandLine, __real___imp_GetCommandLineW>::Call;
}

}  // namespace updater
