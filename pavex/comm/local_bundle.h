// Small contributions that every rank of a LocalComm is to receive.

#pragma once

#include "pavex/comm/local_operation.h"

#include <cstddef>
#include <vector>

namespace Pavex {

// The contributions of all ranks to an Allgather or Allgatherv in memory of its own, one behind
// the other. One rank packs it, then each rank copies it to its own receive buffer, at the same
// time as the others and without waiting for them. With n ranks this is n small copies and n
// larger ones instead of n * n small ones by one rank.
class LocalBundle {
 public:
  // Whether every rank receives the same in operations of this kind.
  static bool Fits(LocalKind kind);

  // Notes what the `operations` of ranks 0 .. n - 1 contribute. False if they disagree or are
  // wrong; the bundle is then of no use.
  bool Plan(std::vector<LocalOperation const*> const& operations);

  // What all ranks contribute together, and on average. After Plan.
  std::size_t Bytes() const { return mBytes; }
  std::size_t MeanBytes() const { return mBytes / mContributions.size(); }

  // Copies the contributions into the bundle, while all ranks are in the operation.
  void Pack();

  // Copies the contributions to where `recv`, the receive side of one rank, wants them, in rank
  // order. After Pack; several ranks may do so at once.
  void Unpack(LocalSide const& recv) const;

 private:
  bool ExpectedBy(LocalSide const& recv) const;

  std::vector<LocalRegion> mContributions;
  std::size_t mBytes = 0;
  std::vector<char> mPacked;
};

}  // namespace Pavex
