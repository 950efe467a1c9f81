// The decision of the library about pieces that are known by their counts alone.

#pragma once

#include "pavex/aggregator/local_info.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/status.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Pavex::Tool {

// The local matrix of one rank without its arrays.
class CountedMatrix final : public MatrixBase {
 public:
  CountedMatrix(PavexMatrixStoreType type, long rows, long cols, long entries)
      : MatrixBase(0, 0), mType(type), mEntries(entries) {
    SetShape(rows, cols);
  }

  long NNZ() const override { return mEntries; }
  PavexMatrixStoreType StoreType() const override { return mType; }
  bool HasValues() const override { return false; }
  void SetValues(void*) override {}
  void Query(PavexMatrixStore&) const override {}

 private:
  PavexMatrixStoreType mType;
  long mEntries;
};

struct PieceDecision {
  PavexStatus mStatus = STATUS_OK;  // what a gather returns

  // The gathered matrix, where the counts of the pieces give one.
  long mRows = 0;
  long mCols = 0;
  long mEntries = 0;

  // Set on success.
  DistMatrixMode mMode = DISTRIBUTED;
  int mSource = kNobody;  // the holder in CENTRALIZED_ONE
  MatrixPartition mPartition;
  std::vector<std::string> mFindings;  // what the library finds suspicious, in words
  std::string mDescription;            // set for every status
};

// One matrix for each rank; the elements of T and I have `valueBytes` and `indexBytes` bytes.
PieceDecision DecideOn(std::vector<CountedMatrix> const& pieces, bool withValues,
                       std::size_t valueBytes, std::size_t indexBytes);

}  // namespace Pavex::Tool
