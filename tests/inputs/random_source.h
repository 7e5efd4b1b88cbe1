#pragma once

#include <cstddef>
#include <iterator>
#include <random>
#include <string_view>

namespace updater {

/// Gives the same numbers with every standard library, which the library's distributions don't.
using RandomSource = std::mt19937_64;

/// Returns a source for one test: its inputs are the same in every run, alone or among other tests.
/// The environment variable CORVELLAN_SEED sets another seed; the seed in force is printed once.
/// Raises `std::invalid_argument` or `std::out_of_range` when the variable holds no number.
RandomSource MakeRandomSource(std::string_view test);

/// Returns a number from 0 up to, but not including, the bound.
std::size_t RandomBelow(RandomSource& random, std::size_t bound);

/// True once in so many times.
bool OneIn(RandomSource& random, std::size_t times);

/// Returns one of the range's elements, which stays where it is.
template <typename Range>
const auto& OneOf(RandomSource& random, const Range& range) {
    return *std::next(std::begin(range),
                      static_cast<std::ptrdiff_t>(RandomBelow(random, std::size(range))));
}

}  // namespace updater
