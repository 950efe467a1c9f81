// A store record in which a test can see every byte that was not written.

#pragma once

#include "pavex/matrix/store.h"

#include <cstdint>
#include <cstring>

namespace Pavex {

constexpr std::uint64_t kStoreMark = 0xABABABABABABABAB;

// A record whose bytes are all marks.
inline PavexMatrixStore MarkedStore() {
  PavexMatrixStore store;
  std::memset(&store, 0xAB, sizeof(store));
  return store;
}

// Word `index` of the view, 0 to 3.
inline std::uint64_t ViewWord(PavexMatrixStore const& store, int index) {
  std::uint64_t word = 0;
  std::memcpy(&word, reinterpret_cast<char const*>(&store) + 24 + 8 * index, sizeof(word));
  return word;
}

inline std::uint64_t Word(void const* pointer) {
  return reinterpret_cast<std::uint64_t>(pointer);
}

}  // namespace Pavex
