#include "faults/sweep_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string_view>

namespace updater::faults {

namespace {

struct Total {
    std::size_t swept = 0;
    std::size_t survived = 0;
    std::set<std::string_view> functions;
};

Total total;

// The functions that the updater's objects call.
constexpr std::string_view kCalledFunctions[] = {
#define SWEPT_CALL(function) #function,
#include "swept_calls.inc"
#undef SWEPT_CALL
};

// The library's streams have these for what the updater does not do with them.
constexpr std::string_view kUnusedStreamFunctions[] = {"_fstat64", "fdopen",  "fflush",
                                                       "fopen64",  "lseek64", "setvbuf"};

struct WholeProgram : testing::Environment {
    void TearDown() override {
        std::printf("All modes: %zu calls swept, %zu survived\n", total.swept, total.survived);
        if (testing::GTEST_FLAG(filter) != "*") {
            return;
        }
        for (const std::string_view function : kCalledFunctions) {
            const bool unused = std::ranges::find(kUnusedStreamFunctions, function) !=
                                std::end(kUnusedStreamFunctions);
            EXPECT_EQ(total.functions.contains(function), CanFail(function) && !unused)
                << function << " is called by the updater, but in none of the swept modes";
        }
    }
};

// Registered before the tests run, as GoogleTest wants it.
const testing::Environment* const wholeProgram =
    testing::AddGlobalTestEnvironment(new WholeProgram);

}  // namespace

void ReportSweep(const std::string& mode, const std::vector<Call>& calls, std::size_t survived) {
    std::printf("%s: %zu calls swept, %zu survived\n", mode.c_str(), calls.size(), survived);
    total.swept += calls.size();
    total.survived += survived;
    for (const Call& call : calls) {
        total.functions.insert(call.function);
    }
}

}  // namespace updater::faults
