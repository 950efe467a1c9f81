#include "pavex/comm/local_bundle.h"

namespace Pavex {

bool LocalBundle::Fits(LocalKind kind) {
  return kind == LocalKind::ALLGATHER || kind == LocalKind::ALLGATHERV ||
         kind == LocalKind::ALLGATHER_RUNS;
}

bool LocalBundle::Plan(std::vector<LocalOperation const*> const& operations) {
  mContributions.reserve(operations.size());
  for (LocalOperation const* const operation : operations) {
    int const rank = static_cast<int>(mContributions.size());
    LocalRegion const contribution = operation->Sent(rank, 0);
    if (!contribution.Valid()) return false;
    mContributions.push_back(contribution);
    mBytes += contribution.Bytes();
  }
  int const ranks = static_cast<int>(operations.size());
  LocalSide const* checked =
      nullptr;  // most ranks receive like the rank before, which is already checked
  for (LocalOperation const* const operation : operations) {
    LocalSide const& recv = operation->mRecv;
    if (recv.InPlace()) return false;
    if (checked != nullptr && recv.LaidOutAs(*checked, ranks)) continue;
    if (!ExpectedBy(recv)) return false;
    checked = &recv;
  }
  return true;
}

// Whether `recv` has the right place for each contribution.
bool LocalBundle::ExpectedBy(LocalSide const& recv) const {
  int rank = 0;
  for (LocalRegion const& contribution : mContributions) {
    if (!recv.For(rank++).Fits(contribution)) return false;
  }
  return true;
}

void LocalBundle::Pack() {
  mPacked.resize(mBytes);
  char* to = mPacked.data();
  for (LocalRegion& contribution : mContributions) {
    LocalRegion const packed = {to, contribution.mCount, contribution.mType};
    if (packed.mCount > 0) LocalPiece::Of(packed, contribution).Copy(0, packed.Bytes());
    contribution = packed;
    to += packed.Bytes();
  }
}

void LocalBundle::Unpack(LocalSide const& recv) const {
  for (std::size_t rank = 0; rank < mContributions.size();) {
    LocalRegion source = mContributions[rank];
    LocalRegion target = recv.For(static_cast<int>(rank));
    for (++rank; rank < mContributions.size() && target.mRun == 0; ++rank) {
      LocalRegion const next = recv.For(static_cast<int>(rank));
      bool const consecutive = next.mRun == 0 && next.mData == target.mData + target.Bytes();
      if (!consecutive) break;
      target.mCount += next.mCount;
    }
    source.mCount = target.mCount;
    if (target.mCount > 0) LocalPiece::Of(target, source).Copy(0, target.Bytes());
  }
}

}  // namespace Pavex
