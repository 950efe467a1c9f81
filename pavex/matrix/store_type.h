// The table of the store types, and the rules that read it.

#pragma once

#include "pavex/matrix/store.h"
#include "pavex/runtime/log.h"

#include <cstdint>
#include <iterator>

namespace Pavex {

// The storage classes that a store type can name.
enum class StoreKind { DENSE, CSR, CSC, COO, UNKNOWN };

// What a store type says about a matrix.
struct StoreTypeInfo {
  PavexMatrixStoreType type;  // the number
  char const* name;           // the enumerator
  StoreKind kind;             // the storage class
  int part;                   // the part code of a sparse class; 0 for the dense kinds
};

// One row per store type, at the index of its number.
inline constexpr StoreTypeInfo kStoreTypes[] = {
    {STORE_TYPE_0, "STORE_TYPE_0", StoreKind::DENSE, 0},
    {STORE_TYPE_1, "STORE_TYPE_1", StoreKind::DENSE, 0},
    {STORE_CSR_0, "STORE_CSR_0", StoreKind::CSR, 0},
    {STORE_CSR_1, "STORE_CSR_1", StoreKind::CSR, 1},
    {STORE_CSR_2, "STORE_CSR_2", StoreKind::CSR, 2},
    {STORE_CSC_0, "STORE_CSC_0", StoreKind::CSC, 0},
    {STORE_CSC_1, "STORE_CSC_1", StoreKind::CSC, 1},
    {STORE_CSC_2, "STORE_CSC_2", StoreKind::CSC, 2},
    {STORE_COO_0, "STORE_COO_0", StoreKind::COO, 0},
    {STORE_COO_1, "STORE_COO_1", StoreKind::COO, 1},
    {STORE_COO_2, "STORE_COO_2", StoreKind::COO, 2},
    {STORE_DENSE_ROW_MAJOR, "STORE_DENSE_ROW_MAJOR", StoreKind::DENSE, 0},
    {STORE_DENSE_COL_MAJOR, "STORE_DENSE_COL_MAJOR", StoreKind::DENSE, 0},
};

// The row of a store type; null for a number that is none. Any number may come from a peer.
constexpr StoreTypeInfo const* FindStoreType(PavexMatrixStoreType type) noexcept {
  auto const number = static_cast<std::uint32_t>(type);  // a negative one becomes huge
  return number < std::size(kStoreTypes) ? &kStoreTypes[number] : nullptr;
}

// The class of a store type; UNKNOWN for a number that is none.
constexpr StoreKind StoreKindOf(PavexMatrixStoreType type) noexcept {
  StoreTypeInfo const* const info = FindStoreType(type);
  return info == nullptr ? StoreKind::UNKNOWN : info->kind;
}

// The part code (0, 1 or 2) of a store type; 0 for the dense kinds. A value outside 0 to 12
// logs the fatal line and aborts. Fixed: see docs/compatibility.md.
inline int GetMatrixPart(PavexMatrixStoreType type) {
  StoreTypeInfo const* const info = FindStoreType(type);
  if (info == nullptr) Log::NeverBeenHere();  // GCOVR_EXCL_LINE: aborts
  return info->part;
}

}  // namespace Pavex
