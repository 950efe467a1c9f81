#include "pavex/comm/local_transfer.h"

#include <algorithm>
#include <utility>

namespace Pavex {
namespace {

// Large enough for the streaming stores of memmove, small enough to balance the ranks.
std::size_t ChunkBytes(std::size_t bytes, std::size_t helpers) {
  constexpr std::size_t kLeast = std::size_t{1} << 18;
  constexpr std::size_t kChunksPerHelper = 4;
  constexpr std::size_t kPage = 4096;  // keeps whole elements together
  std::size_t const share = std::max(kLeast, bytes / (helpers * kChunksPerHelper));
  return (share + kPage - 1) / kPage * kPage;
}

}  // namespace

LocalTransfer::LocalTransfer(LocalWork work, std::vector<int> partners)
    : mWork(std::move(work)),
      mPartners(std::move(partners)),
      mChunk(ChunkBytes(mWork.Bytes(), mPartners.size())),
      mTaken(mWork.mPieces.size()),
      mLeft(mWork.Bytes()) {}

bool LocalTransfer::Help(int rank) {
  std::size_t const pieces = mWork.mPieces.size();
  auto const self = std::lower_bound(mPartners.begin(), mPartners.end(), rank);
  std::size_t const index = static_cast<std::size_t>(self - mPartners.begin());
  std::size_t const first = index * pieces / mPartners.size();
  std::size_t done = 0;
  for (std::size_t i = 0; i < pieces; ++i) {
    done += DoChunksOf((first + i) % pieces);
  }
  return done > 0 && mLeft.fetch_sub(done) == done;
}

// Helpers that write short runs next to each other's each begin elsewhere: two cores that write
// the same line at the same time take it from each other.
std::size_t LocalTransfer::DoChunksOf(std::size_t piece) {
  LocalPiece const& work = mWork.mPieces[piece];
  std::size_t const chunks = (work.mBytes + mChunk - 1) / mChunk;
  std::size_t const first = work.mRun < work.mBytes ? piece * chunks / mTaken.size() : 0;
  std::size_t done = 0;
  for (;;) {
    std::size_t const taken = mTaken[piece].fetch_add(1);
    if (taken >= chunks) return done;
    std::size_t const begin = (first + taken) % chunks * mChunk;
    std::size_t const end = std::min(begin + mChunk, work.mBytes);
    mWork.Do(piece, begin, end);
    done += end - begin;
  }
}

}  // namespace Pavex
