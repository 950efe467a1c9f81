// A large copy that several ranks of a LocalComm carry out together.

#pragma once

#include "pavex/comm/local_operation.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace Pavex {

// Gives chunks of a piece of work to every rank that asks. So ranks with little data of their
// own help the others, and a late rank finds nothing left to do and delays no rank. All helpers
// use it at the same time.
class LocalTransfer {
 public:
  // `work` must not be ordered. `partners`: the ranks whose operations have met, ascending; any
  // of them may help.
  LocalTransfer(LocalWork work, std::vector<int> partners);

  // Does chunks until none is left, those nearest to `rank` first. Returns true for the one
  // caller that has done the last of all chunks.
  bool Help(int rank);

  std::vector<int> const& Partners() const { return mPartners; }

 private:
  std::size_t DoChunksOf(std::size_t piece);

  LocalWork mWork;
  std::vector<int> mPartners;
  std::size_t mChunk;                            // bytes handed out at once
  std::vector<std::atomic<std::size_t>> mTaken;  // per piece, chunks handed out
  std::atomic<std::size_t> mLeft;                // bytes that are not done
};

}  // namespace Pavex
