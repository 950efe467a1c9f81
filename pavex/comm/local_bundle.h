// Small contributions that every rank of a LocalComm receives.

#pragma once

#include "pavex/comm/local_operation.h"

#include <cstddef>
#include <vector>

namespace Pavex {

// The contributions of all ranks to an Allgather or Allgatherv, one after the other in memory
// of its own. One rank packs it. Then each rank copies it to its own receive buffer, at the
// same time as the others and without waiting for them. With n ranks this is n small copies and
// n larger ones instead of n * n small ones by one rank.
class LocalBundle {
 public:
  // Whether every rank receives the same in operations of this kind.
  static bool Fits(LocalKind kind);

  // Notes what the `operations` of ranks 0 .. n - 1 contribute. Returns false if they disagree
  // or are wrong; do not use the bundle then.
  bool Plan(std::vector<LocalOperation const*> const& operations);

  // The bytes that all ranks contribute together, and on average. Call them after Plan.
  std::size_t Bytes() const { return mBytes; }
  std::size_t MeanBytes() const { return mBytes / mContributions.size(); }

  // Copies the contributions into the bundle, while all ranks are in the operation.
  void Pack();

  // Copies the contributions to their places in `recv`, the receive side of one rank, in rank
  // order. Call it after Pack. Several ranks may do so at once.
  void Unpack(LocalSide const& recv) const;

 private:
  bool ExpectedBy(LocalSide const& recv) const;

  std::vector<LocalRegion> mContributions;  // of the ranks; once packed, in the bundle
  std::size_t mBytes = 0;
  std::vector<char> mPacked;
};

}  // namespace Pavex
