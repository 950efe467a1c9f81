// A matrix without arrays, for tests of what reads its description only.

#pragma once

#include "pavex/matrix/matrix_base.h"

#include <cstdint>

namespace Pavex {

// Returns the description that a test sets. It belongs to no storage class.
class DescribedMatrix : public MatrixBase {
 public:
  DescribedMatrix(PavexMatrixStoreType type, std::int64_t rows, std::int64_t cols, long nnz)
      : MatrixBase(0, 0), mStoreType(type), mNnz(nnz) {
    SetShape(rows, cols);
  }

  long NNZ() const override { return mNnz; }
  PavexMatrixStoreType StoreType() const override { return mStoreType; }
  bool HasValues() const override { return mHasValues; }
  void SetValues(void*) override { mHasValues = true; }
  void Query(PavexMatrixStore&) const override {}

  PavexMatrixStoreType mStoreType;
  long mNnz;
  bool mHasValues = true;
};

}  // namespace Pavex
