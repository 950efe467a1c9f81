// The offset of a member in an object whose type has no standard layout.

#pragma once

#include <cstddef>

namespace Pavex {

// Bytes from the start of `object` to its `member`.
template <typename Object, typename Member>
std::ptrdiff_t OffsetIn(Object const& object, Member const& member) {
  return reinterpret_cast<char const*>(&member) - reinterpret_cast<char const*>(&object);
}

}  // namespace Pavex
