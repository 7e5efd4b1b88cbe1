#include "inputs/random_source.h"

#include <cstdint>
#include <iostream>
#include <numeric>
#include <optional>
#include <string>

#include "fixtures/scoped_variable.h"

namespace updater {

namespace {

constexpr const wchar_t* kSeedVariable = L"CORVELLAN_SEED";
constexpr std::uint64_t kDefaultSeed = 20240229;

std::uint64_t ReadSeed() {
    const std::optional<std::wstring> text = ReadVariable(kSeedVariable);
    const std::uint64_t seed = text ? std::stoull(*text) : kDefaultSeed;
    std::cout << "CORVELLAN_SEED=" << seed << std::endl;
    return seed;
}

// Another seed gives another sequence in every test, and two tests never share one (FNV-1a).
std::uint64_t MixSeed(std::uint64_t seed, std::string_view test) {
    return std::accumulate(test.begin(), test.end(), 0xCBF29CE484222325U ^ seed,
                           [](std::uint64_t hash, char character) {
                               return (hash ^ static_cast<unsigned char>(character)) *
                                      0x100000001B3U;
                           });
}

}  // namespace

RandomSource MakeRandomSource(std::string_view test) {
    static const std::uint64_t seed = ReadSeed();
    return RandomSource(MixSeed(seed, test));
}

std::size_t RandomBelow(RandomSource& random, std::size_t bound) {
    return static_cast<std::size_t>(random() % bound);
}

bool OneIn(RandomSource& random, std::size_t times) {
    return RandomBelow(random, times) == 0;
}

}  // namespace updater
