// What a store type says about a matrix. One place for each rule.

#pragma once

#include "pavex/matrix/store.h"
#include "pavex/runtime/log.h"

#include <cstdint>

namespace Pavex {

// The part code (0, 1 or 2) of a store type; 0 for the dense kinds. Aborts with the fatal line
// on a value outside 0 to 12.
inline int GetMatrixPart(PavexMatrixStoreType type) {
  // One bit for each store type with that part code.
  constexpr std::uint32_t kPart0 = 0x1927;
  constexpr std::uint32_t kPart1 = 0x248;
  constexpr std::uint32_t kPart2 = 0x490;
  constexpr std::uint32_t kAll = (2U << STORE_DENSE_COL_MAJOR) - 1;
  static_assert((kPart0 | kPart1 | kPart2) == kAll && kPart0 + kPart1 + kPart2 == kAll,
                "every store type has one part code");

  auto const number = static_cast<std::uint32_t>(type);
  if (number > STORE_DENSE_COL_MAJOR) Log::NeverBeenHere();  // GCOVR_EXCL_LINE: aborts
  std::uint32_t const bit = 1U << number;
  if ((bit & kPart0) != 0) return 0;
  return (bit & kPart1) != 0 ? 1 : 2;
}

// The storage classes that a store type can name.
enum class StoreKind { DENSE, CSR, CSC, COO, UNKNOWN };

// The class of a store type; UNKNOWN for a number that is none.
inline StoreKind StoreKindOf(PavexMatrixStoreType type) noexcept {
  switch (type) {
    case STORE_TYPE_0:
    case STORE_TYPE_1:
    case STORE_DENSE_ROW_MAJOR:
    case STORE_DENSE_COL_MAJOR:
      return StoreKind::DENSE;
    case STORE_CSR_0:
    case STORE_CSR_1:
    case STORE_CSR_2:
      return StoreKind::CSR;
    case STORE_CSC_0:
    case STORE_CSC_1:
    case STORE_CSC_2:
      return StoreKind::CSC;
    case STORE_COO_0:
    case STORE_COO_1:
    case STORE_COO_2:
      return StoreKind::COO;
  }
  return StoreKind::UNKNOWN;
}

}  // namespace Pavex
