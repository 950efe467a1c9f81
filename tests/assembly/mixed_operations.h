// One process calls another operation than the others, over any communicator.

#pragma once

#include "pavex/assembly/assembler.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Pavex {

enum class MixedOperation {
  GATHER,
  UPDATE,
  UPDATE_IN_PLACE,
  SCATTER,
  COLLECT_ADD,
  COLLECT_ONCE
};

inline constexpr MixedOperation kMixedOperations[] = {
    MixedOperation::GATHER,  MixedOperation::UPDATE,      MixedOperation::UPDATE_IN_PLACE,
    MixedOperation::SCATTER, MixedOperation::COLLECT_ADD, MixedOperation::COLLECT_ONCE};

// One process with row `Rank()` of a whole with as many rows as there are processes, and with
// one entry in the row, or without entries. Rank 0 receives.
class MixedProcess {
 public:
  MixedProcess(std::shared_ptr<Comm> comm, MemoryPool& pool, bool hasEntries)
      : mComm(std::move(comm)), mAssembler(&pool), mOffsets{0, hasEntries ? 1 : 0} {
    mRequest.mRows = mRequest.mCols = mComm->Size();
    mWholeDense.mRows = mComm->Rank() == 0 ? mRequest.mRows : 0;
  }

  PavexStatus Run(MixedOperation operation) {
    using Dense = MatrixDense<double, int>;
    Dense own = Dense::Borrow(1, 0, false, 1, &mValue);
    switch (operation) {
      case MixedOperation::GATHER: {
        auto const row = Contribution<double, int>::Band(mComm->Rank(), 1);
        return mAssembler.Gather(
            mComm, Contribution<double, int>(row).Csr(mOffsets, &mCol, &mValue), mRequest);
      }
      case MixedOperation::UPDATE:
        return mAssembler.Update(&mValue);
      case MixedOperation::UPDATE_IN_PLACE:
        return mAssembler.UpdateInPlace(&mValue);
      case MixedOperation::SCATTER:
        return mAssembler.Scatter(mWholeDense, own);
      case MixedOperation::COLLECT_ADD:
        return mAssembler.Collect(own, Overlap::ADD, mWholeDense);
      case MixedOperation::COLLECT_ONCE:
        return mAssembler.Collect(own, Overlap::ONCE, mWholeDense);
    }
    return 1;
  }

  Assembler<double, int> const& Assembled() const { return mAssembler; }

 private:
  std::shared_ptr<Comm> mComm;
  Assembler<double, int> mAssembler;
  AssemblyRequest mRequest;
  int const mOffsets[2];
  int const mCol = 0;
  double mValue = 1;
  MatrixDense<double, int> mWholeDense;
};

// Whether the two are refused if they meet. A process may call either update.
inline bool Differ(MixedOperation a, MixedOperation b) {
  auto const kind = [](MixedOperation operation) {
    return operation == MixedOperation::UPDATE_IN_PLACE ? MixedOperation::UPDATE : operation;
  };
  return kind(a) != kind(b);
}

// Whether all operations but the gather succeed or, if some process has lost its whole, are
// refused on every process. What is wrong on this process; empty if nothing is.
inline std::string RunTheOthers(MixedProcess& process, bool lost) {
  for (MixedOperation const operation : kMixedOperations) {
    if (operation == MixedOperation::GATHER) continue;
    PavexStatus const status = process.Run(operation);
    if (status != (lost ? STATUS_WRONG_ORDER : STATUS_OK))
      return "operation " + std::to_string(static_cast<int>(operation)) +
             " afterwards: status " + std::to_string(status);
  }
  return {};
}

// After `gathers` good gathers, rank `odd` calls `its` while the others call `others`, which
// differs. What is wrong on this process; empty if nothing is.
inline std::string RunMixed(std::shared_ptr<Comm> const& comm, MemoryPool& pool,
                            bool hasEntries, int gathers, int odd, MixedOperation its,
                            MixedOperation others) {
  MixedProcess process(comm, pool, hasEntries);
  for (int k = 0; k < gathers; ++k)
    if (process.Run(MixedOperation::GATHER) != STATUS_OK) return "the first gathers";
  MixedOperation const own = comm->Rank() == odd ? its : others;
  PavexStatus const status = process.Run(own);
  if (status != STATUS_INCONSISTENT) return "status " + std::to_string(status);

  bool const gathered = own != MixedOperation::GATHER;
  bool const hasWhole = process.Assembled().Whole() != nullptr;
  if (hasWhole != (gathered && comm->Rank() == 0)) return "the whole afterwards";
  if (hasWhole && hasEntries && process.Assembled().Whole()->mValues.mData[0] != 1)
    return "the values of the whole";
  bool const lost = its == MixedOperation::GATHER || others == MixedOperation::GATHER;
  std::string wrong = RunTheOthers(process, lost);
  if (!wrong.empty()) return wrong;
  if (process.Run(MixedOperation::GATHER) != STATUS_OK) return "the gather afterwards";
  return process.Run(MixedOperation::UPDATE) == STATUS_OK ? "" : "the update afterwards";
}

// Runs RunMixed for every pair of operations that differ, on each rank, with entries and
// without. What is wrong first on this process; empty if nothing is.
inline std::string RunAllMixed(std::shared_ptr<Comm> const& comm, MemoryPool& pool) {
  for (bool const hasEntries : {true, false})
    for (int odd = 0; odd < comm->Size(); ++odd)
      for (MixedOperation const its : kMixedOperations)
        for (MixedOperation const others : kMixedOperations) {
          if (!Differ(its, others)) continue;
          for (int const gathers : {1, 2}) {
            std::string const wrong =
                RunMixed(comm, pool, hasEntries, gathers, odd, its, others);
            if (wrong.empty()) continue;
            return "rank " + std::to_string(comm->Rank()) + ", odd rank " +
                   std::to_string(odd) + " with operation " +
                   std::to_string(static_cast<int>(its)) + ", others " +
                   std::to_string(static_cast<int>(others)) + ", entries " +
                   std::to_string(hasEntries) + ", gathers " + std::to_string(gathers) + ": " +
                   wrong;
          }
        }
  return {};
}

}  // namespace Pavex
