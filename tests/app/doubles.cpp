#include "app/doubles.h"

#include <filesystem>
#include <functional>

namespace updater {

REPLACE_IMPORTED(CommandLineToArgvW, commandLineToArgv)
REPLACE_IMPORTED(GetCommandLineW, getCommandLine)
REPLACE_IMPORTED(LocalFree, localFree)

Replacement<decltype(IsProcessElevated)> isProcessElevated;
Replacement<decltype(RunBroker)> runBroker;
Replacement<decltype(RunSelfTest)> runSelfTest;
Replacement<decltype(RunWorker)> runWorker;

extern "C" {

decltype(IsProcessElevated) __real__ZN7updater17IsProcessElevatedEv;
decltype(IsProcessElevated) __wrap__ZN7updater17IsProcessElevatedEv;
bool __wrap__ZN7updater17IsProcessElevatedEv() {
    return isProcessElevated.Call(__real__ZN7updater17IsProcessElevatedEv);
}

decltype(RunBroker)
    __real__ZN7updater9RunBrokerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE;
decltype(RunBroker)
    __wrap__ZN7updater9RunBrokerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE;
int __wrap__ZN7updater9RunBrokerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE(
    const UpdaterArguments& arguments) {
    return runBroker.Call(
        __real__ZN7updater9RunBrokerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE,
        std::cref(arguments));
}

decltype(RunSelfTest) __real__ZN7updater11RunSelfTestERKNSt10filesystem7__cxx114pathE;
decltype(RunSelfTest) __wrap__ZN7updater11RunSelfTestERKNSt10filesystem7__cxx114pathE;
int __wrap__ZN7updater11RunSelfTestERKNSt10filesystem7__cxx114pathE(
    const std::filesystem::path& jobDirectory) {
    return runSelfTest.Call(__real__ZN7updater11RunSelfTestERKNSt10filesystem7__cxx114pathE,
                            std::cref(jobDirectory));
}

decltype(RunWorker)
    __real__ZN7updater9RunWorkerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE;
decltype(RunWorker)
    __wrap__ZN7updater9RunWorkerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE;
int __wrap__ZN7updater9RunWorkerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE(
    const UpdaterArguments& arguments) {
    return runWorker.Call(
        __real__ZN7updater9RunWorkerERKSt3mapINSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEES6_St4lessIS6_ESaISt4pairIKS6_S6_EEE,
        std::cref(arguments));
}

}  // extern "C"

}  // namespace updater
