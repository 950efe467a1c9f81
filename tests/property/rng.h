// Random numbers that are the same on every platform and every rank.

#pragma once

#include <cstddef>
#include <cstdint>

namespace Pavex {

// A stream of numbers that `seed` and `stream` determine. Streams of one seed are independent
// of each other. It does not use the distributions of the standard library, which differ
// between implementations.
class Rng {
 public:
  Rng(std::uint64_t seed, std::uint64_t stream) : mState(Mix(seed) ^ Mix(~stream)) {}

  // Makes choices from `size` bytes at `bytes`, which must outlive this object. One byte
  // decides each choice, so that a fuzzer can change a single one. When the bytes are used up,
  // each choice is its last alternative.
  Rng(std::uint8_t const* bytes, std::size_t size) : mBytes(bytes), mEnd(bytes + size) {}

  // A number from `first` to `last`, both included. If it comes from bytes, it is one of the
  // first 256.
  long Between(long first, long last) {
    if (mBytes == mEnd && mBytes != nullptr) return last;
    auto const choices = static_cast<std::uint64_t>(last - first + 1);
    return first + static_cast<long>((mBytes == nullptr ? Next() : *mBytes++) % choices);
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

  std::uint64_t mState = 0;
  std::uint8_t const* mBytes = nullptr;  // null: the stream of numbers
  std::uint8_t const* mEnd = nullptr;
};

}  // namespace Pavex
