#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "client/failure.h"

namespace updater {

// Matchers for a callable, as in EXPECT_THAT([&] { Fetch(...); }, RaisesResult(...)).

/// A failure that the application is told by this code, with a sentence that has this text in it.
inline auto RaisesResult(AppUpdateResult result, const std::string& text = "") {
    // One matcher: each one that a callable is given to calls it.
    return testing::Throws<ClientFailure>(
        testing::AllOf(testing::Field(&ClientFailure::result, result),
                       testing::Property(&ClientFailure::what, testing::HasSubstr(text))));
}

/// The same, with this error number of Windows.
inline auto RaisesResult(AppUpdateResult result, const std::string& text, std::uint32_t error) {
    return testing::Throws<ClientFailure>(
        testing::AllOf(testing::Field(&ClientFailure::result, result),
                       testing::Property(&ClientFailure::what, testing::HasSubstr(text)),
                       testing::Field(&ClientFailure::systemError, error)));
}

}  // namespace updater
