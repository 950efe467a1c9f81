// Every source of the mutated copy includes this first. Each site that can behave differently
// asks here whether its mutant is the chosen one.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

namespace Mutants {

constexpr int kMaxMutants = 1 << 17;

// A byte for each mutant, which is set when its site is reached. The bytes are in the file that
// PAVEX_MUTANTS_SEEN names, so that the sites that a death test or a command reaches count too.
inline unsigned char* MapSeen() {
  int const flags = O_RDWR | O_CREAT;
  char const* const path = std::getenv("PAVEX_MUTANTS_SEEN");
  int const file = path == nullptr ? -1 : open(path, flags, 0644);
  if (file >= 0 && ftruncate(file, kMaxMutants) != 0) std::abort();
  void* const bytes = mmap(nullptr, kMaxMutants, PROT_READ | PROT_WRITE,
                           file < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED, file, 0);
  if (bytes == MAP_FAILED) std::abort();
  if (file >= 0) close(file);
  return static_cast<unsigned char*>(bytes);
}

inline int ReadChosen() {
  char const* const number = std::getenv("PAVEX_MUTANT");
  return number == nullptr ? -1 : std::atoi(number);
}

inline unsigned char* const gSeen = MapSeen();
inline int const gChosen = ReadChosen();

// Whether mutant `id` is the chosen one.
inline bool Active(int id) {
  gSeen[id] = 1;
  return gChosen == id;
}

// Returns a condition, or its negation if mutant `id` is chosen.
template <typename T>
bool Flip(int id, T&& condition) {
  return static_cast<bool>(condition) != Active(id);
}

// Returns a number, an enumerator or a flag, or the next or previous one if a mutant is chosen.
template <typename T>
std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>, T> Plus(int id, T value) {
  if constexpr (std::is_same_v<T, bool>)
    return value != Active(id);
  else
    return Active(id) ? static_cast<T>(static_cast<long>(value) + 1) : value;
}

template <typename T>
T PlusOrMinus(int id, T value) {
  return Active(id + 1) ? static_cast<T>(value - 1) : Plus(id, value);
}

// Returns a status. With a mutant, exchanges success and failure, or returns another failure.
inline std::int32_t Status(int id, std::int32_t status) {
  if (Active(id)) return status == 0 ? -7 : 0;
  return Active(id + 1) && status != 0 ? status - 1 : status;
}

// Returns a member, or if mutant `id` is chosen the one that is easily confused with it.
template <typename Object, typename Member, typename Other>
decltype(auto) Exchange(int id, Object&& object, Member member, Other other) {
  return Active(id) ? other(object) : member(object);
}

#define MUTANTS_ONE(Name, op, other)                                     \
  template <typename A, typename B>                                      \
  auto Name(int id, A&& a, B&& b)->decltype(true ? a other b : a op b) { \
    return Active(id) ? a other b : a op b;                              \
  }
MUTANTS_ONE(Equal, ==, !=)
MUTANTS_ONE(NotEqual, !=, ==)
MUTANTS_ONE(Add, +, -)
MUTANTS_ONE(Subtract, -, +)
MUTANTS_ONE(Multiply, *, +)
MUTANTS_ONE(Divide, /, *)
MUTANTS_ONE(Modulo, %, /)
MUTANTS_ONE(ShiftLeft, <<, >>)
MUTANTS_ONE(ShiftRight, >>, <<)
MUTANTS_ONE(BitAnd, &, |)
MUTANTS_ONE(BitOr, |, &)
MUTANTS_ONE(AddTo, +=, -=)
MUTANTS_ONE(SubtractFrom, -=, +=)
#undef MUTANTS_ONE

#define MUTANTS_TWO(Name, op, other, third)                              \
  template <typename A, typename B>                                      \
  auto Name(int id, A&& a, B&& b)->decltype(a op b) {                    \
    return Active(id) ? a other b : Active(id + 1) ? a third b : a op b; \
  }
MUTANTS_TWO(Less, <, <=, >)
MUTANTS_TWO(AtMost, <=, <, >=)
MUTANTS_TWO(Greater, >, >=, <)
MUTANTS_TWO(AtLeast, >=, >, <=)
#undef MUTANTS_TWO

}  // namespace Mutants
