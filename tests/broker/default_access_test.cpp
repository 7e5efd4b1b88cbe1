// Under Wine an object that is created with default security has no access list at all; on Windows
// it has the token's default list. So the list itself is looked at.

#include "broker/default_access.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "broker/broker.h"
#include "fixtures/default_access_list.h"
#include "fixtures/doubles/windows_doubles.h"
#include "fixtures/scenes/broker_scene.h"
#include "support/handle.h"
#include "support/text_conversion.h"

namespace updater {
namespace {

TEST(DefaultAccess, OfAdministratorsIsAddedToTheListAndTheRestStays) {
    const ScopedDefaultAccessList list(kUsersAccessList);
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(DefaultAccessList(), WideToUtf8(kUsersAccessList) + "(A;;GA;;;BA)");
}

TEST(DefaultAccess, OfAdministratorsIsAddedOnce) {
    const ScopedDefaultAccessList list(kUsersAccessList);
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(DefaultAccessList(), WideToUtf8(kUsersAccessList) + "(A;;GA;;;BA)");
}

TEST(DefaultAccess, OfAdministratorsIsFoundAtTheBeginningOfTheListToo) {
    const ScopedDefaultAccessList list(L"D:(A;;GA;;;BA)(A;;GA;;;SY)");
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(DefaultAccessList(), "D:(A;;GA;;;BA)(A;;GA;;;SY)");
}

// Each of these entries gives the group less than full access, or gives it to somebody else.
TEST(DefaultAccess, OfAdministratorsIsAddedBesideEntriesThatAreNotTheSame) {
    for (const std::string entry :
         {"(A;;GR;;;BA)", "(D;;GA;;;BA)", "(A;IO;GA;;;BA)", "(A;;GA;;;BU)", "(A;;GXGWGR;;;BA)"}) {
        const ScopedDefaultAccessList list(Utf8ToWide("D:(A;;GA;;;SY)" + entry).c_str());
        const std::string before = DefaultAccessList();
        EXPECT_TRUE(GrantAdministratorsAccessByDefault());
        EXPECT_EQ(DefaultAccessList(), before + "(A;;GA;;;BA)");
    }
}

TEST(DefaultAccess, OfAdministratorsIsAddedToAnEmptyList) {
    const ScopedDefaultAccessList list(L"D:");
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(DefaultAccessList(), "D:(A;;GA;;;BA)");
}

TEST(DefaultAccess, OfATokenWithoutAListStaysWithoutOne) {
    int changes = 0;
    const ScopedReplacement<decltype(GetTokenInformation)> withoutList(
        doubles::GetTokenInformation,
        [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID data, DWORD size, PDWORD length) {
            *length = sizeof(TOKEN_DEFAULT_DACL);
            if (size < sizeof(TOKEN_DEFAULT_DACL)) {
                return FailWith(ERROR_INSUFFICIENT_BUFFER);
            }
            static_cast<TOKEN_DEFAULT_DACL*>(data)->DefaultDacl = nullptr;
            return TRUE;
        });
    const ScopedReplacement<decltype(SetTokenInformation)> counting(
        doubles::SetTokenInformation, [&changes](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD) {
            ++changes;
            return TRUE;
        });
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(changes, 0);
}

TEST(DefaultAccess, IsAskedForWithNoMoreRightsThanItTakes) {
    std::vector<DWORD> rights;
    const ScopedReplacement<decltype(OpenProcessToken)> observed(
        doubles::OpenProcessToken, [&rights](HANDLE process, DWORD access, PHANDLE token) {
            EXPECT_EQ(process, GetCurrentProcess());
            rights.push_back(access);
            return OpenProcessToken(process, access, token);
        });
    const ScopedDefaultAccessList list(kUsersAccessList);
    rights.clear();
    EXPECT_TRUE(GrantAdministratorsAccessByDefault());
    EXPECT_THAT(rights, testing::ElementsAre(TOKEN_QUERY | TOKEN_ADJUST_DEFAULT));
}

// A refusal by Windows; `calls` counts how often that call was made.
struct Refusal {
    const char* name;
    std::function<bool()> grantRefused;
};

template <typename Function>
std::function<bool()> Refusing(Replacement<Function>& replacement, int& calls) {
    return [&replacement, &calls] {
        const ScopedReplacement<Function> refusing(replacement, [&calls](auto...) {
            ++calls;
            return FailWith(ERROR_ACCESS_DENIED);
        });
        return GrantAdministratorsAccessByDefault();
    };
}

TEST(DefaultAccess, StaysAsItIsWhenWindowsRefusesAnyStepAndNothingIsTriedTwice) {
    const ScopedDefaultAccessList list(kUsersAccessList);
    int calls = 0;
    const std::vector<Refusal> refusals = {
        {"OpenProcessToken", Refusing(doubles::OpenProcessToken, calls)},
        {"CreateWellKnownSid", Refusing(doubles::CreateWellKnownSid, calls)},
        {"AddAccessAllowedAce", Refusing(doubles::AddAccessAllowedAce, calls)},
        {"SetTokenInformation", Refusing(doubles::SetTokenInformation, calls)},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        calls = 0;
        EXPECT_FALSE(refusal.grantRefused());
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(DefaultAccessList(), WideToUtf8(kUsersAccessList));
    }
}

TEST(DefaultAccess, IsNotExtendedByAGroupThatCannotBeMade) {
    const ScopedDefaultAccessList list(kUsersAccessList);
    const ScopedReplacement<decltype(CreateWellKnownSid)> refusing(
        doubles::CreateWellKnownSid,
        [](WELL_KNOWN_SID_TYPE, PSID, PSID, DWORD*) { return FailWith(ERROR_INVALID_PARAMETER); });
    int entries = 0;
    const ScopedReplacement<decltype(AddAccessAllowedAce)> counting(
        doubles::AddAccessAllowedAce, [&entries](PACL, DWORD, DWORD, PSID) {
            ++entries;
            return TRUE;
        });
    EXPECT_FALSE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(entries, 0);
}

TEST(DefaultAccess, StaysAsItIsWhenTheListCannotBeRead) {
    const ScopedDefaultAccessList list(kUsersAccessList);
    for (const bool sizeKnown : {false, true}) {
        const ScopedReplacement<decltype(GetTokenInformation)> refusing(
            doubles::GetTokenInformation,
            [sizeKnown](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD size, PDWORD length) {
                *length = sizeKnown && size == 0 ? 100 : 0;
                return FailWith(size == 0 ? ERROR_INSUFFICIENT_BUFFER : ERROR_ACCESS_DENIED);
            });
        EXPECT_FALSE(GrantAdministratorsAccessByDefault());
    }
    EXPECT_EQ(DefaultAccessList(), WideToUtf8(kUsersAccessList));
}

// A list's size is a number of 16 bits.
TEST(DefaultAccess, StaysAsItIsWhenTheListCannotGrow) {
    constexpr WORD kListBytes = 0xFFFC;
    std::vector<char> information(sizeof(TOKEN_DEFAULT_DACL) + kListBytes);
    auto* list = reinterpret_cast<PACL>(information.data() + sizeof(TOKEN_DEFAULT_DACL));
    ASSERT_NE(InitializeAcl(list, kListBytes, ACL_REVISION), 0);
    int changes = 0;
    const ScopedReplacement<decltype(GetTokenInformation)> longList(
        doubles::GetTokenInformation,
        [&](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID data, DWORD size, PDWORD length) {
            *length = static_cast<DWORD>(information.size());
            if (size < information.size()) {
                return FailWith(ERROR_INSUFFICIENT_BUFFER);
            }
            std::memcpy(data, information.data(), information.size());
            static_cast<TOKEN_DEFAULT_DACL*>(data)->DefaultDacl =
                reinterpret_cast<PACL>(static_cast<char*>(data) + sizeof(TOKEN_DEFAULT_DACL));
            return TRUE;
        });
    const ScopedReplacement<decltype(SetTokenInformation)> counting(
        doubles::SetTokenInformation, [&changes](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD) {
            ++changes;
            return TRUE;
        });
    EXPECT_FALSE(GrantAdministratorsAccessByDefault());
    EXPECT_EQ(changes, 0);
}

TEST(BrokerEvents, AreMadeWhenAdministratorsMayUseThem) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    const ScopedDefaultAccessList list(kUsersAccessList);
    std::vector<std::string> lists;
    const ScopedReplacement<decltype(CreateEventW)> observed(
        doubles::CreateEventW,
        [&lists](LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name) {
            EXPECT_EQ(security, nullptr);
            lists.push_back(DefaultAccessList());
            return CreateEventW(security, manual, signalled, name);
        });
    RunBroker(scene.arguments);
    const std::string extended = WideToUtf8(kUsersAccessList) + "(A;;GA;;;BA)";
    EXPECT_THAT(lists, testing::ElementsAre(extended, extended));
}

TEST(BrokerEvents, AreMadeAllTheSameWhenTheListCannotBeExtended) {
    BrokerScene scene;
    scene.faults.launchError = ERROR_CANCELLED;
    const ScopedDefaultAccessList list(kUsersAccessList);
    const ScopedReplacement<decltype(SetTokenInformation)> refusing(
        doubles::SetTokenInformation, [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD) {
            return FailWith(ERROR_ACCESS_DENIED);
        });
    EXPECT_EQ(RunBroker(scene.arguments), 2);
    EXPECT_EQ(scene.events.size(), 2U);
    EXPECT_EQ(scene.launches.size(), 1U);
}

}  // namespace
}  // namespace updater
