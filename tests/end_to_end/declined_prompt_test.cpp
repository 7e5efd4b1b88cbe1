#include <gtest/gtest.h>

#include "end_to_end/build_outputs.h"
#include "end_to_end/update_expectations.h"
#include "end_to_end/update_request.h"
#include "fixtures/built_path.h"

namespace updater {
namespace {

TEST_F(UpdateTest, LeavesTheApplicationAsItIsWhenItsUserDeclinesThePrompt) {
    const ScopedVariable userData(L"LOCALAPPDATA", InWorkspace(L"本地 数据").native());
    Publisher publisher;
    PublishRelease(publisher, L"v2", L"v2");
    StartWithFeed(*this, publisher);
    DownloadOffered(*this, "2.0.0.0");

    constexpr char kDeclined[] = "The update was not allowed; nothing was changed";
    UpdateWith(BuiltPath(CORVELLAN_DECLINING_UPDATER), *this, kDeclined);
    EXPECT_EQ(UpdateStatusText(application), kDeclined);
    ExpectNothingChanged(*this);
    // The user thinks better of it, and has nothing to download again.
    RestartToUpdate(*this);
    AnswerPrompt();
    EXPECT_EQ(AwaitBroker(), 0U);
    ExpectVersion2(*this);
    ExpectRestart(job.installDirectory, "2.0.0.0");
    EXPECT_EQ(publisher.servers.Requests(kUnruly).size(), 1U);
}

}  // namespace
}  // namespace updater
