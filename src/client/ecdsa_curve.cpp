#include "client/ecdsa_curve.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace updater {

namespace {

// 256 bits, the highest part first.
using Number = std::array<std::uint32_t, 8>;

constexpr Number kPrime = {0xFFFFFFFF, 0x00000001, 0x00000000, 0x00000000,
                           0x00000000, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
constexpr Number kConstant = {0x5AC635D8, 0xAA3A93E7, 0xB3EBBD55, 0x769886BC,
                              0x651D06B0, 0xCC53B0F6, 0x3BCE3C3E, 0x27D2604B};

Number ReadNumber(const std::uint8_t* bytes) {
    Number number{};
    for (std::size_t index = 0; index < 4 * number.size(); ++index) {
        number[index / 4] = number[index / 4] << 8U | bytes[index];
    }
    return number;
}

// Both are less than the prime, and so is the result. Nothing here is secret: the time that it
// takes may tell what the numbers are.
Number Add(const Number& left, const Number& right) {
    Number sum{};
    std::uint64_t carry = 0;
    for (std::size_t index = sum.size(); index-- > 0;) {
        carry += std::uint64_t{left[index]} + right[index];
        sum[index] = static_cast<std::uint32_t>(carry);
        carry >>= 32U;
    }
    if (carry == 0 && sum < kPrime) {
        return sum;
    }
    std::uint64_t borrow = 0;
    for (std::size_t index = sum.size(); index-- > 0;) {
        const std::uint64_t difference = std::uint64_t{sum[index]} - kPrime[index] - borrow;
        sum[index] = static_cast<std::uint32_t>(difference);
        borrow = difference >> 63U;
    }
    return sum;
}

Number Multiply(const Number& factor, const Number& otherFactor) {
    Number product{};
    for (const std::uint32_t part : otherFactor) {
        for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1U) {
            product = Add(product, product);
            if ((part & bit) != 0) {
                product = Add(product, factor);
            }
        }
    }
    return product;
}

}  // namespace

bool IsOnCurve(const EcdsaPoint& point) {
    const Number x = ReadNumber(point.data());
    const Number y = ReadNumber(point.data() + point.size() / 2);
    if (x >= kPrime || y >= kPrime) {
        return false;
    }
    // y^2 = x^3 - 3x + b
    const Number left = Add(Multiply(y, y), Add(x, Add(x, x)));
    return left == Add(Multiply(Multiply(x, x), x), kConstant);
}

}  // namespace updater
