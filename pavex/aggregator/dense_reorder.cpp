#include "pavex/aggregator/dense_reorder.h"

#include "pavex/runtime/stream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Pavex {
namespace {

// A walk piece by piece, run by run, fetches and writes every line of the target once per piece
// that has a part in it. Compared with one memcpy, it is 2 to 8 times as slow for runs of 8
// doubles and 6 to 33 times for single doubles. So pieces that tile the matrix are walked in
// blocks of runs. A contiguous part of the target is assembled in a scratch array that stays in
// the first caches. Streaming stores write it out in whole lines without fetching them.
// bench/dense_reorder.cpp measures both walks.
constexpr std::size_t kLine = 64;
// Runs of this many bytes are written without the scratch array. Shorter runs of a block, side
// by side, form a tile of at most this width.
constexpr std::size_t kTileWidth = 512;
constexpr std::size_t kTileBytes = 32768;  // at most
// Runs of a tile that are a multiple of this many bytes apart would share a few sets of the
// cache. They are moved one line further apart.
constexpr std::size_t kConflict = 512;
constexpr std::size_t kScratchBytes = kTileBytes + kTileBytes / kConflict * kLine;
// The processor does not prefetch more sources than this by itself.
constexpr int kManyPieces = 16;
// A smaller target stays in the caches, because it may be read soon.
constexpr std::size_t kStreamFromBytes = std::size_t{2} << 20;

// The pieces as the records describe them.
class Pieces {
 public:
  Pieces(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int count,
         bool rowMajor)
      : mElementBytes(elementBytes), mInfos(infos.mData), mCount(count), mRowMajor(rowMajor) {}

  int Count() const { return mCount; }
  std::int64_t Length(int p) const { return mInfos[p].RunLength(mRowMajor); }
  std::int64_t Runs(int p) const { return mInfos[p].Runs(mRowMajor); }
  std::size_t Bytes(std::int64_t elements) const {
    return static_cast<std::size_t>(elements) * mElementBytes;
  }
  std::size_t LengthBytes(int p) const { return Bytes(Length(p)); }

  // Whether the pieces, side by side, cover every run of the global array exactly once. No
  // extent is negative: FindRunsOutside found none.
  bool Tile(std::int64_t ld) const {
    std::int64_t left = ld;
    for (int p = 0; p < mCount; ++p) {
      if (Length(p) > left || Runs(p) != Runs(0)) return false;
      left -= Length(p);
    }
    return ld > 0 && left == 0;
  }

 private:
  std::size_t mElementBytes;
  MatrixLocalInfo const* mInfos;
  int mCount;
  bool mRowMajor;
};

// Prefetches `bytes` bytes that are read soon.
void Prefetch(char const* from, std::size_t bytes) {
#if defined(__SSE2__)
  for (std::size_t i = 0; i < bytes; i += kLine)
    _mm_prefetch(from + i, _MM_HINT_T0);
#else
  static_cast<void>(from);
  static_cast<void>(bytes);
#endif
}

// Writes the result of a block of runs to the target: by streaming stores unless the target is
// small.
class Out {
 public:
  explicit Out(std::size_t targetBytes) : mStreams(targetBytes >= kStreamFromBytes) {}
  Out(Out const&) = delete;
  Out& operator=(Out const&) = delete;
  ~Out() {
    if (mStreams) EndStream();
  }

  void Put(Target to, Source from, std::size_t length, std::size_t count) const {
    if (!mStreams) return CopyRuns(to, from, length, count);
    if (to.stride == length && from.stride == length)
      return Stream(to.data, from.data, length * count);
    for (std::size_t k = 0; k < count; ++k)
      Stream(to.data + k * to.stride, from.data + k * from.stride, length);
  }

 private:
  bool mStreams;
};

// --- The walks. `ld` is in bytes.

enum class Direction { TO_GLOBAL, TO_COMM };

// Both arrays; the source is constant.
template <Direction kDirection>
struct Arrays {
  template <Direction kTarget>
  using Bytes = std::conditional_t<kDirection == kTarget, char, char const>;

  Bytes<Direction::TO_COMM>* comm;
  Bytes<Direction::TO_GLOBAL>* global;
};

// Bytes from one run of a tile to the next in the scratch.
std::size_t TileStride(std::size_t width) {
  return width % kConflict == 0 ? width + kLine : width;
}

// Runs `first` to `first + count` of all pieces.
struct Block {
  std::size_t first;
  std::size_t count;
};

// Gathers a block. Copies pieces that together are at most kTileWidth wide into the scratch, in
// the order of the global layout, and writes them to the target from there.
void MoveToGlobal(Pieces const& pieces, Block block, std::size_t ld, char const* comm,
                  char* global, Out const& out) {
  alignas(kLine) char scratch[kScratchBytes];
  auto const runs = static_cast<std::size_t>(pieces.Runs(0));
  global += block.first * ld;
  for (int p = 0; p < pieces.Count();) {
    std::size_t width = pieces.LengthBytes(p);
    int end = p + 1;
    for (; end < pieces.Count() && width + pieces.LengthBytes(end) <= kTileWidth; ++end)
      width += pieces.LengthBytes(end);
    bool const alone = end == p + 1;
    std::size_t const stride = TileStride(width);
    std::size_t at = 0;
    for (; p < end; ++p) {
      std::size_t const length = pieces.LengthBytes(p);
      Source const packed{comm + block.first * length, length};
      if (pieces.Count() > kManyPieces && p + 1 < end) {
        std::size_t const next = pieces.LengthBytes(p + 1);
        Prefetch(comm + runs * length + block.first * next, next * block.count);
      }
      if (alone)
        out.Put({global, ld}, packed, length, block.count);
      else
        CopyRuns({scratch + at, stride}, packed, length, block.count);
      at += length;
      comm += runs * length;
    }
    if (!alone) out.Put({global, ld}, {scratch, stride}, width, block.count);
    global += width;
  }
}

// Scatters a block: packs each piece in the scratch and writes it to the target from there.
// NOLINTNEXTLINE(readability-non-const-parameter): `comm` is written through the targets
void MoveToComm(Pieces const& pieces, Block block, std::size_t ld, char* comm,
                char const* global, Out const& out) {
  alignas(kLine) char scratch[kScratchBytes];
  auto const runs = static_cast<std::size_t>(pieces.Runs(0));
  global += block.first * ld;
  for (int p = 0; p < pieces.Count(); ++p) {
    std::size_t const length = pieces.LengthBytes(p);
    Target const packed{comm + block.first * length, length};
    if (length >= kTileWidth) {
      out.Put(packed, {global, ld}, length, block.count);
    } else {
      CopyRuns({scratch, length}, {global, ld}, length, block.count);
      out.Put(packed, {scratch, length}, length, block.count);
    }
    comm += runs * length;
    global += length;
  }
}

// Pieces that tile: all of them for a few runs at a time.
template <Direction kDirection>
void WalkBlocks(Pieces const& pieces, std::size_t ld, Arrays<kDirection> arrays) {
  auto const runs = static_cast<std::size_t>(pieces.Runs(0));
  // A tile on its way to the global array only has to give each piece a stretch of a few lines:
  // with few pieces it may be so small that its sources stay in the first cache as well.
  std::size_t tileBytes = kTileBytes;
  if constexpr (kDirection == Direction::TO_GLOBAL)
    tileBytes = std::clamp(static_cast<std::size_t>(pieces.Count()) * 8 * kLine, kTileBytes / 4,
                           kTileBytes);
  std::size_t const step = tileBytes / std::min(ld, kTileWidth);
  Out const out(runs * ld);
  for (std::size_t first = 0; first < runs; first += step) {
    Block const block{first, std::min(step, runs - first)};
    if constexpr (kDirection == Direction::TO_GLOBAL)
      MoveToGlobal(pieces, block, ld, arrays.comm, arrays.global, out);
    else
      MoveToComm(pieces, block, ld, arrays.comm, arrays.global, out);
  }
}

// Any pieces, one after the other. Positions may wrap beyond the last piece with elements.
template <Direction kDirection>
void WalkPieces(Pieces const& pieces, std::size_t ld, Arrays<kDirection> arrays) {
  std::size_t commAt = 0;
  std::size_t globalAt = 0;
  for (int p = 0; p < pieces.Count(); ++p) {
    std::size_t const length = pieces.LengthBytes(p);
    auto const runs = static_cast<std::size_t>(pieces.Runs(p));
    if (pieces.Length(p) > 0 && pieces.Runs(p) > 0) {
      if constexpr (kDirection == Direction::TO_GLOBAL)
        CopyRuns({arrays.global + globalAt, ld}, {arrays.comm + commAt, length}, length, runs);
      else
        CopyRuns({arrays.comm + commAt, length}, {arrays.global + globalAt, ld}, length, runs);
    }
    commAt += length * runs;
    globalAt += length;
  }
}

template <Direction kDirection>
void Walk(Pieces const& pieces, long ld, Arrays<kDirection> arrays) {
  if (pieces.Tile(ld))
    WalkBlocks(pieces, pieces.Bytes(ld), arrays);
  else
    WalkPieces(pieces, pieces.Bytes(ld), arrays);
}

}  // namespace

std::int64_t FindRunsOutside(Buffer<MatrixLocalInfo> const& infos, int pieces, bool rowMajor,
                             long ld, long total) noexcept {
  Pieces const all(1, infos, pieces, rowMajor);
  if (ld < 0 || total < 0) return 0;
  std::int64_t commLeft = total;
  std::int64_t globalLeft = total;
  for (int p = 0; p < pieces; ++p) {
    std::int64_t const length = all.Length(p);
    std::int64_t const runs = all.Runs(p);
    if (length < 0 || runs < 0) return p;
    if (length > 0 && runs > 0) {
      if (length > globalLeft || runs > commLeft / length) return p;
      if (ld > 0 && runs - 1 > (globalLeft - length) / ld) return p;
      commLeft -= length * runs;
    }
    globalLeft -= std::min(length, globalLeft);
  }
  return kNobody;
}

bool PiecesTile(Buffer<MatrixLocalInfo> const& infos, int pieces, bool rowMajor,
                long ld) noexcept {
  Pieces const all(1, infos, pieces, rowMajor);
  for (int p = 0; p < pieces; ++p)
    if (all.Length(p) < 0 || all.Runs(p) < 0) return false;
  return all.Tile(ld);
}

void CommToGlobal(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* comm, void* global) noexcept {
  Walk(
      Pieces(elementBytes, infos, pieces, rowMajor), ld,
      Arrays<Direction::TO_GLOBAL>{static_cast<char const*>(comm), static_cast<char*>(global)});
}

void GlobalToComm(std::size_t elementBytes, Buffer<MatrixLocalInfo> const& infos, int pieces,
                  bool rowMajor, long ld, void const* global, void* comm) noexcept {
  Walk(Pieces(elementBytes, infos, pieces, rowMajor), ld,
       Arrays<Direction::TO_COMM>{static_cast<char*>(comm), static_cast<char const*>(global)});
}

}  // namespace Pavex
