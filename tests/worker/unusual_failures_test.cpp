// Failures that no step of an installation raises by itself: what the standard library raises when
// memory runs out or a length is exceeded.

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <new>
#include <stdexcept>
#include <typeinfo>

#include "fixtures/doubles/updater_doubles.h"
#include "fixtures/file_content.h"
#include "fixtures/scenes/installation_scene.h"
#include "worker/installation.h"

namespace updater {
namespace {

// An installation in which a failure is raised when a step is reached for the first time from the
// record "installing" on.
struct FailingInstallation : InstallationScene {
    FailingInstallation(std::string failingStep, void (*failure)())
        : step(std::move(failingStep)), raise(failure) {
        onRecord = [this](const StatusRecord& record) {
            installing = true;
            Reach("write " + record.state);
        };
        onSetupStart = [this] { Reach("start setup"); };
        onVersionRead = [this](int) { Reach("read version"); };
    }

    void Reach(const std::string& reached) {
        if (installing && !raised && reached == step) {
            raised = true;
            raise();
        }
    }

    std::string step;
    void (*raise)();
    bool installing = false;
    bool raised = false;

    ScopedReplacement<decltype(QuoteArgument)> quoting{doubles::QuoteArgument,
                                                       [this](std::wstring_view argument) {
                                                           Reach("quote");
                                                           return QuoteArgument(argument);
                                                       }};
    ScopedReplacement<decltype(FileSha256Hex)> digest{doubles::FileSha256Hex,
                                                      [this](const std::filesystem::path& file) {
                                                          Reach("compute digest");
                                                          return FileSha256Hex(file);
                                                      }};
};

void RaiseOutOfMemory() {
    throw std::bad_alloc();
}

void RaiseTooLong() {
    throw std::length_error("map/set too long");
}

struct UnusualFailure {
    const char* name;
    const char* step;
    void (*raise)();
};

const UnusualFailure kUnusualFailures[] = {
    {"MemoryForTheFirstRecord", "write installing", RaiseOutOfMemory},
    {"MemoryForTheCommandLine", "quote", RaiseOutOfMemory},
    {"CommandLineTooLong", "quote", RaiseTooLong},
    {"MemoryForTheStart", "start setup", RaiseOutOfMemory},
    {"MemoryForTheVersion", "read version", RaiseOutOfMemory},
    {"VersionTooLong", "read version", RaiseTooLong},
    {"MemoryForADigest", "compute digest", RaiseOutOfMemory},
    {"PositionInTheInventory", "compute digest", [] { throw std::out_of_range("basic_string"); }},
    {"TypeInTheInventory", "compute digest", [] { throw std::bad_cast(); }},
    {"AnythingInTheInventory", "compute digest", [] { throw std::exception(); }},
    {"MemoryForTheLastRecord", "write succeeded", RaiseOutOfMemory},
    {"LastRecordTooLong", "write succeeded", RaiseTooLong},
};

std::string MessageOf(void (*raise)()) {
    try {
        raise();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "nothing raised";
}

struct RollbackAfterUnusualFailure : testing::TestWithParam<UnusualFailure> {};

TEST_P(RollbackAfterUnusualFailure, RestoresTheProgramAndReportsTheFailure) {
    FailingInstallation scene(GetParam().step, GetParam().raise);
    const auto before = ReadTreeContent(scene.installDirectory);
    EXPECT_EQ(InstallUpdate(scene.installation), 1);
    EXPECT_TRUE(scene.raised);
    const std::string message = MessageOf(GetParam().raise) + "; previous program restored";
    EXPECT_EQ(ReadStatusRecord(scene.jobDirectory), (StatusRecord{"failed", message, 1}));
    EXPECT_EQ(ReadTreeContent(scene.installDirectory), before);
    EXPECT_EQ(RegisteredVersion(), L"1.0");
}

INSTANTIATE_TEST_SUITE_P(Of, RollbackAfterUnusualFailure, testing::ValuesIn(kUnusualFailures),
                         [](const auto& test) { return test.param.name; });

TEST(UnusualFailure, OfThePreparationIsRaisedAndNothingRolledBack) {
    InstallationScene scene;
    scene.onVersionRead = [](int) { RaiseOutOfMemory(); };
    EXPECT_THROW(InstallUpdate(scene.installation), std::bad_alloc);
    EXPECT_TRUE(scene.status.records.empty());
    EXPECT_FALSE(scene.Did("restore"));
}

TEST(UnusualFailure, OfTheRollbackIsRaisedInsteadOfTheFirst) {
    FailingInstallation scene("read version", RaiseOutOfMemory);
    scene.LetSetupEndWith("1");
    EXPECT_THROW(InstallUpdate(scene.installation), std::bad_alloc);
    EXPECT_TRUE(scene.Did("restore"));
    EXPECT_EQ(scene.status.records.back().state, "installing");
}

}  // namespace
}  // namespace updater
