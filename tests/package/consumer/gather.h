// The work of each rank of the consumer programs. Rank 0 gathers two rows of each rank, of a
// matrix with four columns, and checks them.

#pragma once

#include <cstring>
#include <memory>

#include <pavex/pavex.h>

inline bool GatherIsRight(std::shared_ptr<Pavex::Comm> const& comm) {
  int const rank = comm->Rank();
  int ptr[] = {0, 2, 3};
  int col[] = {0, 3, 1};
  double values[] = {rank + 0.25, rank + 0.5, rank + 0.75};
  auto piece = Pavex::MatrixCSR<double, int>::Borrow(2, 4, ptr, col, values);
  piece.PlaceIn(2L * comm->Size(), 4, Pavex::MatrixPartition::RowWise(2L * rank));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  if (aggregator.Gather(comm, piece, true) != Pavex::STATUS_OK) return false;
  if (rank != 0) return aggregator.Target() == nullptr;

  auto const* whole = dynamic_cast<Pavex::MatrixCSR<double, int>*>(aggregator.Target());
  if (whole == nullptr || whole->mRows != 2L * comm->Size() || whole->mCols != 4) return false;
  for (int r = 0; r < comm->Size(); ++r) {
    double const* row = whole->mValues.mData + 3 * r;
    if (row[0] != r + 0.25 || row[1] != r + 0.5 || row[2] != r + 0.75) return false;
    if (whole->mRowPtr.mData[2 * r + 1] != 3 * r + 2) return false;
    if (whole->mColIdx.mData[3 * r + 1] != 3) return false;
  }
  return true;
}

// Whether the library that was found at run time is that of the headers.
inline bool VersionIsRight() {
  return std::strcmp(PavexVersion(), PAVEX_VERSION) == 0;
}
