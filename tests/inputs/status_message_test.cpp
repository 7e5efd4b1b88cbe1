#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"
#include "fuzz/oracle/message_text.h"
#include "inputs/random_source.h"
#include "inputs/random_text.h"
#include "support/status_file.h"
#include "support/status_text.h"
#include "support/text_conversion.h"

namespace updater {

namespace {

// Whatever a message is made of, its parts went through the system's conversion.
std::string RandomMessage(RandomSource& random) {
    const std::size_t length = RandomBelow(random, OneIn(random, 50) ? 3000 : 60);
    return OneIn(random, 3) ? WideToUtf8(RandomArgument(random, length))
                            : WideToUtf8(Utf8ToWide(RandomBytes(random, length)));
}

std::int32_t RandomExitCode(RandomSource& random) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(random()));
}

void ExpectRecord(const std::string& text, const std::string& message, std::int32_t exitCode) {
    const nlohmann::json record = nlohmann::json::parse(text, nullptr, false);
    ASSERT_FALSE(record.is_discarded()) << testing::PrintToString(text);
    const nlohmann::json expected = {
        {"state", "failed"}, {"message", WithSpacesForControls(message)}, {"exitCode", exitCode}};
    ASSERT_EQ(record, expected) << testing::PrintToString(text);
}

TEST(StatusInputs, EveryMessageGivesAValidRecord) {
    RandomSource random = MakeRandomSource("status text");
    for (int round = 0; round < 20000; ++round) {
        const std::string message = RandomMessage(random);
        const std::int32_t exitCode = RandomExitCode(random);
        ASSERT_NO_FATAL_FAILURE(
            ExpectRecord(FormatStatusRecord("failed", message, exitCode), message, exitCode));
    }
}

TEST(StatusInputs, EveryMessageGivesAValidFile) {
    const TemporaryDirectory directory;
    RandomSource random = MakeRandomSource("status file");
    for (int round = 0; round < 100; ++round) {
        const std::string message = RandomMessage(random);
        const std::int32_t exitCode = RandomExitCode(random);
        WriteUpdateStatus(directory.path, kStateFailed, message, exitCode);
        ASSERT_NO_FATAL_FAILURE(
            ExpectRecord(ReadFileContent(directory.path / kStatusFile), message, exitCode));
    }
}

}  // namespace

}  // namespace updater
