// Sums, differences and products of sizes that wrap around instead of overflowing. A record of
// another process may contain any number, and no number may lead to undefined behaviour.

#pragma once

#include <cstddef>
#include <limits>
#include <type_traits>

namespace Pavex {

template <typename Int>
constexpr Int WrappingAdd(Int a, Int b) noexcept {
  using Unsigned = std::make_unsigned_t<Int>;
  return static_cast<Int>(static_cast<Unsigned>(a) + static_cast<Unsigned>(b));
}

template <typename Int>
constexpr Int WrappingSub(Int a, Int b) noexcept {
  using Unsigned = std::make_unsigned_t<Int>;
  return static_cast<Int>(static_cast<Unsigned>(a) - static_cast<Unsigned>(b));
}

template <typename Int>
constexpr Int WrappingMul(Int a, Int b) noexcept {
  using Unsigned = std::make_unsigned_t<Int>;
  return static_cast<Int>(static_cast<Unsigned>(a) * static_cast<Unsigned>(b));
}

// Whether an array of `count` elements of `bytes` bytes (at least 1) can exist. A byte count
// that is too large would wrap to a smaller one.
constexpr bool FitsMemory(long count, std::size_t bytes) noexcept {
  return count >= 0 && count <= std::numeric_limits<long>::max() / static_cast<long>(bytes);
}

// Whether an array of `count` elements of E can exist.
template <typename E>
constexpr bool FitsMemory(long count) noexcept {
  return FitsMemory(count, sizeof(E));
}

}  // namespace Pavex
