// Memory that runs out at any moment: the global operator new is replaced in this program.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "client/base64.h"
#include "client/envelope.h"
#include "client/feed.h"
#include "client/feed/feed_vectors.h"
#include "client/feed_store.h"
#include "fixtures/file_content.h"
#include "fixtures/temporary_directory.h"

namespace {

// How many allocations are still granted; negative for all.
long remainingAllocations = -1;

void* Allocate(std::size_t size) {
    if (remainingAllocations == 0) {
        throw std::bad_alloc();
    }
    if (remainingAllocations > 0) {
        --remainingAllocations;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}

void* operator new[](std::size_t size) {
    return Allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace updater {
namespace {

// Lets the action run out of memory at its first allocation, then at its second, until it has
// enough; it may end with nothing but that failure. Returns how often it did.
long RunOutOfMemory(const std::function<void()>& action, const std::function<void()>& check) {
    for (long allocations = 0;; ++allocations) {
        remainingAllocations = allocations;
        bool failed = false;
        try {
            action();
        } catch (const std::bad_alloc&) {
            failed = true;
        } catch (...) {
            remainingAllocations = -1;
            throw;
        }
        remainingAllocations = -1;
        if (!failed) {
            return allocations;
        }
        check();
        if (testing::Test::HasFailure()) {
            return allocations;
        }
    }
}

TEST(FeedMemory, OpeningAnEnvelopeFailsOnlyForWantOfMemory) {
    const PublicKey key = ReadPublicKey(kKeyA).value();
    const std::string envelope = MakeEnvelope(kPayload, kKeyAId, DecodeBase64(kSignatureA).value());
    Feed feed;
    const long failures =
        RunOutOfMemory([&] { feed = ReadFeed(OpenEnvelope(envelope, {&key, 1})); }, [] {});
    EXPECT_GT(failures, 20);
    EXPECT_EQ(feed, ReadFeed(kPayload));
}

TEST(FeedMemory, WritingAFeedFailsOnlyForWantOfMemory) {
    const Feed feed = ReadFeed(kPayload);
    std::string payload;
    EXPECT_GT(RunOutOfMemory([&] { payload = WriteFeed(feed); }, [] {}), 20);
    EXPECT_EQ(payload, kPayload);
}

FeedStore OldStore() {
    return {.installation = "{6E2D1C4A-0000-4000-8000-00000000003E}",
            .issues = {{"stable", 7}},
            .feedAddress = "https://updates.example.com/update-feed.json",
            .entityTag = "\"1\"",
            .envelope = "the old envelope"};
}

TEST(FeedMemory, AStoreIsNeverHalfWritten) {
    const TemporaryDirectory data;
    FeedStore store = OldStore();
    WriteFeedStore(data.path, store);
    store.issues["stable"] = 8;
    store.envelope = "the new envelope";
    const long failures =
        RunOutOfMemory([&] { WriteFeedStore(data.path, store); },
                       [&] {
                           const FeedStore kept = ReadFeedStore(data.path);
                           EXPECT_EQ(kept.installation, store.installation);
                           EXPECT_EQ(kept.wasDamaged, kept.issues.at("stable") == 8)
                               << "the new issue without its envelope";
                       });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(ReadFeedStore(data.path).envelope, "the new envelope");
}

TEST(FeedMemory, AStoreThatIsThereIsNotTakenForADamagedOne) {
    const TemporaryDirectory data;
    WriteFeedStore(data.path, OldStore());
    FeedStore store;
    EXPECT_GT(RunOutOfMemory([&] { store = ReadFeedStore(data.path); }, [] {}), 10);
    EXPECT_FALSE(store.wasDamaged);
    EXPECT_EQ(store.envelope, OldStore().envelope);
}

}  // namespace
}  // namespace updater
