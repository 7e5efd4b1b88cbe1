#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "end_to_end/build_outputs.h"
#include "end_to_end/running_processes.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/waiting.h"
#include "fixtures/application_names.h"
#include "fixtures/temporary_directory.h"
#include "hardening/planted_libraries.h"
#include "support/argument_quoting.h"
#include "support/file_system.h"
#include "support/process_utilities.h"
#include "support/status_file.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

// What the elevation stand-in calls the updater that it starts as the worker.
constexpr wchar_t kWorkerName[] = IDENTITY_UPDATER L".real";

// Directories with a plant under every name.
struct PlantedPlaces {
    PlantedPlaces() {
        for (const std::filesystem::path& place : {program, current, job}) {
            CreateDirectories(place);
            PlantLibraries(place, names);
        }
    }

    // A sentence for each plant that was loaded.
    [[nodiscard]] std::vector<std::string> Loaded() const {
        std::vector<std::string> loaded;
        for (const std::filesystem::path& place : {program, current, job}) {
            std::ranges::transform(
                LoadMarks(place), std::back_inserter(loaded), [&](const LoadMark& mark) {
                    return WideToUtf8((place / mark.library).native()) + " in " + mark.program;
                });
        }
        return loaded;
    }

    std::vector<std::wstring> names = LibrariesToPlant();
    NativeLibrariesFirst inUpdater{UpdaterName(), names};
    NativeLibrariesFirst inWorker{kWorkerName, names};
    TemporaryDirectory directory;
    std::filesystem::path program = directory.path / L"program";
    std::filesystem::path current = directory.path / L"current";
    std::filesystem::path job = directory.path / L"job";
};

struct PlantedLibraries : testing::Test {
    static void SetUpTestSuite() { places = std::make_unique<PlantedPlaces>(); }
    static void TearDownTestSuite() {
        EndProcessesBelow(places->directory.path);
        places.reset();
    }
    void SetUp() override { ASSERT_TRUE(places); }
    void TearDown() override {
        for (const std::filesystem::path& place : {places->program, places->current, places->job}) {
            RemoveLoadMarks(place);
        }
        RemoveFile(places->job / kStatusFile);
    }

    static std::uint32_t RunAsUpdater(const std::filesystem::path& program,
                                      const std::wstring& arguments, StartToken token) {
        const std::filesystem::path placed = places->program / UpdaterName();
        CopyOverFile(program, placed);
        const StartedProgram started = StartProgram({placed, arguments, places->current, token});
        return AwaitEnd(started.process.get(), "a program's end");
    }

    static std::vector<std::wstring> NamesOfLoaded() {
        const std::vector<LoadMark> marks = LoadMarks(places->program);
        std::vector<std::wstring> names(marks.size());
        std::ranges::transform(marks, names.begin(), &LoadMark::library);
        return names;
    }

    inline static std::unique_ptr<PlantedPlaces> places;
};

struct Mode {
    const wchar_t* flag;
    std::uint32_t exitCode;
};

// Without any option more, worker and broker end early; the update below takes them further.
constexpr Mode kModes[] = {{L"", 1}, {L"--self-test", 0}, {L"--worker", 1}, {L"--broker", 1}};

TEST_F(PlantedLibraries, AreLoadedInNoMode) {
    ASSERT_TRUE(IsProcessElevated());
    for (const Mode& mode : kModes) {
        for (const StartToken token : {StartToken::Limited, StartToken::Elevated}) {
            SCOPED_TRACE(WideToUtf8(mode.flag) +
                         (token == StartToken::Elevated ? " elevated" : " limited"));
            const std::wstring arguments =
                mode.flag + (L" --job-dir " + QuoteArgument(places->job.native()));
            EXPECT_EQ(RunAsUpdater(RealUpdater(), arguments, token), mode.exitCode);
            EXPECT_EQ(places->Loaded(), std::vector<std::string>());
        }
    }
}

// It calls everything that the updater uses: it goes through to the rollback and the error box.
TEST_F(PlantedLibraries, AreLoadedInNoStepOfAnUpdate) {
    UpdateScene scene;
    scene.job.updater = PlaceUpdater(places->program);
    scene.job.jobDirectory = places->job;
    scene.OfferSetup(L"v2-empty-inventory", L"2.0.0.0");
    scene.BeginUpdate();
    EXPECT_EQ(places->Loaded(), std::vector<std::string>());
    CloseApplication(scene.application);
    ExpectErrorBox(
        scene,
        RecordText("failed", "Installed program inventory is empty; previous program restored", 1));
    EXPECT_EQ(places->Loaded(), std::vector<std::string>());
}

std::filesystem::path TrustingProgram() {
    const std::filesystem::path own = GetProcessImagePath(GetCurrentProcess());
    return own.parent_path() / L"trusting-program.exe";
}

// What the tests above find means something only if a program that takes no care loads the plants
// in the same place.
TEST_F(PlantedLibraries, AreLoadedByAProgramThatTakesNoCare) {
    EXPECT_EQ(RunAsUpdater(TrustingProgram(), L"", StartToken::Limited), 0U);
    EXPECT_EQ(NamesOfLoaded(), std::vector<std::wstring>{L"version.dll"});

    std::wstring arguments;
    for (const std::wstring& name : places->names) {
        arguments += name + L' ';
    }
    EXPECT_EQ(RunAsUpdater(TrustingProgram(), arguments, StartToken::Limited), 0U);
    EXPECT_EQ(NamesOfLoaded(), places->names);
}

}  // namespace

}  // namespace updater
