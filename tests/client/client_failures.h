#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "client/failure.h"

namespace updater {

// Matchers for a callable, as in EXPECT_THAT([&] { Fetch(...); }, RaisesResult(...)).

/// A failure that the application is told by this code.
inline auto RaisesResult(AppUpdateResult result) {
    return testing::Throws<ClientFailure>(testing::Field(&ClientFailure::result, result));
}

/// The same, with a sentence that has this text in it.
inline auto RaisesResult(AppUpdateResult result, const std::string& text) {
    return testing::AllOf(RaisesResult(result),
                          testing::ThrowsMessage<ClientFailure>(testing::HasSubstr(text)));
}

/// The same, with this error number of Windows.
inline auto RaisesResult(AppUpdateResult result, const std::string& text, std::uint32_t error) {
    return testing::AllOf(RaisesResult(result, text), testing::Throws<ClientFailure>(testing::Field(
                                                          &ClientFailure::systemError, error)));
}

}  // namespace updater
