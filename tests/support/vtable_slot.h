// Finds the slot of a virtual function in the virtual table of its class.

#pragma once

#include <cstdint>
#include <cstring>

namespace Pavex {

// Under the Itanium C++ ABI on x86-64 a pointer to a virtual member function holds one plus the
// byte offset of its entry. The destructor of a polymorphic class takes two entries.
template <typename Function>
std::uint64_t VtableSlot(Function function) {
  std::uint64_t representation = 0;
  static_assert(sizeof(function) >= sizeof(representation), "a pointer to member function");
  std::memcpy(&representation, &function, sizeof(representation));
  return (representation - 1) / sizeof(void*);
}

}  // namespace Pavex
