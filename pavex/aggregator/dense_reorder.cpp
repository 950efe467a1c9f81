#include "pavex/aggregator/dense_reorder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Pavex {
namespace {

enum class Direction { TO_GLOBAL, TO_COMM };

// The pieces as the records describe them, in bytes.
class Pieces {
 public:
  Pieces(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int count,
         bool rowMajor)
      : mElementBytes(elementBytes), mInfos(infos.mData), mCount(count), mRowMajor(rowMajor) {}

  int Count() const { return mCount; }
  std::int64_t Length(int p) const { return mRowMajor ? mInfos[p].cols : mInfos[p].rows; }
  std::int64_t Runs(int p) const { return mRowMajor ? mInfos[p].rows : mInfos[p].cols; }
  std::size_t Bytes(std::int64_t elements) const {
    return static_cast<std::size_t>(elements) * mElementBytes;
  }
  std::size_t LengthBytes(int p) const { return Bytes(Length(p)); }

 private:
  std::size_t mElementBytes;
  MatrixLocalInfo const* mInfos;
  int mCount;
  bool mRowMajor;
};

// One side of a move: where run 0 begins, and the bytes from one run to the next.
template <typename Byte>
struct Side {
  Byte* data;
  std::size_t stride;
};

template <std::size_t kLength>
void CopyRunsOf(Side<char> to, Side<char const> from, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k)
    std::memcpy(to.data + k * to.stride, from.data + k * from.stride, kLength);
}

// Copies `count` runs of `length` bytes.
void CopyRuns(Side<char> to, Side<char const> from, std::size_t length, std::size_t count) {
  if (to.stride == length && from.stride == length) {
    std::memcpy(to.data, from.data, length * count);
    return;
  }
  switch (length) {
    case 4:
      return CopyRunsOf<4>(to, from, count);
    case 8:
      return CopyRunsOf<8>(to, from, count);
    case 16:
      return CopyRunsOf<16>(to, from, count);
    case 32:
      return CopyRunsOf<32>(to, from, count);
    case 64:
      return CopyRunsOf<64>(to, from, count);
    default:
      for (std::size_t k = 0; k < count; ++k)
        std::memcpy(to.data + k * to.stride, from.data + k * from.stride, length);
  }
}

// The walk in rank order, piece by piece and run by run. Positions wrap harmlessly beyond the
// last piece that has any element.
template <Direction kDirection, typename CommByte, typename GlobalByte>
void Walk(Pieces const& pieces, long ld, CommByte* comm, GlobalByte* global) {
  std::size_t const ldBytes = pieces.Bytes(ld);
  std::size_t commAt = 0;
  std::size_t globalAt = 0;
  for (int p = 0; p < pieces.Count(); ++p) {
    std::size_t const length = pieces.LengthBytes(p);
    auto const runs = static_cast<std::size_t>(pieces.Runs(p));
    if (pieces.Length(p) > 0 && pieces.Runs(p) > 0) {
      Side<CommByte> const packed{comm + commAt, length};
      Side<GlobalByte> const spread{global + globalAt, ldBytes};
      if constexpr (kDirection == Direction::TO_GLOBAL)
        CopyRuns(spread, {packed.data, packed.stride}, length, runs);
      else
        CopyRuns(packed, {spread.data, spread.stride}, length, runs);
    }
    commAt += length * runs;
    globalAt += length;
  }
}

}  // namespace

bool ReorderStaysInside(Buffer<MatrixLocalInfo> const& infos, int pieces, bool rowMajor,
                        long ld, long total) noexcept {
  Pieces const all(1, infos, pieces, rowMajor);
  if (ld < 0 || total < 0) return false;
  std::int64_t commLeft = total;
  std::int64_t globalLeft = total;
  for (int p = 0; p < pieces; ++p) {
    std::int64_t const length = all.Length(p);
    std::int64_t const runs = all.Runs(p);
    if (length < 0 || runs < 0) return false;
    if (length > 0 && runs > 0) {
      if (length > globalLeft || runs > commLeft / length) return false;
      if (ld > 0 && runs - 1 > (globalLeft - length) / ld) return false;
      commLeft -= length * runs;
    }
    globalLeft -= std::min(length, globalLeft);
  }
  return true;
}

void CommToGlobal(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* comm, void* global) noexcept {
  Walk<Direction::TO_GLOBAL>(Pieces(elementBytes, infos, pieces, rowMajor), ld,
                             static_cast<char const*>(comm), static_cast<char*>(global));
}

void GlobalToComm(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* global, void* comm) noexcept {
  Walk<Direction::TO_COMM>(Pieces(elementBytes, infos, pieces, rowMajor), ld,
                           static_cast<char*>(comm), static_cast<char const*>(global));
}

}  // namespace Pavex
