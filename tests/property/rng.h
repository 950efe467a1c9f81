// Random numbers that are the same on every platform and every rank.

#pragma once

#include <cstdint>

namespace Pavex {

// A stream of numbers fixed by `seed` and `stream`; streams of one seed are independent of each
// other. (The distributions of the standard library differ between implementations.)
class Rng {
 public:
  Rng(std::uint64_t seed, std::uint64_t stream) : mState(Mix(seed) ^ Mix(~stream)) {}

  // A number from `first` to `last`, both included.
  long Between(long first, long last) {
    auto const choices = static_cast<std::uint64_t>(last - first + 1);
    return first + static_cast<long>(Next() % choices);
  }

  bool OneIn(long n) { return Between(1, n) == 1; }
  bool Coin() { return OneIn(2); }

 private:
  static std::uint64_t Mix(std::uint64_t x) {
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
    x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
    return x ^ (x >> 31);
  }

  std::uint64_t Next() { return Mix(mState += 0x9e3779b97f4a7c15); }

  std::uint64_t mState;
};

}  // namespace Pavex
