#include "pavex/comm/local_bundle.h"

#include <cstring>

namespace Pavex {

bool LocalBundle::Fits(LocalKind kind) {
  return kind == LocalKind::ALLGATHER || kind == LocalKind::ALLGATHERV;
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
    LocalRegion const target = recv.For(rank++);
    if (!target.Valid() || target.mCount != contribution.mCount ||
        target.mType != contribution.mType) {
      return false;
    }
  }
  return true;
}

void LocalBundle::Pack() {
  mPacked.reserve(mBytes);
  for (LocalRegion const& contribution : mContributions) {
    mPacked.insert(mPacked.end(), contribution.mData,
                   contribution.mData + contribution.Bytes());
  }
}

void LocalBundle::Unpack(LocalSide const& recv) const {
  char const* from = mPacked.data();
  for (std::size_t rank = 0; rank < mContributions.size();) {
    LocalRegion const first = recv.For(static_cast<int>(rank));
    std::size_t bytes = 0;  // of contributions that are consecutive in `recv` too
    do {
      bytes += mContributions[rank].Bytes();
      ++rank;
    } while (rank < mContributions.size() &&
             recv.For(static_cast<int>(rank)).mData == first.mData + bytes);
    if (bytes > 0) std::memcpy(first.mData, from, bytes);
    from += bytes;
  }
}

}  // namespace Pavex
