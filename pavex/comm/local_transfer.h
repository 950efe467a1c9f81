// A large copy that several ranks of a LocalComm carry out together.

#pragma once

#include "pavex/comm/local_operation.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace Pavex {

// Hands out chunks of a piece of work to whichever rank asks, so that ranks with little data of
// their own help the others, and a rank that comes late finds nothing left to do and holds up
// nobody. Used by all its helpers at once.
class LocalTransfer {
 public:
  // `work` is not ordered. `partners`: the ranks whose operations have met, ascending; any of
  // them may help.
  LocalTransfer(LocalWork work, std::vector<int> partners);

  // Does chunks until none is left to hand out, those that are nearest to `rank` first. True
  // for the one caller that has done the last of all chunks.
  bool Help(int rank);

  std::vector<int> const& Partners() const { return mPartners; }

 private:
  std::size_t DoChunksOf(std::size_t piece);

  LocalWork mWork;
  std::vector<int> mPartners;
  std::size_t mChunk;                            // bytes handed out at once
  std::vector<std::atomic<std::size_t>> mTaken;  // per piece, bytes handed out
  std::atomic<std::size_t> mLeft;                // bytes not done yet
};

}  // namespace Pavex
